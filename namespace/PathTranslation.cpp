#include "namespace/PathTranslation.h"

#include <algorithm>
#include <limits>

#include "protocol/Errors.h"

namespace zd {

CUtf8String TranslatePath(const CWideString& rootPrefix, const wchar_t* name) {
    const CWideString joined(rootPrefix.view(), name == nullptr ? std::wstring_view() : std::wstring_view(name));
    std::wstring path(joined.view());
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

CWideString BaseOfFragmentShape(const CWideString& name) {
    std::wstring_view view = name.view();
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
