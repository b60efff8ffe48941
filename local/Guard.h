// The border of zdvfs.dll: no exception leaves it, and what a call leaves in errno and the last error is settled here.
#pragma once

#include <new>
#include <utility>

#include "ErrorTable.h"

namespace zd::engine {

// Runs a call's body. Success leaves errno and the last error as they were before the call; failure sets both.
template <class Result, class Body>
Result Guarded(Result failure, Body&& body) noexcept {
    const int oldErrno = errno;
    const DWORD oldLastError = ::GetLastError();
    EngineError problem{EIO, ERROR_IO_DEVICE};
    try {
        Result result = std::forward<Body>(body)();
        errno = oldErrno;
        ::SetLastError(oldLastError);
        return result;
    } catch (const EngineError& error) {
        problem = error;
    } catch (const std::bad_alloc&) {
        problem = {ENOMEM, ERROR_NOT_ENOUGH_MEMORY};
    } catch (...) {
        // What is thrown on purpose is one of the two above; a fault of the runtime stays a device error.
    }
    errno = problem.error;
    ::SetLastError(problem.windows);
    return failure;
}

// The same for calls that answer 0 or -1.
template <class Body>
int GuardedCall(Body&& body) noexcept {
    return Guarded(-1, [&] {
        body();
        return 0;
    });
}

}  // namespace zd::engine
