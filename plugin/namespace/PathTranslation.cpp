#include "namespace/PathTranslation.h"

#include <algorithm>
#include <string>

#include "base/Errors.h"
#include "namespace/PathComponents.h"

namespace zd {

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
    while (name.size() > 1 && IsSeparator(name.back())) name.remove_suffix(1);
    return name;
}

}  // namespace zd
