#include <algorithm>
#include <limits>

#include "base/StorageOwners.h"
#include "files/FragmentPosition.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

DWORD ReadFragments(COpenFiles& files, WORDInfo& record, std::int64_t offset, DWORD length, char* buffer)
    ZD_REQUIRES(record.Lock()) {
    if (!IndexFits(offset, record.m_fragmentSize)) return 0;
    CFragmentPosition position(offset, record.m_fragmentSize);
    DWORD bytesRead = 0;
    while (bytesRead < length && position.Index() < record.FragmentCount()) {
        const COpenedFragment opened = files.GetFragmentFileHandle(record, position.Index());
        if (opened.descriptor == kNoDescriptor) break;
        const std::int64_t piece = std::min<std::int64_t>(length - bytesRead, position.Room());
        const std::int64_t moved = CheckZdvfs(::ZdvfsPread(static_cast<int>(opened.descriptor), buffer + bytesRead,
                                                           static_cast<std::uint64_t>(piece), position.Inner()));
        if (moved == 0) break;
        bytesRead += static_cast<DWORD>(moved);
        position.Advance(moved);
        position.Step();
    }
    return bytesRead;
}

}  // namespace

DWORD CProtocolManager::ZdReadFile(Handle handle, std::int64_t offset, DWORD length, void* buffer, DWORD* bytesRead) {
    return RunOperation<EUnexpected::Report, EMemoryLine::OldResult>(
        kReadFileText,
        [&] {
            LogLine(kLogTrace, "ZdReadFile Enter - handle: %p, offset: %lld, len: %d\n",
                    reinterpret_cast<void*>(handle), offset, static_cast<int>(length));
        },
        [&] {
            if (offset < 0 || bytesRead == nullptr || (buffer == nullptr && length > 0)) {
                ThrowWin32(ERROR_INVALID_PARAMETER);
            }
            const CHandleRef record = m_files.FindHandle(handle);
            const CAutoCriticalSection held(record->Lock());
            record->RequireData();
            *bytesRead = ReadFragments(m_files, *record, offset, length, static_cast<char*>(buffer));
        });
}

}  // namespace zd
