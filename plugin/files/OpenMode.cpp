#include "files/OpenMode.h"

#include "base/Conversion.h"
#include "config/SettingsMap.h"
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

}  // namespace zd
