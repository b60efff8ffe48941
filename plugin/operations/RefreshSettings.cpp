// ZdRefreshSettings: reads the settings anew, or takes note of the host's activity.
#include "base/Times.h"
#include "config/PoolList.h"
#include "config/SettingsMap.h"
#include "files/FilesState.h"
#include "log/Log.h"
#include "protocol/MountedPools.h"
#include "protocol/ProtocolManager.h"
#include "protocol/ProtocolState.h"
#include "protocol/TaskTime.h"

namespace zd {
namespace {

void NoticeChanges() noexcept {
    if (FilesState().m_modified.exchange(0, std::memory_order_relaxed) != 0)
        ProtocolState().m_lastChange = FileTimeNow();
}

}  // namespace

void CProtocolManager::ZdRefreshSettings(DWORD value, bool full) {
    try {
        NoticeChanges();
        if (!full) {
            LoadSettings();
            SetLogLevel(static_cast<std::int32_t>(SettingInForce(settings::kDebugLevel)));
            CopyHighestValidNameChar();
            return;
        }
        RecordActivity(value);
        // Not the log's default: where nothing is stored, the storage is to say nothing.
        const DWORD level = FindSetting(settings::kDebugLevel).value_or(0);
        SetLogLevelOfMounts(m_mount.Block(), level);
        DoAddTaskTimeUpdate();
        SendValueToPools(kZdvfsIoctlSyncFileCount, SettingInForce(settings::kSyncFileCount));
        ScanForPools();
        CopyHighestValidNameChar();
    } catch (...) {
        // The operation has no result; what could not be read stays as it was.
    }
}

}  // namespace zd
