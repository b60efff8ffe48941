// The open mode of a file, and the text helper of the segment policy.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace zd {

// The storage open mode for an access (0x2: write) to that name: 0 read only, 1 write only, 2 read and write.
std::uint32_t OpenModeOf(DWORD access, const wchar_t* name) noexcept;

// Replaces every `from` by `to`; answers how many, 0 at once when they are equal.
std::size_t ReplaceCharacter(std::wstring& text, wchar_t from, wchar_t to) noexcept;

}  // namespace zd
