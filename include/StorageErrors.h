// What becomes of the storage library's `errno` when an operation fails because of it.
//
// The plug-in translates with this table. A host needs it only to tell where a result came from.
#pragma once

#include <cstdint>

struct ZdvfsErrorRow {
    int error;           // as the Windows universal runtime numbers it
    std::uint32_t code;  // Win32
};

// Several rows differ from the usual mapping on purpose.
inline constexpr ZdvfsErrorRow kZdvfsErrorRows[] = {
    {1, 5},     // EPERM: access denied
    {2, 2},     // ENOENT: file not found
    {9, 6},     // EBADF: invalid handle
    {12, 122},  // ENOMEM: insufficient buffer
    {13, 5},    // EACCES: access denied
    {16, 170},  // EBUSY: busy
    {17, 183},  // EEXIST: already exists
    {20, 267},  // ENOTDIR: not a directory
    {21, 5},    // EISDIR: access denied
    {22, 13},   // EINVAL: invalid data
    {24, 4},    // EMFILE: too many open files
    {28, 39},   // ENOSPC: disk full
    {129, 87},  // ENOTSUP: invalid parameter
};

// Everything else: input/output error of the device.
constexpr std::uint32_t kZdvfsOtherErrorCode = 1117;

// The table's code for `error`, 0 where it has no row.
constexpr std::uint32_t ZdvfsErrorCode(int error) noexcept {
    for (const ZdvfsErrorRow& row : kZdvfsErrorRows) {
        if (row.error == error) return row.code;
    }
    return 0;
}
