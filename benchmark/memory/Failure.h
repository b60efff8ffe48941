// How a call tells its failure: the runtime's errno and the thread's last Windows error. Success touches neither.
#pragma once

#include <windows.h>

#include <cerrno>
#include <new>
#include <utility>

namespace zd::memory {

inline DWORD LastErrorFor(int error) noexcept {
    switch (error) {
        case ENOENT:
            return ERROR_FILE_NOT_FOUND;
        case EEXIST:
            return ERROR_ALREADY_EXISTS;
        case EBADF:
            return ERROR_INVALID_HANDLE;
        case EACCES:
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case ENOTDIR:
            return ERROR_DIRECTORY;
        case ENOTEMPTY:
            return ERROR_DIR_NOT_EMPTY;
        case EBUSY:
            return ERROR_BUSY;
        case EMFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case ENOSPC:
            return ERROR_DISK_FULL;
        case ERANGE:
            return ERROR_INSUFFICIENT_BUFFER;
        case EXDEV:
            return ERROR_NOT_SAME_DEVICE;
        default:
            return ERROR_INVALID_PARAMETER;
    }
}

inline int Fail(int error) noexcept {
    ::SetLastError(LastErrorFor(error));
    errno = error;
    return -1;
}

// Runs a call's body, which answers 0 or an errno value.
template <class Body>
int Run(Body&& body) noexcept {
    int error = ENOMEM;
    try {
        error = std::forward<Body>(body)();
    } catch (const std::bad_alloc&) {
        // Stays ENOMEM.
    }
    return error == 0 ? 0 : Fail(error);
}

}  // namespace zd::memory
