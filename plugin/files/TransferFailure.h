// How a failed transfer call of the storage ends an operation.
#pragma once

#include "base/Errors.h"
#include "log/Log.h"

namespace zd {

// Sets errno to the Windows last error, logs that with `format` (which has one %d) and throws its translation; where
// the table has no row for it, the call's own errno decides. `format` is a literal of the caller.
[[noreturn]] void ThrowTransferFailure(const char* format, const CFailure& failure);

}  // namespace zd
