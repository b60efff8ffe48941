#include "namespace/PathTranslation.h"

#include <algorithm>
#include <cwchar>

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
    const std::wstring_view view = name.view();
    const std::size_t semicolon = view.rfind(L';');
    if (semicolon == std::wstring_view::npos || semicolon + 2 >= view.size() || view[semicolon + 1] != L'F') return {};
    wchar_t* end = nullptr;
    const long number = std::wcstol(name.c_str() + semicolon + 2, &end, 10);
    if (number <= 0 || *end != L'\0') return {};
    return CWideString(view.substr(0, semicolon));
}

}  // namespace zd
