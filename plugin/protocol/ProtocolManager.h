// The implementation of the host interface: one connection to a storage pool.
//
// Each slot stands in operations/, in a file of its name without the "Zd" (the three stubs share Stubs.cpp).
#pragma once

#include <windows.h>

#include <cstdint>
#include <set>
#include <string>

#include "files/FilePolicy.h"
#include "files/OpenFiles.h"
#include "IProtocolManager.h"
#include "Logger.h"
#include "protocol/Mount.h"
#include "protocol/VolumeLabel.h"

namespace zd {

class CProtocolManager final : public IProtocolManager {
public:
    // Throws std::bad_alloc, or the system's code as a DWORD where the default descriptor cannot be built.
    explicit CProtocolManager(CLogger* logger);
    CProtocolManager(const CProtocolManager&) = delete;
    CProtocolManager& operator=(const CProtocolManager&) = delete;

    // In the order of the slots.
    DWORD ZdConnect(const ConnectParameters* parameters) override;
    DWORD ZdDisconnect() override;
    DWORD ZdCreateFile(const wchar_t* name, DWORD isDirectory, DWORD unused3, DWORD fileAttributes, DWORD unused5,
                       DWORD createDisposition, DWORD access, DWORD unused8, PSECURITY_DESCRIPTOR descriptor,
                       Handle* handle, DWORD* createAction, FileInformation* information) override;
    DWORD ZdCloseFile(Handle handle, DWORD deleteFlag) override;
    DWORD ZdReleaseFile(Handle handle) override;
    DWORD ZdQueryFileInfo(Handle handle, FileInformation* information) override;
    DWORD ZdQueryPathInfo(const wchar_t* path, FileInformation* information) override;
    DWORD ZdSetFileSize(Handle handle, std::int64_t size) override;
    DWORD ZdSetFileBasicInfo(Handle handle, std::int64_t creationTime, std::int64_t lastAccessTime,
                             std::int64_t lastWriteTime, std::int64_t changeTime, DWORD fileAttributes) override;
    DWORD ZdDeleteFile(void* request) override;
    DWORD ZdRenameFile(Handle handle, const wchar_t* newName, DWORD replaceIfExists) override;
    DWORD ZdQueryDirContents(Handle handle, DirectoryEntry** entries, DWORD* count) override;
    DWORD ZdReadFile(Handle handle, std::int64_t offset, DWORD length, void* buffer, DWORD* bytesRead) override;
    DWORD ZdWriteFile(Handle handle, std::int64_t offset, DWORD length, const void* buffer,
                      DWORD* bytesWritten) override;
    DWORD ZdQueryVolumeInfo(BYTE request, VolumeInformation* information) override;
    DWORD ZdSetVolumeLabel(const wchar_t* label) override;
    DWORD ZdGetSecurity(Handle handle, std::uint64_t securityInformation, PSECURITY_DESCRIPTOR* descriptor) override;
    DWORD ZdSetSecurity(Handle handle, std::uint64_t securityInformation, PSECURITY_DESCRIPTOR descriptor) override;
    void Release() override;
    DWORD ZdEnumerateSpaList(std::set<std::wstring>* names) override;
    DWORD ZdControlPath(const wchar_t* path) override;
    DWORD ZdHandleIoctl(Handle handle, DWORD request, std::uint64_t argument) override;
    void ZdRefreshSettings(DWORD value, bool full) override;
    DWORD ZdStub1() override;
    DWORD ZdStub2() override;
    DWORD ZdStub3() override;
    void ZdLogMessage(DWORD level, const char* message) override;
    DWORD ZdAppendFile(Handle target, Handle source, std::int64_t targetOffset, std::int64_t sourceOffset,
                       std::int64_t length) override;
    std::wstring ZdGetRandomTag() override;
    DWORD ZdPathIoctl(DWORD request, std::uint64_t argument) override;

private:
    ~CProtocolManager();

    // Everything that the operations work on; each is handed to what needs it.
    CMount m_mount;
    COpenFiles m_files;
    CFilePolicy m_policy;
    CVolumeLabel m_label;
};

}  // namespace zd
