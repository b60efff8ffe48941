#include <algorithm>

#include "base/StorageOwners.h"
#include "files/FilesState.h"
#include "files/FragmentPosition.h"
#include "files/TransferFailure.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

void WriteFragments(COpenFiles& files, WORDInfo& record, std::int64_t offset, DWORD length, const char* buffer)
    ZD_REQUIRES(record.Lock()) {
    CFragmentPosition position(offset, record.m_fragmentSize);
    DWORD written = 0;
    for (;;) {
        bool added = false;
        const COpenedFragment opened = files.OpenForWriting(record, position.Index(), added);
        if (opened.descriptor == kNoDescriptor) ThrowWin32(ZdvfsErrnoToWin32(opened.error));
        const std::int64_t piece = std::min<std::int64_t>(length - written, position.Room());
        const std::int64_t moved = ::ZdvfsPwrite(static_cast<int>(opened.descriptor), buffer + written,
                                                 static_cast<std::uint64_t>(piece), position.Inner());
        if (moved < 0) ThrowTransferFailure("ZdvfsPwrite failed, error: %d\n", CFailure::Now());
        // Storage that takes nothing would be asked for ever.
        if (moved == 0) ThrowWin32(ERROR_HANDLE_DISK_FULL);
        written += static_cast<DWORD>(moved);
        position.Advance(moved);
        record.SetSize(position.Inner(), position.Index(), true);
        if (written >= length) break;
        position.Step();
    }
    record.m_lastWritten = position.Index();
}

}  // namespace

DWORD CProtocolManager::ZdWriteFile(Handle handle, std::int64_t offset, DWORD length, const void* buffer,
                                    DWORD* bytesWritten) {
    return RunOperation(
        kWriteFileText,
        [&] {
            LogLine(kLogTrace, "ZdWriteFile Enter - handle: %p, offset: %lld, len: %d\n",
                    reinterpret_cast<void*>(handle), offset, static_cast<int>(length));
        },
        [&] {
            if (offset < 0 || bytesWritten == nullptr || (buffer == nullptr && length > 0) ||
                !EndFits(offset, length)) {
                ThrowWin32(ERROR_INVALID_PARAMETER);
            }
            const CHandleRef record = m_files.FindHandle(handle);
            const CAutoCriticalSection held(record->Lock());
            record->RequireData();
            if (!IndexFits(offset + length, record->m_fragmentSize)) ThrowWin32(ERROR_INVALID_PARAMETER);
            if (length > 0) {
                WriteFragments(m_files, *record, offset, length, static_cast<const char*>(buffer));
                SetModified();
            }
            *bytesWritten = length;
        },
        [](DWORD result) {
            LogLine(kLogTrace, "ZdWriteFile Exit! dwError: %#x(%d)\n", static_cast<unsigned>(result),
                    static_cast<int>(result));
        });
}

}  // namespace zd
