// The plug-in's object with a record of every operation.
#pragma once

#include "IProtocolManager.h"
#include "trace/OperationScope.h"

namespace zd::host {

// Every operation goes to the object behind it with the arguments as they are, and answers, fills and throws the same.
// Belongs to the host, also after Release has ended the object behind it. Threads: as the interface says.
class CTracingManager final : public IProtocolManager {
public:
    CTracingManager(CRecorder& recorder, IProtocolManager& traced) : m_recorder(recorder), m_traced(traced) {}

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
    // Runs an operation of the object behind. `names` tells its arguments as Fields.h says, `kind` its result.
    template <auto kOperation, class... Arguments>
    auto Forward(const char* operation, const char* names, EResult kind, Arguments... arguments) {
        return RunTraced(
            m_recorder, operation, names, kind,
            [this](Arguments... passed) { return (m_traced.*kOperation)(passed...); }, arguments...);
    }

    CRecorder& m_recorder;
    IProtocolManager& m_traced;
};

}  // namespace zd::host
