// The implementation of the host interface: one connection to a storage pool.
//
// The operations stand in the folders of their subsystems, one file each; this header is the only one that knows them
// all. What a body needs is declared here, below the operations.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "base/Locks.h"
#include "base/SharedString.h"
#include "base/UniqueHandle.h"
#include "config/Agent.h"
#include "files/WordCollection.h"
#include "IProtocolManager.h"
#include "zdvfs.h"

namespace zd {

// A descriptor as ReOpenFile and GetFragmentFileHandle answer it.
struct COpenedFragment {
    std::int64_t descriptor;  // -1: not open
    int error;                // the failed open's errno
};

class CProtocolManager final : public IProtocolManager {
public:
    // Throws std::bad_alloc, or the system's code as a DWORD where the default descriptor cannot be built.
    CProtocolManager(void* hostContext, CLogger* logger);
    CProtocolManager(const CProtocolManager&) = delete;
    CProtocolManager& operator=(const CProtocolManager&) = delete;

    // protocol/
    DWORD ZdConnect(const ConnectParameters* parameters) override;
    DWORD ZdDisconnect() override;
    void Release() override;
    DWORD ZdEnumerateSpaList(std::set<std::wstring>* names) override;
    void ZdRefreshSettings(DWORD value, bool full) override;
    DWORD ZdStub1() override;
    DWORD ZdStub2() override;
    DWORD ZdStub3() override;
    void ZdLogMessage(DWORD level, const char* message) override;
    std::wstring ZdGetRandomTag() override;

    // files/
    DWORD ZdCreateFile(const wchar_t* name, DWORD isDirectory, DWORD unused3, DWORD fileAttributes, DWORD unused5,
                       DWORD createDisposition, DWORD access, DWORD unused8, PSECURITY_DESCRIPTOR descriptor,
                       Handle* handle, DWORD* createAction, FileInformation* information) override;
    DWORD ZdCloseFile(Handle handle, DWORD deleteFlag) override;
    DWORD ZdReleaseFile(Handle handle) override;
    DWORD ZdSetFileSize(Handle handle, std::int64_t size) override;
    DWORD ZdReadFile(Handle handle, std::int64_t offset, DWORD length, void* buffer, DWORD* bytesRead) override;
    DWORD ZdWriteFile(Handle handle, std::int64_t offset, DWORD length, const void* buffer,
                      DWORD* bytesWritten) override;
    DWORD ZdAppendFile(Handle target, Handle source, std::int64_t targetOffset, std::int64_t sourceOffset,
                       std::int64_t length) override;

    // namespace/
    DWORD ZdQueryFileInfo(Handle handle, FileInformation* information) override;
    DWORD ZdQueryPathInfo(const wchar_t* path, FileInformation* information) override;
    DWORD ZdSetFileBasicInfo(Handle handle, std::int64_t creationTime, std::int64_t lastAccessTime,
                             std::int64_t lastWriteTime, std::int64_t changeTime, DWORD fileAttributes) override;
    DWORD ZdDeleteFile(void* request) override;
    DWORD ZdRenameFile(Handle handle, const wchar_t* newName, DWORD replaceIfExists) override;
    DWORD ZdQueryDirContents(Handle handle, DirectoryEntry** entries, DWORD* count) override;
    DWORD ZdQueryVolumeInfo(BYTE request, VolumeInformation* information) override;
    DWORD ZdSetVolumeLabel(const wchar_t* label) override;
    DWORD ZdControlPath(const wchar_t* path) override;
    DWORD ZdHandleIoctl(Handle handle, DWORD request, std::uint64_t argument) override;
    DWORD ZdPathIoctl(DWORD request, std::uint64_t argument) override;

    // security/
    DWORD ZdGetSecurity(Handle handle, std::uint64_t securityInformation, PSECURITY_DESCRIPTOR* descriptor) override;
    DWORD ZdSetSecurity(Handle handle, std::uint64_t securityInformation, PSECURITY_DESCRIPTOR descriptor) override;

    // ---- What the operations share ------------------------------------------------------------------------------

    // The record of a handle. Throws 6 where the table does not hold it.
    CWordRef FindWord(Handle handle);

    // The storage path of a host name. Throws 2 where it does not convert.
    CUtf8String Translate(const wchar_t* name) const;

    // The storage path of a handle's fragment. A name is translated once, for all handles on it.
    CUtf8String TranslateFragment(const WORDInfo& word, std::int32_t fragment) const;

    // Closes a record's descriptors or stream, and removes the file where `deleteFlag` is not 0. Takes the record's
    // lock. Answers the last close's result, -1 for none. Throws the code of a failed removal.
    std::int32_t CloseFileHandle(WORDInfo& word, DWORD deleteFlag);

    // The descriptor of fragment `index`, opened on demand; the fragment used longest ago is closed where the handle
    // has its maximum open, but never the fragment `keep`. Throws 87 for an index outside the vector, 2 after the file
    // was deleted through the handle, the code of a victim's failed close.
    COpenedFragment GetFragmentFileHandle(WORDInfo& word, std::int32_t index, const CAutoCriticalSection& held,
                                          std::int32_t keep = -1);

    // Opens fragment `index` by name with the storage flags and sets its segment sizes. The mode has no effect.
    COpenedFragment ReOpenFile(const WORDInfo& word, std::int32_t index, std::int32_t mode, std::uint32_t flags,
                               std::int32_t segmentSize);

    // Looks for the fragments that stand behind fragment 0, or removes them. Answers the file's total size.
    std::int64_t DiscoverFragments(WORDInfo& word, bool truncate, std::int64_t firstSize);

    // Extends fragment `index` to the fragment size, so that what lies behind it keeps its offsets. Answers its
    // descriptor, -1 where it could not be opened. Throws the code of a failed truncation.
    COpenedFragment FillFragment(WORDInfo& word, std::int32_t index, const CAutoCriticalSection& held,
                                 std::int32_t keep);

    // Adds fragment `index` where the vector does not hold it, after filling the one before it up to the fragment
    // size, and answers its descriptor; a fragment that was added but not opened is taken back. Throws the code of a
    // failed open. `added` tells whether the fragment is new.
    COpenedFragment OpenForWriting(WORDInfo& word, std::int32_t index, const CAutoCriticalSection& held, bool& added,
                                   std::int32_t keep = -1);

    // The segment size for a file being written, applied to its descriptor; 0 for none.
    std::int32_t ApplySegmentSize(int descriptor, const wchar_t* name, std::uint32_t cacheFlags);

    // Removes what stands under a rename's new name, as far as it can be opened and is not the source itself.
    void RemoveRenameTarget(const WORDInfo& source, const wchar_t* newName);

    // Renews the storage task's time or stops the task, as the time of the last activity asks for.
    void DoAddTaskTimeUpdate();

    // Sends a control request with a 32-bit value and a length of 4 to every mounted pool.
    void SendToPools(DWORD request, std::uint32_t value);

    bool IsConnected() const noexcept { return m_mountBlock.poolName != nullptr; }
    const CUtf8String& VfsRootPath() const noexcept { return m_vfsRootPath; }
    bool IsLocalCacheOn() const noexcept { return m_localCacheOn != 0; }
    const char* DefaultDescriptor() const noexcept { return m_defaultDescriptor.Get(); }
    std::int64_t MaximumFileSize() const noexcept { return static_cast<std::int64_t>(m_maximumFileSize); }
    WORDCollection& Words() noexcept { return m_words; }

private:
    ~CProtocolManager();

    void ReadConnectionSettings();
    void Connect(std::wstring pool, const ConnectParameters& parameters);
    void AbandonConnect() noexcept;
    void FillMountBlock(std::uint32_t agentType, const std::wstring& pool, const ConnectParameters& parameters);
    void FindConfiguration(DWORD agentType, const std::wstring& pool);
    void FindTopLevelDirectory(const std::wstring& pool);
    void SetCompressionAndEncryption();
    void RegisterConnection(const std::wstring& pool);
    void CloseAllHandles() noexcept;
    void Unmount() noexcept;
    void UnregisterConnection() noexcept;

    void* m_hostContext;
    wchar_t m_volumeLabel[129] = {};
    DWORD m_labelFlag = 0;
    CWideString m_rootName;     // in front of every name; set by connect
    CUtf8String m_vfsRootPath;  // the same in UTF-8
    std::uint32_t m_reservedLimit = 512;
    WORDCollection m_words;
    ZdvfsMountBlock m_mountBlock{};
    CRankedLock<ELockRank::kObject> m_objectLock;  // serialises connect and disconnect
    BYTE m_localCacheOn = 1;
    CUniqueRuntimeBlock<char> m_defaultDescriptor;
    std::int32_t m_compression = 1;
    std::int32_t m_encryption = 0;
    std::int32_t m_restoreDecryptLocal = 1;
    std::vector<CExtensionSegment> m_extensionSegments;
    std::uint32_t m_edbSegmentSize = 0;                   // bytes
    std::uint64_t m_maximumFileSize = 53'687'091'200ULL;  // bytes
    std::int32_t m_maxOpenFragments = 100;
    DWORD m_vendorFlag = 0;
    bool m_isMounted = false;
    const CWideString m_unconnectedRoot{m_rootName};  // kept, so that going back to it cannot fail
    const CUtf8String m_unconnectedRootUtf8{m_vfsRootPath};
    std::wstring m_mountedName;  // as registered process-wide, empty while not connected
};

}  // namespace zd
