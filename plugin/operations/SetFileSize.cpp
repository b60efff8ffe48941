#include "base/StorageOwners.h"
#include "files/FilesState.h"
#include "files/FragmentPosition.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

// The index of the fragment that holds the last byte of a file of that size.
std::int64_t LastIndex(std::int64_t size, std::int64_t fragmentSize) {
    return size == 0 ? 0 : (size - 1) / fragmentSize;
}

void Truncate(WORDInfo& record, std::int32_t index, const COpenedFragment& opened, std::int64_t size)
    ZD_REQUIRES(record.Lock()) {
    if (opened.descriptor == kNoDescriptor) ThrowWin32(ZdvfsErrnoToWin32(opened.error));
    CheckZdvfs(::ZdvfsFtruncate(static_cast<int>(opened.descriptor), size));
    record.SetSize(size, index, false);
}

// `current` is less than `size`.
void Grow(COpenFiles& files, WORDInfo& record, std::int64_t current, std::int64_t size) ZD_REQUIRES(record.Lock()) {
    const std::int64_t fragmentSize = record.m_fragmentSize;
    const auto last = static_cast<std::int32_t>(LastIndex(size, fragmentSize));
    auto index = static_cast<std::int32_t>(LastIndex(current, fragmentSize));
    for (;; ++index) {
        bool added = false;
        const COpenedFragment opened = index == record.FragmentCount() ? files.OpenForWriting(record, index, added)
                                                                       : files.GetFragmentFileHandle(record, index);
        if (index == last) {
            Truncate(record, index, opened, size - last * fragmentSize);
            return;
        }
        Truncate(record, index, opened, fragmentSize);
    }
}

void Shrink(COpenFiles& files, WORDInfo& record, std::int64_t size) ZD_REQUIRES(record.Lock()) {
    const auto last = static_cast<std::int32_t>(LastIndex(size, record.m_fragmentSize));
    // A storage may let a reader cut a fragment to the length it has, but nobody would stop the removals behind it.
    const bool removes = record.FragmentCount() > last + 1;
    if (removes && (record.m_OpenFlags & kWritingFlags) == 0) ThrowWin32(ERROR_ACCESS_DENIED);
    Truncate(record, last, files.GetFragmentFileHandle(record, last), size - last * record.m_fragmentSize);
    while (record.FragmentCount() > last + 1) {
        const CAutoCriticalSection used(record.FileInfo().UseLock());
        record.RequireName();
        ::ZdvfsUnlink(files.TranslateFragment(record, record.FragmentCount() - 1).c_str());
        record.RemoveLastFragment();
    }
}

}  // namespace

DWORD CProtocolManager::ZdSetFileSize(Handle handle, std::int64_t size) {
    return RunOperation(kSetFileSizeText, [&] {
        if (size < 0) ThrowWin32(ERROR_INVALID_PARAMETER);
        const CHandleRef record = m_files.FindHandle(handle);
        const CAutoCriticalSection held(record->Lock());
        record->RequireData();
        if (!IndexFits(size, record->m_fragmentSize)) ThrowWin32(ERROR_INVALID_PARAMETER);
        const std::int64_t current = record->TotalSize();
        if (size > current) {
            Grow(m_files, *record, current, size);
        } else if (size < current) {
            Shrink(m_files, *record, size);
        }
        SetModified();
    });
}

}  // namespace zd
