#include "namespace/StatIfThere.h"

#include "base/Errors.h"

namespace zd {

std::optional<ZdvfsStatRecord> StatIfThere(const CUtf8String& path) {
    ZdvfsStatRecord status{};
    errno = 0;
    if (::ZdvfsStat(path.c_str(), &status) == 0) return status;
    const int error = errno;
    if (error != ENOENT && error != ENOTDIR) ThrowWin32(ZdvfsErrnoToWin32(error));
    return std::nullopt;
}

}  // namespace zd
