#include "namespace/Locality.h"

#include <string>
#include <string_view>

#include "base/Conversion.h"

namespace zd {

CUtf8String LocalityOf(const wchar_t* name) {
    constexpr std::size_t kLongest = 31;
    constexpr wchar_t kSeparators[] = L"\\/";
    const std::wstring_view view(name);
    const std::size_t begin = view.find_first_not_of(kSeparators);
    if (begin == std::wstring_view::npos) return {};
    const std::size_t end = view.find_first_of(kSeparators, begin);
    if (end == std::wstring_view::npos) return {};
    const std::string first = WideToUtf8(view.substr(begin, end - begin));
    return CUtf8String(CutAtCharacter(first, kLongest));
}

}  // namespace zd
