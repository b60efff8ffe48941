#include "files/FilePolicy.h"

#include <windows.h>

#include "base/RegistryKey.h"

namespace zd {

namespace settings = zdvfs::settings;

void ReadFilePolicy(bool formerMaker, CFilePolicy& policy) noexcept {
    CRegistryKey key;
    if (key.Open(VendorTree(formerMaker).settings, KEY_READ) != ERROR_SUCCESS) return;
    const auto inForce = [&key](const settings::Setting& setting) {
        return setting.InForce(ReadDword(key.Get(), setting.name.wide));
    };
    policy.isLocalCacheOn = inForce(settings::kLocalCacheOff) == 0;
    policy.fragmentSize = inForce(settings::kMaxFileSizeMB) * kBytesPerMB;
}

}  // namespace zd
