// By what the storage keeps objects close to each other.
#pragma once

#include "base/SharedString.h"

namespace zd {

// The storage locality of a name: its first directory in UTF-8, empty for an object at the share's root, cut between
// characters to fit 31 bytes.
CUtf8String LocalityOf(const wchar_t* name);

}  // namespace zd
