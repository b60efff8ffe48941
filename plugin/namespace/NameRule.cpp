#include "namespace/NameRule.h"

#include <algorithm>
#include <string_view>

#include "config/ConfigState.h"

namespace zd {

bool NameHasInvalidCharacters(const wchar_t* name) noexcept {
    constexpr wchar_t kFirstPrintable = 0x20;
    const wchar_t highest = ConfigState().m_highestValidNameChar.load(std::memory_order_relaxed);
    if (highest == 0) return false;
    const std::wstring_view view(name);
    return std::any_of(view.begin(), view.end(),
                       [highest](wchar_t unit) { return unit < kFirstPrintable || unit > highest; });
}

}  // namespace zd
