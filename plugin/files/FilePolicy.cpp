#include "files/FilePolicy.h"

#include <windows.h>

#include "base/RegistryKey.h"

namespace zd {
namespace {

constexpr std::int64_t kBytesPerMb = 1'048'576;

}  // namespace

void ReadFilePolicy(bool formerMaker, CFilePolicy& policy) noexcept {
    CRegistryKey key;
    if (key.Open(VendorTree(formerMaker).settings, KEY_READ) != ERROR_SUCCESS) return;
    if (ReadDword(key.Get(), L"LocalCacheOff").value_or(0) != 0) policy.isLocalCacheOn = false;
    const DWORD megabytes = ReadDword(key.Get(), L"MaxFileSizeMB").value_or(0);
    if (megabytes != 0) policy.fragmentSize = megabytes * kBytesPerMb;
}

}  // namespace zd
