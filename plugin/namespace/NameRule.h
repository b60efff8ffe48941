// The optional rule for characters in names.
#pragma once

namespace zd {

// Whether the name rule refuses the name: a character below 0x20 or above the highest valid one. Off while that is 0.
bool NameHasInvalidCharacters(const wchar_t* name) noexcept;

}  // namespace zd
