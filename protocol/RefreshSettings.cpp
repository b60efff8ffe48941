#include "log/Log.h"
#include "protocol/ProtocolManager.h"
#include "protocol/Settings.h"

namespace zd {
namespace {

// Every mounted library follows the level that its block names.
void CopyLogLevelToMounts(DWORD level) noexcept {
    CProcessState& state = ProcessState();
    const CAutoCriticalSection held(state.m_settingsLock);
    for (ZdvfsMountBlock* const block : state.m_mountBlocks) block->logLevel = level;
}

}  // namespace

void CProtocolManager::ZdRefreshSettings(DWORD, bool full) {
    try {
        if (full) {
            const DWORD level = SettingOr(kDebugLevel, 0);
            m_mountBlock.logLevel = level;
            CopyLogLevelToMounts(level);
            LogText(kLogWarning, "ZdRefreshSettings: the task's time is not renewed by this build\n");
            ScanForPools();
        } else {
            LoadSettings();
            SetLogLevel(static_cast<std::int32_t>(SettingOr(kDebugLevel, kDefaultDebugLevel)));
        }
        CopyHighestValidNameChar();
    } catch (...) {
        // The operation has no result; what could not be read stays as it was.
    }
}

}  // namespace zd
