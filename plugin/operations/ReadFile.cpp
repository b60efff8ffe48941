#include <algorithm>
#include <limits>

#include "base/StorageOwners.h"
#include "files/FragmentPosition.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

DWORD ReadFragments(CProtocolManager& manager, WORDInfo& word, std::int64_t offset, DWORD length, char* buffer,
                    const CAutoCriticalSection& held) {
    if (!IndexFits(offset, word.m_fragmentSize)) return 0;
    CFragmentPosition position(offset, word.m_fragmentSize);
    DWORD bytesRead = 0;
    while (bytesRead < length && position.Index() < word.FragmentCount()) {
        const COpenedFragment opened = manager.GetFragmentFileHandle(word, position.Index(), held);
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
            const CWordRef word = FindWord(handle);
            const CAutoCriticalSection held(word->Lock());
            word->RequireData();
            *bytesRead = ReadFragments(*this, *word, offset, length, static_cast<char*>(buffer), held);
        });
}

}  // namespace zd
