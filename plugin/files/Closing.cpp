#include "files/Closing.h"

#include <vector>

#include "base/Conversion.h"
#include "base/Errors.h"
#include "base/StorageOwners.h"
#include "files/FilesState.h"
#include "log/Log.h"

namespace zd {
namespace {

constexpr int kNameBytes = 1024;

// Closes the stream of a directory. Answers whether one was open.
bool CloseStream(WORDInfo& record, std::int32_t& result) ZD_REQUIRES(record.Lock()) {
    if (record.m_DirPtr == nullptr) return false;
    result = ::ZdvfsClosedir(std::exchange(record.m_DirPtr, nullptr));
    LogText(kLogTrace, "CloseFileHandle:    handleInfo->m_isDir and m_DirPtr returned true\n");
    return true;
}

// Closes the open fragments. Answers whether any was open.
bool CloseFragments(WORDInfo& record, std::int32_t& result) ZD_REQUIRES(record.Lock()) {
    std::int32_t closed = 0;
    for (std::int32_t i = 0; i < record.FragmentCount(); ++i) {
        const std::int64_t descriptor = record.Descriptor(i);
        if (descriptor == kNoDescriptor) continue;
        LogLine(kLogTrace, "CloseFileHandle Enter Fragment: %d, Handle Value: %d\n", i, static_cast<int>(descriptor));
        record.SetDescriptor(kNoDescriptor, i);
        result = ::ZdvfsClose(static_cast<int>(descriptor));
        ++closed;
    }
    LogLine(kLogTrace, "CloseFileHandle: closeCount: %d\n", closed);
    return closed > 0;
}

void RemoveFragments(COpenFiles& files, WORDInfo& record) ZD_REQUIRES(record.Lock()) {
    const CAutoCriticalSection used(record.FileInfo().UseLock());
    // What was removed once may by now be somebody else's new file. A removal that stopped goes on where it stopped.
    if (record.m_removed == record.FragmentCount() || record.FileInfo().IsReplaced()) ThrowWin32(ERROR_FILE_NOT_FOUND);
    // All memory is had first: a file must not be left without its first fragments because it ran out in between.
    std::vector<CUtf8String> paths;
    for (std::int32_t i = record.m_removed; i < record.FragmentCount(); ++i) {
        paths.push_back(files.TranslateFragment(record, i));
    }
    for (const CUtf8String& path : paths) {
        errno = 0;
        if (::ZdvfsUnlink(path.c_str()) != 0) ThrowWin32(ZdvfsErrnoToWin32());
        ++record.m_removed;
    }
    SetModified();
}

}  // namespace

std::int32_t COpenFiles::CloseFileHandle(WORDInfo& record, DWORD deleteFlag) {
    const CAutoCriticalSection held(record.Lock());
    std::int32_t result = -1;
    const bool closed = record.m_isDir ? CloseStream(record, result) : CloseFragments(record, result);
    std::int32_t count = 0;
    if (closed && (record.m_OpenFlags & kCountedFlags) != 0 && record.DropCount(count)) {
        LogLine(kLogTrace,
                "CloseFileHandle: found direct-io/write-only/read-write file - m_OpenFlags:%x, "
                "m_OpenDirectIOorWriteFiles: %d\n",
                record.m_OpenFlags, count);
    }
    if (deleteFlag != 0) RemoveFragments(*this, record);
    return result;
}

void COpenFiles::CloseAll() noexcept {
    try {
        while (const CHandleRef record = m_table.TakeFirst()) CloseFileHandle(*record, 0);
    } catch (...) {
        // What is left in the table is closed when the object dies.
    }
}

void LogCloseEntry(Handle handle) noexcept {
    LogLine(kLogTrace, "ZdCloseFile Enter - handle: %p\n", reinterpret_cast<void*>(handle));
}

void CloseByHandle(COpenFiles& files, Handle handle, DWORD deleteFlag) {
    if (handle == 0) return;
    const CHandleRef record = files.FindHandle(handle);
    const CAutoCriticalSection held(record->Lock());
    char name[kNameBytes];
    if (::WideCharToMultiByte(CP_UTF8, 0, record->Name().c_str(), -1, name, kNameBytes, nullptr, nullptr) == 0) {
        ThrowWin32(ERROR_FILE_NOT_FOUND);
    }
    LogMade(kLogTrace, [&] { return FormatText("ZdCloseFile:    FileName= %s\n", NameForLog(name).c_str()); });
    files.CloseFileHandle(*record, deleteFlag);
}

}  // namespace zd
