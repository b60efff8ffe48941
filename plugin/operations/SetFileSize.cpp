#include "base/StorageOwners.h"
#include "files/FragmentPosition.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

// The index of the fragment that holds the last byte of a file of that size.
std::int64_t LastIndex(std::int64_t size, std::int64_t fragmentSize) {
    return size == 0 ? 0 : (size - 1) / fragmentSize;
}

void Truncate(WORDInfo& word, std::int32_t index, const COpenedFragment& opened, std::int64_t size) {
    if (opened.descriptor == kNoDescriptor) ThrowWin32(ZdvfsErrnoToWin32(opened.error));
    CheckZdvfs(::ZdvfsFtruncate(static_cast<int>(opened.descriptor), size));
    word.SetSize(size, index, false);
}

// `current` is less than `size`.
void Grow(CProtocolManager& manager, WORDInfo& word, std::int64_t current, std::int64_t size,
          const CAutoCriticalSection& held) {
    const std::int64_t fragmentSize = word.m_fragmentSize;
    const auto last = static_cast<std::int32_t>(LastIndex(size, fragmentSize));
    auto index = static_cast<std::int32_t>(LastIndex(current, fragmentSize));
    for (;; ++index) {
        bool added = false;
        const COpenedFragment opened = index == word.FragmentCount() ? manager.OpenForWriting(word, index, held, added)
                                                                     : manager.GetFragmentFileHandle(word, index, held);
        if (index == last) {
            Truncate(word, index, opened, size - last * fragmentSize);
            return;
        }
        Truncate(word, index, opened, fragmentSize);
    }
}

void Shrink(CProtocolManager& manager, WORDInfo& word, std::int64_t size, const CAutoCriticalSection& held) {
    const auto last = static_cast<std::int32_t>(LastIndex(size, word.m_fragmentSize));
    // A storage may let a reader cut a fragment to the length it has, but nobody would stop the removals behind it.
    const bool removes = word.FragmentCount() > last + 1;
    if (removes && (word.m_OpenFlags & kWritingFlags) == 0) ThrowWin32(ERROR_ACCESS_DENIED);
    Truncate(word, last, manager.GetFragmentFileHandle(word, last, held), size - last * word.m_fragmentSize);
    while (word.FragmentCount() > last + 1) {
        const CAutoCriticalSection used(word.FileInfo().UseLock());
        word.RequireName();
        ::ZdvfsUnlink(manager.TranslateFragment(word, word.FragmentCount() - 1).c_str());
        word.RemoveLastFragment();
    }
}

}  // namespace

DWORD CProtocolManager::ZdSetFileSize(Handle handle, std::int64_t size) {
    return RunOperation(kSetFileSizeText, [&] {
        if (size < 0) ThrowWin32(ERROR_INVALID_PARAMETER);
        const CWordRef word = FindWord(handle);
        const CAutoCriticalSection held(word->Lock());
        word->RequireData();
        if (!IndexFits(size, word->m_fragmentSize)) ThrowWin32(ERROR_INVALID_PARAMETER);
        const std::int64_t current = word->TotalSize();
        if (size > current) {
            Grow(*this, *word, current, size, held);
        } else if (size < current) {
            Shrink(*this, *word, size, held);
        }
        SetModified();
    });
}

}  // namespace zd
