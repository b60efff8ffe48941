#include "operations/ConnectRoot.h"

#include <cstring>

#include "base/Conversion.h"
#include "base/RegistryKey.h"
#include "base/StorageOwners.h"
#include "log/Log.h"
#include "ZdvfsSettings.h"

namespace zd {
namespace {

constexpr char kConnectName[] = "CProtocolManager::ZdConnect";
constexpr std::size_t kLongestRootName = 260;  // bytes, for the search of the marker
constexpr int kLengthOfValue = 4;

bool IsDots(const char* name) noexcept {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

void FindTopLevelDirectory(const CMount& mount, const COpenFiles& files, const std::wstring& pool) {
    const std::string rootName = WideToUtf8(files.Root().view());
    if (rootName.size() > kLongestRootName) return;
    CUniqueDirectory directory(::ZdvfsOpendir(mount.RootPath().c_str()));
    if (!directory) return;
    while (const ZdvfsDirectoryRecord* const entry = ::ZdvfsReaddir(directory.Get())) {
        if (IsDots(entry->name)) continue;
        const std::string name(entry->name);
        const std::string marker = FormatText("%s/%s/QBX_ZD_MARKER", rootName.c_str(), name.c_str());
        ZdvfsStatRecord status{};
        if (::ZdvfsStat(marker.c_str(), &status) != 0) continue;
        const std::wstring path = std::wstring(VendorTree(mount.IsFormerMaker()).spaList) + L"\\" + pool;
        CRegistryKey key;
        if (key.Open(path.c_str()) == ERROR_SUCCESS)
            key.SetText(zdvfs::settings::kTopLevelDirectory.name.wide, Utf8ToWide(name));
        break;
    }
    // Not left to the owner, which would keep an exception from the operation's handlers.
    ::ZdvfsClosedir(directory.Release());
}

void SetCompressionAndEncryption(const CMount& mount, const CAgentConfiguration& configuration) {
    CUniqueDescriptor root(::ZdvfsOpen(mount.RootPath().c_str(), 0, 0));
    if (!root) {
        LogLine(kLogWarning, "%s: Error %d setting compression and encryption", kConnectName, errno);
        return;
    }
    struct CValue {
        int request;
        std::int32_t value;
        const char* lower;
        const char* upper;
    };
    for (const CValue& value :
         {CValue{kZdvfsIoctlSetCompression, configuration.compression, "compression", "Compression"},
          CValue{kZdvfsIoctlSetEncryption, configuration.encryption, "encryption", "Encryption"}}) {
        errno = 0;
        const int result = ::ZdvfsIoctl(root.Get(), value.request, value.value, kLengthOfValue);
        if (result != 0) {
            LogLine(kLogWarning, "%s: Error %d setting %s value %d", kConnectName, errno, value.lower, value.value);
        } else {
            LogLine(kLogTrace, "%s: %s %s enabled", kConnectName, value.upper, value.value == result ? "is not" : "is");
        }
    }
    ::ZdvfsClose(root.Release());
}

}  // namespace zd
