// Helpers around the block that is handed to the storage library at mount.
#pragma once

#include <cstdint>

#include "zdvfs.h"

namespace zd {

// The log callback of every mount block: writes the storage library's line into the shared log.
void ForwardToLog(std::uint32_t level, const char* message);

// A copy of the text on the runtime's heap, as the block's words own theirs. Throws std::bad_alloc.
char* DuplicateText(const char* text);

// Frees the words that a connect has put into the block, and clears them; the pool's name is not one of them.
void FreeWords(ZdvfsMountBlock& block) noexcept;

}  // namespace zd
