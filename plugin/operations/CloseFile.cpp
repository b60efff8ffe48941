#include <vector>

#include "base/StorageOwners.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr int kNameBytes = 1024;

// Closes the stream of a directory. Answers whether one was open.
bool CloseStream(WORDInfo& word, std::int32_t& result) {
    if (word.m_DirPtr == nullptr) return false;
    result = ::ZdvfsClosedir(std::exchange(word.m_DirPtr, nullptr));
    LogText(kLogTrace, "CloseFileHandle:    handleInfo->m_isDir and m_DirPtr returned true\n");
    return true;
}

// Closes the open fragments. Answers whether any was open.
bool CloseFragments(WORDInfo& word, std::int32_t& result) {
    std::int32_t closed = 0;
    for (std::int32_t i = 0; i < word.FragmentCount(); ++i) {
        const std::int64_t descriptor = word.Descriptor(i);
        if (descriptor == kNoDescriptor) continue;
        LogLine(kLogTrace, "CloseFileHandle Enter Fragment: %d, Handle Value: %d\n", i, static_cast<int>(descriptor));
        word.SetDescriptor(kNoDescriptor, i);
        result = ::ZdvfsClose(static_cast<int>(descriptor));
        ++closed;
    }
    LogLine(kLogTrace, "CloseFileHandle: closeCount: %d\n", closed);
    return closed > 0;
}

void RemoveFragments(CProtocolManager& manager, WORDInfo& word) {
    const CAutoCriticalSection used(word.FileInfo().UseLock());
    // What was removed once may by now be somebody else's new file. A removal that stopped goes on where it stopped.
    if (word.m_removed == word.FragmentCount() || word.FileInfo().IsReplaced()) ThrowWin32(ERROR_FILE_NOT_FOUND);
    // All memory is had first: a file must not be left without its first fragments because it ran out in between.
    std::vector<CUtf8String> paths;
    for (std::int32_t i = word.m_removed; i < word.FragmentCount(); ++i) {
        paths.push_back(manager.TranslateFragment(word, i));
    }
    for (const CUtf8String& path : paths) {
        errno = 0;
        if (::ZdvfsUnlink(path.c_str()) != 0) ThrowWin32(ZdvfsErrnoToWin32());
        ++word.m_removed;
    }
    SetModified();
}

}  // namespace

std::int32_t CProtocolManager::CloseFileHandle(WORDInfo& word, DWORD deleteFlag) {
    const CAutoCriticalSection held(word.Lock());
    std::int32_t result = -1;
    const bool closed = word.m_isDir ? CloseStream(word, result) : CloseFragments(word, result);
    std::int32_t count = 0;
    if (closed && (word.m_OpenFlags & kCountedFlags) != 0 && word.DropCount(count)) {
        LogLine(kLogTrace,
                "CloseFileHandle: found direct-io/write-only/read-write file - m_OpenFlags:%x, "
                "m_OpenDirectIOorWriteFiles: %d\n",
                word.m_OpenFlags, count);
    }
    if (deleteFlag != 0) RemoveFragments(*this, word);
    return result;
}

DWORD CProtocolManager::ZdCloseFile(Handle handle, DWORD deleteFlag) {
    return RunOperation<EUnexpected::EndProcess>(
        kCloseFileText,
        [&] { LogLine(kLogTrace, "ZdCloseFile Enter - handle: %p\n", reinterpret_cast<void*>(handle)); },
        [&] {
            if (handle == 0) return;
            const CWordRef word = FindWord(handle);
            const CAutoCriticalSection held(word->Lock());
            char name[kNameBytes];
            if (::WideCharToMultiByte(CP_UTF8, 0, word->Name().c_str(), -1, name, kNameBytes, nullptr, nullptr) == 0) {
                ThrowWin32(ERROR_FILE_NOT_FOUND);
            }
            LogMade(kLogTrace, [&] { return FormatText("ZdCloseFile:    FileName= %s\n", NameForLog(name).c_str()); });
            CloseFileHandle(*word, deleteFlag);
        });
}

}  // namespace zd
