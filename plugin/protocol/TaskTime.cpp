// The storage task's time: renewed while the host reports activity, given back once it has been quiet.
#include <cstdarg>

#include "config/Settings.h"
#include "log/Log.h"
#include "protocol/ProtocolManager.h"
#include "protocol/TaskTime.h"

namespace zd {
namespace {

constexpr std::int64_t kSecond = 10'000'000;
// A host that calls exactly every so many seconds must not come too early.
constexpr std::int64_t kMargin = 5'000'000;
constexpr int kLengthOfValue = 4;
constexpr DWORD kDefaultTaskCloseWait = 900;
constexpr DWORD kDefaultTaskTimeAdd = 600;

// Builds the argument list that slot 29 hands on.
void SendRequest(IProtocolManager& manager, DWORD request, ...) {
    va_list arguments;
    va_start(arguments, request);
    manager.ZdPathIoctl(request, reinterpret_cast<std::uint64_t>(arguments));
    va_end(arguments);
}

bool IsLongerThan(std::int64_t since, std::int64_t now, DWORD seconds) noexcept {
    return now - since > static_cast<std::int64_t>(seconds) * kSecond - kMargin;
}

}  // namespace

std::int64_t SystemTimeNow() noexcept {
    FILETIME time;
    ::GetSystemTimeAsFileTime(&time);
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
}

void CProtocolManager::SendToPools(DWORD request, std::uint32_t value) {
    SendRequest(*this, request, static_cast<int>(value), kLengthOfValue);
}

void CProtocolManager::DoAddTaskTimeUpdate() {
    CProcessState& state = ProcessState();
    const DWORD closeWait = NonZeroSettingOr(kTaskCloseWait, kDefaultTaskCloseWait);
    const DWORD timeAdd = SettingOr(kTaskTimeAdd, kDefaultTaskTimeAdd);
    if (static_cast<std::int32_t>(timeAdd) < 1) {
        if (state.m_renewalActive.exchange(false)) SendToPools(kZdvfsIoctlTaskTime, 0);
        return;
    }
    const std::int64_t now = state.m_lastActivity;
    const std::int32_t open = state.m_OpenDirectIOorWriteFiles.load(std::memory_order_relaxed);
    if (state.m_lastRenewal != 0) {
        if (IsLongerThan(state.m_startTime, now, closeWait) && open == 0) {
            state.m_lastRenewal = 0;
            LogText(kLogTrace, "DoAddTaskTimeUpdate: stopping task\n");
            SendToPools(kZdvfsIoctlTaskTime, 0);
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
    if (static_cast<std::int32_t>(value) >= 0) SendToPools(kZdvfsIoctlTaskTime, value);
}

}  // namespace zd
