#include <cstddef>
#include <cstring>
#include <limits>

#include "namespace/FileInformation.h"
#include "namespace/FragmentName.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

// Every failure is a missing file to the host, memory that cannot be had included.
DWORD QueryPath(const CUtf8String& path, FileInformation& information) {
    ZdvfsStatRecord status{};
    if (::ZdvfsStat(path.c_str(), &status) != 0) return ERROR_FILE_NOT_FOUND;
    FileInformation filled{};
    FillFileInformation(filled, status);
    CFragmentPaths paths(path.view());
    for (std::int32_t n = 1; n < std::numeric_limits<std::int32_t>::max(); ++n) {
        if (::ZdvfsStat(paths.Of(n), &status) != 0) break;
        filled.size += static_cast<std::uint64_t>(status.size);
    }
    std::memcpy(&information, &filled, offsetof(FileInformation, name));
    return ERROR_SUCCESS;
}

}  // namespace

DWORD CProtocolManager::ZdQueryPathInfo(const wchar_t* path, FileInformation* information) {
    if (path == nullptr || information == nullptr) return ERROR_FILE_NOT_FOUND;
    try {
        return QueryPath(m_files.Translate(path), *information);
    } catch (...) {
        return ERROR_FILE_NOT_FOUND;
    }
}

}  // namespace zd
