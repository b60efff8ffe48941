#include "ErrorTable.h"

namespace zd::engine {
namespace {

// Callers compare with the universal runtime's numbers; another runtime's header would break them in silence.
static_assert(ENAMETOOLONG == 38 && ENOTEMPTY == 41 && ENOTSUP == 129 && ERANGE == 34);

// ERROR_DISK_QUOTA_EXCEEDED, which not every version of the system's headers names.
constexpr DWORD kDiskQuotaExceeded = 1295;

struct ErrorRow {
    DWORD windows;
    int error;
};

constexpr ErrorRow kRows[] = {
    {ERROR_FILE_NOT_FOUND, ENOENT},
    {ERROR_PATH_NOT_FOUND, ENOENT},
    {ERROR_INVALID_DRIVE, ENOENT},
    {ERROR_BAD_NETPATH, ENOENT},
    {ERROR_BAD_NET_NAME, ENOENT},
    {ERROR_BAD_PATHNAME, ENOENT},
    {ERROR_TOO_MANY_OPEN_FILES, EMFILE},
    {ERROR_ACCESS_DENIED, EACCES},
    {ERROR_NETWORK_ACCESS_DENIED, EACCES},
    {ERROR_PRIVILEGE_NOT_HELD, EACCES},
    {ERROR_INVALID_HANDLE, EBADF},
    {ERROR_NOT_ENOUGH_MEMORY, ENOMEM},
    {ERROR_OUTOFMEMORY, ENOMEM},
    {ERROR_NO_SYSTEM_RESOURCES, ENOMEM},
    {ERROR_COMMITMENT_LIMIT, ENOMEM},
    {ERROR_NOT_ENOUGH_QUOTA, ENOMEM},
    {ERROR_NOT_SAME_DEVICE, EXDEV},
    {ERROR_WRITE_PROTECT, EROFS},
    {ERROR_SHARING_VIOLATION, EBUSY},
    {ERROR_LOCK_VIOLATION, EBUSY},
    {ERROR_BUSY, EBUSY},
    {ERROR_DELETE_PENDING, EBUSY},
    {ERROR_USER_MAPPED_FILE, EBUSY},
    {ERROR_HANDLE_DISK_FULL, ENOSPC},
    {ERROR_DISK_FULL, ENOSPC},
    {kDiskQuotaExceeded, ENOSPC},
    {ERROR_NOT_SUPPORTED, ENOTSUP},
    {ERROR_FILE_EXISTS, EEXIST},
    {ERROR_ALREADY_EXISTS, EEXIST},
    {ERROR_INVALID_PARAMETER, EINVAL},
    {ERROR_INVALID_DATA, EINVAL},
    {ERROR_INVALID_NAME, EINVAL},
    {ERROR_NEGATIVE_SEEK, EINVAL},
    {ERROR_INSUFFICIENT_BUFFER, ERANGE},
    {ERROR_DIR_NOT_EMPTY, ENOTEMPTY},
    {ERROR_FILENAME_EXCED_RANGE, ENAMETOOLONG},
    {ERROR_FILE_TOO_LARGE, EFBIG},
    {ERROR_DIRECTORY, ENOTDIR},
};

}  // namespace

int ErrnoOfWindows(DWORD code) noexcept {
    for (const ErrorRow& row : kRows) {
        if (row.windows == code) return row.error;
    }
    return EIO;
}

void Fail(DWORD code) {
    throw EngineError{ErrnoOfWindows(code), code};
}

void Fail(int error, DWORD code) {
    throw EngineError{error, code};
}

void FailLast() {
    Fail(::GetLastError());
}

}  // namespace zd::engine
