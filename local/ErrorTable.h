// How the engine reports failures: the runtime's errno and the Windows error go together.
#pragma once

#include <windows.h>

#include <cerrno>

namespace zd::engine {

// A failure on its way to the caller: both codes that the failing call leaves behind.
struct EngineError {
    int error;
    DWORD windows;
};

// The errno that stands for a Windows error; EIO for one that the table does not list.
int ErrnoOfWindows(DWORD code) noexcept;

// Throws the failure that a Windows error means.
[[noreturn]] void Fail(DWORD code);

// Throws a failure whose errno says more than its Windows error does.
[[noreturn]] void Fail(int error, DWORD code);

// Throws the calling thread's last Windows error.
[[noreturn]] void FailLast();

[[noreturn]] inline void FailInvalid() {
    Fail(ERROR_INVALID_PARAMETER);
}

}  // namespace zd::engine
