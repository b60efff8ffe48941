#include "operations/ConnectBlock.h"

#include <new>

#include "base/Conversion.h"
#include "base/StorageOwners.h"
#include "config/PoolList.h"
#include "config/SettingsMap.h"
#include "log/Log.h"
#include "protocol/MountBlock.h"

namespace zd {
namespace {

constexpr std::uint32_t kFlagsOfAgent1 = 0x140;
constexpr std::uint32_t kFlagOfAgent3 = 0x80;
constexpr DWORD kAgent1 = 1;
constexpr DWORD kAgent2 = 2;
constexpr DWORD kAgent3 = 3;

char* DuplicateUtf8(const std::wstring& text) {
    if (text.empty()) return nullptr;
    return DuplicateText(WideToUtf8(text).c_str());
}

}  // namespace

void FindConfiguration(ZdvfsMountBlock& block, DWORD agentType, const std::wstring& pool) {
    auto file = FindConfigurationFile(agentType, pool);
    if (!file) {
        LogText(kLogTrace, "Config file not found scanning\n");
        ScanForPools();
        file = FindConfigurationFile(agentType, pool);
    }
    if (file) {
        CUniqueHulText utf8(::wcstoutf8_malloced(file->c_str()));
        if (!utf8) throw std::bad_alloc();
        block.configurationFile = DuplicateText(utf8.Get());
        ::_HulFree(utf8.Release());
    }
    LogMade(kLogTrace,
            [&] { return FormatText("Config file used (duped): %s\n", NameForLog(block.configurationFile).c_str()); });
    if (agentType == kAgent1) block.flags |= kFlagsOfAgent1;
    if (agentType == kAgent3) block.flags |= kFlagOfAgent3;
}

void FillMountBlock(ZdvfsMountBlock& block, DWORD agentType, const std::wstring& pool,
                    const ConnectParameters& parameters) {
    block.syncFileCount = SettingInForce(settings::kSyncFileCount);
    block.five4212 = 5;
    block.one4220 = 1;
    block.poolName = DuplicateText(WideToUtf8(pool).c_str());
    block.zero8 = 0;
    block.secondName = DuplicateUtf8(FieldText(parameters.secondName));
    block.thirdName = DuplicateUtf8(FieldText(parameters.thirdName));
    if (agentType == kAgent2) block.agentKind = DuplicateText("ZDDO_AGENT");
}

}  // namespace zd
