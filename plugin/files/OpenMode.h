// The open mode of a file.
#pragma once

#include <windows.h>

#include <cstdint>

namespace zd {

// The storage open mode for an access (0x2: write) to that name: 0 read only, 1 write only, 2 read and write.
std::uint32_t OpenModeOf(DWORD access, const wchar_t* name) noexcept;

}  // namespace zd
