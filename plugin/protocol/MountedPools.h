// The pools that the connections of the process have mounted, and what is said to all of them. Any thread.
#pragma once

#include <windows.h>

#include <cstdarg>
#include <cstdint>
#include <string>

#include "zdvfs.h"

namespace zd {

// The answer to a control request that could not be made.
constexpr DWORD kNotRequested = 0xFFFFFFFF;

// The argument of a control request as the host hands it over: on this platform an argument list is one pointer.
inline va_list ArgumentList(std::uint64_t argument) noexcept {
    static_assert(sizeof(va_list) == sizeof argument);
    return reinterpret_cast<va_list>(argument);
}

// Enters a connection. Throws std::bad_alloc; nothing is entered then.
void RegisterMount(const std::wstring& name, ZdvfsMountBlock& block);
void UnregisterMount(const std::wstring& name, ZdvfsMountBlock& block) noexcept;

// Writes the level into the block of every connection, and into `own`, which may be of none: each mounted library
// follows the level that its block names.
void SetLogLevelOfMounts(ZdvfsMountBlock& own, DWORD level) noexcept;

// Sends a control request to the root of every mounted pool, each name once, in their order. Answers the last pool's
// result, kNotRequested for none; 8 where memory ran out.
DWORD SendToPools(DWORD request, va_list arguments) noexcept;

// The same with a 32-bit value and a length of 4.
void SendValueToPools(DWORD request, std::uint32_t value) noexcept;

}  // namespace zd
