#include "files/OpenMode.h"

#include "base/Conversion.h"
#include "config/Settings.h"
#include "IProtocolManager.h"
#include "zdvfs.h"

namespace zd {

std::uint32_t OpenModeOf(DWORD access, const wchar_t* name) noexcept {
    constexpr wchar_t kEnding[] = L".edb";
    constexpr std::size_t kEndingLength = 4;
    if ((access & kZdAccessWrite) == 0) return kZdvfsReadOnly;
    const std::size_t length = std::wstring_view(name).size();
    const bool isDatabase = length >= kEndingLength && CompareNoCase(name + length - kEndingLength, kEnding) == 0;
    if (!isDatabase) return kZdvfsReadWrite;
    return SettingInForce(settings::kEdbDirectIo) != 0 ? kZdvfsWriteOnly : kZdvfsReadWrite;
}

std::size_t ReplaceCharacter(std::wstring& text, wchar_t from, wchar_t to) noexcept {
    if (from == to) return 0;
    std::size_t replaced = 0;
    for (wchar_t& unit : text) {
        if (unit != from) continue;
        unit = to;
        ++replaced;
    }
    return replaced;
}

}  // namespace zd
