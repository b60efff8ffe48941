#include "namespace/FragmentName.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>

#include "namespace/PathComponents.h"

namespace zd {
namespace {

constexpr std::string_view kSuffix = ";F";
constexpr std::wstring_view kWideSuffix = L";F";

// The name as the storage resolves it where it has "." or ".." components, otherwise as it stands.
CWideString ResolveDots(const CWideString& name) {
    if (!HasDotComponents(name.view())) return name;
    std::wstring text;
    for (const std::wstring_view component : ResolvedComponents(name.view(), 0))
        text.append(1, L'\\').append(component);
    return CWideString(std::move(text));
}

}  // namespace

CWideString FragmentName(const CWideString& name, std::int32_t number) {
    if (number <= 0) return name;
    return CWideString(name.view(), std::wstring(kWideSuffix).append(std::to_wstring(number)));
}

CUtf8String FragmentPath(const CUtf8String& path, std::int32_t number) {
    if (number <= 0) return path;
    return CUtf8String(path.view(), std::string(kSuffix).append(std::to_string(number)));
}

std::string_view PathWithoutFragment(std::string_view fragmentPath) noexcept {
    return fragmentPath.substr(0, fragmentPath.rfind(kSuffix));
}

CFragmentPaths::CFragmentPaths(std::string_view path) : m_path(path), m_length(path.size()) {}

const char* CFragmentPaths::Of(std::int32_t number) {
    char digits[std::numeric_limits<std::int32_t>::digits10 + 1];
    m_path.resize(m_length);
    m_path.append(kSuffix).append(digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr);
    return m_path.c_str();
}

CWideString BaseOfFragmentShape(const CWideString& name) {
    // Resolving takes components away and adds none.
    if (name.view().find(L';') == std::wstring_view::npos) return {};
    const CWideString resolved = ResolveDots(name);
    std::wstring_view view = resolved.view();
    // The storage may take a path with slashes behind it for the same object.
    while (!view.empty() && IsSeparator(view.back())) view.remove_suffix(1);
    const std::size_t semicolon = view.rfind(kWideSuffix.front());
    if (semicolon == std::wstring_view::npos || !view.substr(semicolon).starts_with(kWideSuffix)) return {};
    // Written as the numbering of fragments writes it: another spelling is a name of its own.
    const std::wstring_view digits = view.substr(semicolon + kWideSuffix.size());
    if (digits.empty() || digits.front() == L'0') return {};
    std::int64_t number = 0;
    for (const wchar_t digit : digits) {
        if (digit < L'0' || digit > L'9') return {};
        number = number * 10 + (digit - L'0');
        if (number > std::numeric_limits<std::int32_t>::max()) return {};
    }
    return CWideString(view.substr(0, semicolon));
}

std::size_t LengthOfListedBase(const char* name, std::size_t length) noexcept {
    const char* const semicolon = std::strrchr(name, kSuffix.front());
    if (semicolon == nullptr || !std::string_view(semicolon).starts_with(kSuffix)) return length;
    char* end = nullptr;
    const long number = std::strtol(semicolon + kSuffix.size(), &end, 10);
    const bool isFragment = number > 0 && *end == '\0';
    return isFragment ? static_cast<std::size_t>(semicolon - name) : length;
}

}  // namespace zd
