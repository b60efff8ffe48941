#include "files/TransferFailure.h"

namespace zd {

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
void ThrowTransferFailure(const char* format, const CFailure& failure) {
    const auto error = static_cast<int>(failure.lastError);
    errno = error;
    LogLine(kLogError, format, error);
    ThrowWin32(ZdvfsErrnoToWin32Or(error, failure.error));
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

}  // namespace zd
