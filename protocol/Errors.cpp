#include "protocol/Errors.h"

#include <array>

namespace zd {
namespace {

constexpr int kFirst = 1;
constexpr int kLast = 129;

struct Row {
    int error;
    DWORD code;
};

// The numbers are those of the Windows universal runtime. Several rows differ from the usual mapping on purpose.
constexpr Row kRows[] = {
    {1, ERROR_ACCESS_DENIED},         // EPERM
    {2, ERROR_FILE_NOT_FOUND},        // ENOENT
    {9, ERROR_INVALID_HANDLE},        // EBADF
    {12, ERROR_INSUFFICIENT_BUFFER},  // ENOMEM
    {13, ERROR_ACCESS_DENIED},        // EACCES
    {16, ERROR_BUSY},                 // EBUSY
    {17, ERROR_ALREADY_EXISTS},       // EEXIST
    {20, ERROR_DIRECTORY},            // ENOTDIR
    {21, ERROR_ACCESS_DENIED},        // EISDIR
    {22, ERROR_INVALID_DATA},         // EINVAL
    {24, ERROR_TOO_MANY_OPEN_FILES},  // EMFILE
    {28, ERROR_HANDLE_DISK_FULL},     // ENOSPC
    {129, ERROR_INVALID_PARAMETER},   // ENOTSUP
};

constexpr std::array<DWORD, kLast + 1> kTable = [] {
    std::array<DWORD, kLast + 1> table{};
    for (const Row& row : kRows) table[static_cast<std::size_t>(row.error)] = row.code;
    return table;
}();

DWORD Lookup(int error) noexcept {
    return error < kFirst || error > kLast ? 0 : kTable[static_cast<std::size_t>(error)];
}

}  // namespace

DWORD ZdvfsErrnoToWin32(int error) noexcept {
    const DWORD code = Lookup(error);
    return code != 0 ? code : ERROR_IO_DEVICE;
}

DWORD ZdvfsErrnoToWin32() noexcept {
    return ZdvfsErrnoToWin32(errno);
}

DWORD ZdvfsErrnoToWin32Or(int error, int fallback) noexcept {
    const DWORD code = Lookup(error);
    return code != 0 ? code : ZdvfsErrnoToWin32(fallback);
}

}  // namespace zd
