// How an operation fails: a 32-bit Win32 code is thrown as a DWORD and caught by the operation frame.
#pragma once

#include <windows.h>

#include <cerrno>

namespace zd {

// Translates the calling thread's `errno` to a Win32 code; never 0, changes nothing. To be called right after the
// failed storage call, before anything else can change `errno`.
DWORD ZdvfsErrnoToWin32() noexcept;
DWORD ZdvfsErrnoToWin32(int error) noexcept;

// The translation of `error` where its table has a row, else `fallback`'s translation.
DWORD ZdvfsErrnoToWin32Or(int error, int fallback) noexcept;

// ERROR_ constants are of another type than DWORD and would miss the frame's handler when thrown bare.
[[noreturn]] inline void ThrowWin32(DWORD code) {
    throw code;
}

// What a failed call left behind; both are taken before a log line or a destructor can change them.
struct CFailure {
    DWORD lastError;
    int error;

    static CFailure Now() noexcept {
        const DWORD lastError = ::GetLastError();
        return CFailure{lastError, errno};
    }

    // The Windows last error as a result. An operation that failed never answers 0.
    DWORD LastErrorCode() const noexcept { return lastError != 0 ? lastError : ZdvfsErrnoToWin32(error); }
    DWORD ErrnoCode() const noexcept { return ZdvfsErrnoToWin32(error); }
};

// Throws the Windows last error. To be called right after the failed call.
[[noreturn]] inline void ThrowLastError() {
    ThrowWin32(CFailure::Now().LastErrorCode());
}

// Throws the translated `errno` when a storage call's result is negative, else answers the result.
template <class Result>
Result CheckZdvfs(Result result) {
    if (result < 0) ThrowWin32(ZdvfsErrnoToWin32());
    return result;
}

}  // namespace zd
