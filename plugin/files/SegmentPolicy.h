// Which segment size a file that is being written gets.
#pragma once

#include <cstdint>

#include "files/FilePolicy.h"

namespace zd {

// The segment size for a file of that name, applied to its descriptor; 0 for none.
std::int32_t ApplySegmentSize(const CFilePolicy& policy, int descriptor, const wchar_t* name, std::uint32_t cacheFlags);

}  // namespace zd
