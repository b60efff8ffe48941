// The status of an object, where absence has to be certain.
#pragma once

#include <optional>

#include "base/SharedString.h"
#include "zdvfs.h"

namespace zd {

// The status, nothing where no object stands under the path. An object that cannot be looked at may carry a descriptor:
// only ENOENT and ENOTDIR count as absence. Throws the code of any other failure.
std::optional<ZdvfsStatRecord> StatIfThere(const CUtf8String& path);

}  // namespace zd
