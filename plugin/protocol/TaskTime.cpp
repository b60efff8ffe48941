#include "protocol/TaskTime.h"

#include "base/Times.h"
#include "config/SettingsMap.h"
#include "files/FilesState.h"
#include "log/Log.h"
#include "protocol/MountedPools.h"
#include "protocol/ProtocolState.h"

namespace zd {
namespace {

// A host that calls exactly every so many seconds must not come too early.
constexpr std::int64_t kMargin = 5'000'000;

bool IsLongerThan(std::int64_t since, std::int64_t now, DWORD seconds) noexcept {
    return now - since > static_cast<std::int64_t>(seconds) * kUnitsPerSecond - kMargin;
}

}  // namespace

void RecordActivity(DWORD value) noexcept {
    CProtocolState& state = ProtocolState();
    const std::int64_t now = FileTimeNow();
    state.m_lastActivity = now;
    state.m_refreshValue = value;
    if (state.m_startUnset.exchange(false)) state.m_startTime = now;
}

void DoAddTaskTimeUpdate() {
    CProtocolState& state = ProtocolState();
    const DWORD closeWait = SettingInForce(settings::kTaskCloseWait);
    const DWORD timeAdd = SettingInForce(settings::kTaskTimeAdd);
    if (static_cast<std::int32_t>(timeAdd) < 1) {
        if (state.m_renewalActive.exchange(false)) SendValueToPools(kZdvfsIoctlTaskTime, 0);
        return;
    }
    const std::int64_t now = state.m_lastActivity;
    const std::int32_t open = FilesState().m_OpenDirectIOorWriteFiles.load(std::memory_order_relaxed);
    if (state.m_lastRenewal != 0) {
        if (IsLongerThan(state.m_startTime, now, closeWait) && open == 0) {
            state.m_lastRenewal = 0;
            LogText(kLogTrace, "DoAddTaskTimeUpdate: stopping task\n");
            SendValueToPools(kZdvfsIoctlTaskTime, 0);
            return;
        }
        if (!IsLongerThan(state.m_lastRenewal, now, timeAdd)) return;
    } else if (state.m_startTime != now) {
        return;
    }
    const std::uint32_t value = timeAdd + state.m_refreshValue;
    state.m_lastRenewal = now;
    state.m_renewalActive = true;
    LogLine(kLogTrace, "DoAddTaskTimeUpdate: renewing task - m_OpenDirectIOorWriteFiles: %d\n", open);
    if (static_cast<std::int32_t>(value) >= 0) SendValueToPools(kZdvfsIoctlTaskTime, value);
}

}  // namespace zd
