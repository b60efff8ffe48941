#include "namespace/PathTranslation.h"

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "base/Errors.h"

namespace zd {

namespace {

constexpr wchar_t kSeparators[] = L"\\/";

bool IsDots(std::wstring_view component) {
    return component == L"." || component == L"..";
}

std::vector<std::wstring_view> Components(std::wstring_view name) {
    std::vector<std::wstring_view> components;
    while (!name.empty()) {
        const std::size_t end = std::min(name.find_first_of(kSeparators), name.size());
        if (end > 0) components.push_back(name.substr(0, end));
        name.remove_prefix(std::min(end + 1, name.size()));
    }
    return components;
}

// The name as the storage resolves it where it has "." or ".." components, otherwise as it stands.
CWideString ResolveDots(const CWideString& name) {
    const std::vector<std::wstring_view> components = Components(name.view());
    if (std::none_of(components.begin(), components.end(), IsDots)) return name;
    std::vector<std::wstring_view> kept;
    for (const std::wstring_view component : components) {
        if (!IsDots(component)) {
            kept.push_back(component);
        } else if (component.size() == 2 && !kept.empty()) {
            kept.pop_back();
        }
    }
    std::wstring text;
    for (const std::wstring_view component : kept) text.append(1, L'\\').append(component);
    return CWideString(std::move(text));
}

}  // namespace

CUtf8String TranslatePath(const CWideString& rootPrefix, const wchar_t* name) {
    const std::wstring_view root = rootPrefix.view();
    const std::wstring_view given = name == nullptr ? std::wstring_view() : std::wstring_view(name);
    CWideString::CheckLength(root.size() + given.size());
    std::wstring path;
    path.reserve(root.size() + given.size());
    path.append(root).append(given);
    std::replace(path.begin(), path.end(), L'\\', L'/');
    // Two bytes a unit, terminator included: a longer name is refused rather than stored.
    std::string utf8(path.size() * 2, '\0');
    const int written = utf8.empty() ? 0
                                     : ::WideCharToMultiByte(CP_UTF8, 0, path.c_str(), -1, utf8.data(),
                                                             static_cast<int>(utf8.size()), nullptr, nullptr);
    if (written <= 0) ThrowWin32(ERROR_FILE_NOT_FOUND);
    utf8.resize(static_cast<std::size_t>(written) - 1);
    return CUtf8String(std::move(utf8));
}

std::wstring_view WithoutTrailingSeparators(std::wstring_view name) noexcept {
    while (name.size() > 1 && (name.back() == L'\\' || name.back() == L'/')) name.remove_suffix(1);
    return name;
}

CWideString BaseOfFragmentShape(const CWideString& name) {
    // Resolving takes components away and adds none.
    if (name.view().find(L';') == std::wstring_view::npos) return {};
    const CWideString resolved = ResolveDots(name);
    std::wstring_view view = resolved.view();
    // The storage may take a path with slashes behind it for the same object.
    while (!view.empty() && (view.back() == L'\\' || view.back() == L'/')) view.remove_suffix(1);
    const std::size_t semicolon = view.rfind(L';');
    if (semicolon == std::wstring_view::npos) return {};
    const std::wstring_view suffix = view.substr(semicolon + 1);
    // Written as the numbering of fragments writes it: another spelling is a name of its own.
    if (suffix.size() < 2 || suffix[0] != L'F' || suffix[1] == L'0') return {};
    std::int64_t number = 0;
    for (const wchar_t digit : suffix.substr(1)) {
        if (digit < L'0' || digit > L'9') return {};
        number = number * 10 + (digit - L'0');
        if (number > std::numeric_limits<std::int32_t>::max()) return {};
    }
    return CWideString(view.substr(0, semicolon));
}

}  // namespace zd
