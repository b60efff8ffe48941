// ZdRefreshSettings: reads the settings anew, or takes note of the host's activity.
#include "config/Settings.h"
#include "log/Log.h"
#include "protocol/ProtocolManager.h"
#include "protocol/TaskTime.h"

namespace zd {
namespace {

void NoticeChanges() noexcept {
    CProcessState& state = ProcessState();
    if (state.m_modified.exchange(0, std::memory_order_relaxed) != 0) state.m_lastChange = SystemTimeNow();
}

// Every mounted library follows the level that its block names.
void CopyLogLevelToMounts(ZdvfsMountBlock& own, DWORD level) noexcept {
    CProcessState& state = ProcessState();
    const CAutoCriticalSection held(state.m_settingsLock);
    own.logLevel = level;
    for (ZdvfsMountBlock* const block : state.m_mountBlocks) block->logLevel = level;
}

void RecordActivity(DWORD value) noexcept {
    CProcessState& state = ProcessState();
    const std::int64_t now = SystemTimeNow();
    state.m_lastActivity = now;
    state.m_refreshValue = value;
    if (state.m_startUnset.exchange(false)) state.m_startTime = now;
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
        CopyLogLevelToMounts(m_mountBlock, level);
        DoAddTaskTimeUpdate();
        SendToPools(kZdvfsIoctlSyncFileCount, SettingOr(kSyncFileCount, kDefaultSyncFileCount));
        ScanForPools();
        CopyHighestValidNameChar();
    } catch (...) {
        // The operation has no result; what could not be read stays as it was.
    }
}

}  // namespace zd
