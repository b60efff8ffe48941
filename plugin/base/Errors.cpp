#include "base/Errors.h"

#include "StorageErrors.h"

namespace zd {

DWORD ZdvfsErrnoToWin32(int error) noexcept {
    const DWORD code = ZdvfsErrorCode(error);
    return code != 0 ? code : kZdvfsOtherErrorCode;
}

DWORD ZdvfsErrnoToWin32() noexcept {
    return ZdvfsErrnoToWin32(errno);
}

DWORD ZdvfsErrnoToWin32Or(int error, int fallback) noexcept {
    const DWORD code = ZdvfsErrorCode(error);
    return code != 0 ? code : ZdvfsErrnoToWin32(fallback);
}

}  // namespace zd
