#include "namespace/DirectoryListing.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {

DWORD CProtocolManager::ZdQueryDirContents(Handle handle, DirectoryEntry** entries, DWORD* count) {
    return RunOperation(kQueryDirContentsText, [&] {
        if (handle == 0) return;
        if (entries == nullptr || count == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
        const CHandleRef record = m_files.FindHandle(handle);
        const CAutoCriticalSection held(record->Lock());
        if (!record->m_isDir) ThrowWin32(ERROR_DIRECTORY);
        if (record->m_DirPtr == nullptr) ThrowWin32(ERROR_INVALID_HANDLE);
        CDirectoryListing listing(m_files.TranslateFragment(*record, 0));
        for (;;) {
            errno = 0;
            const ZdvfsDirectoryRecord* const entry = ::ZdvfsReaddir(record->m_DirPtr);
            if (entry == nullptr) {
                const int error = errno;
                if (error != 0) ThrowWin32(ZdvfsErrnoToWin32(error));
                break;
            }
            listing.Add(entry->name);
        }
        listing.HandOver(entries, count);
    });
}

}  // namespace zd
