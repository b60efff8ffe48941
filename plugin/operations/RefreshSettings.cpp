// ZdRefreshSettings: reads the settings anew, or takes note of the host's activity.
#include "base/Times.h"
#include "config/PoolList.h"
#include "config/Settings.h"
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
            SetLogLevel(static_cast<std::int32_t>(SettingOr(kDebugLevel, kDefaultDebugLevel)));
            CopyHighestValidNameChar();
            return;
        }
        RecordActivity(value);
        const DWORD level = SettingOr(kDebugLevel, 0);
        SetLogLevelOfMounts(m_mount.Block(), level);
        DoAddTaskTimeUpdate();
        SendValueToPools(kZdvfsIoctlSyncFileCount, SettingOr(kSyncFileCount, kDefaultSyncFileCount));
        ScanForPools();
        CopyHighestValidNameChar();
    } catch (...) {
        // The operation has no result; what could not be read stays as it was.
    }
}

}  // namespace zd
