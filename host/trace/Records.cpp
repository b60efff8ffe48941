#include "trace/Records.h"

#include <algorithm>

#include "StorageErrors.h"

namespace zd::host {

namespace {

// Whether a failure with these two errors can have given that code. Data transfers look the Windows error up in the
// table first, and a failure that nobody has translated shows as the Windows error itself.
bool Becomes(const TracedCall& call, DWORD code) {
    const std::uint32_t byErrno = ZdvfsErrorCode(call.error);
    const std::uint32_t byLastError = ZdvfsErrorCode(static_cast<int>(call.lastError));
    return code == (byErrno != 0 ? byErrno : kZdvfsOtherErrorCode) || (byLastError != 0 && code == byLastError) ||
           code == call.lastError;
}

}  // namespace

void AttributeCode(TracedOperation& operation) {
    if (operation.code == ERROR_SUCCESS) return;
    for (auto event = operation.events.rbegin(); event != operation.events.rend(); ++event) {
        auto* const call = std::get_if<TracedCall>(&*event);
        if (call == nullptr || !call->failed || !Becomes(*call, operation.code)) continue;
        call->win32 = operation.code;
        return;
    }
}

std::int64_t CStopwatch::Ticks() {
    LARGE_INTEGER now{};
    ::QueryPerformanceCounter(&now);
    return now.QuadPart;
}

std::int64_t CStopwatch::Microseconds() const {
    LARGE_INTEGER frequency{};
    ::QueryPerformanceFrequency(&frequency);
    return (Ticks() - m_begin) * 1000000 / std::max<std::int64_t>(frequency.QuadPart, 1);
}

}  // namespace zd::host
