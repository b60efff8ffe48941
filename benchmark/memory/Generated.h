// Directories whose entries are worked out instead of kept, so that a listing's cost over them does not depend on how
// much of a table the processor's caches hold.
//
// An entry can be listed and its status asked for; it cannot be opened. One entry in ten is the fragment ";F1" of the
// one before it. Names come in scattered order, as from a file system that hashes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "zdvfs.h"

namespace zd::memory {

// The name of the entry at that place of the listing; answers its length. `name` holds at least 32 bytes.
std::size_t GeneratedName(std::int64_t count, std::int64_t place, char* name) noexcept;

// Whether a directory of `count` entries has that one.
bool IsGeneratedName(std::int64_t count, std::string_view name) noexcept;

}  // namespace zd::memory
