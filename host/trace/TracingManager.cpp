#include "trace/TracingManager.h"

namespace zd::host {

namespace {

constexpr EResult kCode = EResult::Code;
constexpr EResult kNumber = EResult::Number;

}  // namespace

DWORD CTracingManager::ZdConnect(const ConnectParameters* parameters) {
    return Forward<&IProtocolManager::ZdConnect>("ZdConnect", "parameters", kCode, parameters);
}

DWORD CTracingManager::ZdDisconnect() {
    return Forward<&IProtocolManager::ZdDisconnect>("ZdDisconnect", "", kCode);
}

DWORD CTracingManager::ZdCreateFile(const wchar_t* name, DWORD isDirectory, DWORD unused3, DWORD fileAttributes,
                                    DWORD unused5, DWORD createDisposition, DWORD access, DWORD unused8,
                                    PSECURITY_DESCRIPTOR descriptor, Handle* handle, DWORD* createAction,
                                    FileInformation* information) {
    return Forward<&IProtocolManager::ZdCreateFile>(
        "ZdCreateFile",
        "name,isDirectory,,fileAttributes:x,,createDisposition:d,access:x,,descriptor,>handle:x,>createAction,"
        ">information",
        kCode, name, isDirectory, unused3, fileAttributes, unused5, createDisposition, access, unused8, descriptor,
        handle, createAction, information);
}

DWORD CTracingManager::ZdCloseFile(Handle handle, DWORD deleteFlag) {
    return Forward<&IProtocolManager::ZdCloseFile>("ZdCloseFile", "handle:x,deleteFlag", kCode, handle, deleteFlag);
}

DWORD CTracingManager::ZdReleaseFile(Handle handle) {
    return Forward<&IProtocolManager::ZdReleaseFile>("ZdReleaseFile", "handle:x", kCode, handle);
}

DWORD CTracingManager::ZdQueryFileInfo(Handle handle, FileInformation* information) {
    return Forward<&IProtocolManager::ZdQueryFileInfo>("ZdQueryFileInfo", "handle:x,>information", kCode, handle,
                                                       information);
}

DWORD CTracingManager::ZdQueryPathInfo(const wchar_t* path, FileInformation* information) {
    return Forward<&IProtocolManager::ZdQueryPathInfo>("ZdQueryPathInfo", "path,>information", kCode, path,
                                                       information);
}

DWORD CTracingManager::ZdSetFileSize(Handle handle, std::int64_t size) {
    return Forward<&IProtocolManager::ZdSetFileSize>("ZdSetFileSize", "handle:x,size", kCode, handle, size);
}

DWORD CTracingManager::ZdSetFileBasicInfo(Handle handle, std::int64_t creationTime, std::int64_t lastAccessTime,
                                          std::int64_t lastWriteTime, std::int64_t changeTime, DWORD fileAttributes) {
    return Forward<&IProtocolManager::ZdSetFileBasicInfo>(
        "ZdSetFileBasicInfo", "handle:x,creationTime,lastAccessTime,lastWriteTime,changeTime,fileAttributes:x", kCode,
        handle, creationTime, lastAccessTime, lastWriteTime, changeTime, fileAttributes);
}

DWORD CTracingManager::ZdDeleteFile(void* request) {
    return Forward<&IProtocolManager::ZdDeleteFile>("ZdDeleteFile", "request", kCode, request);
}

DWORD CTracingManager::ZdRenameFile(Handle handle, const wchar_t* newName, DWORD replaceIfExists) {
    return Forward<&IProtocolManager::ZdRenameFile>("ZdRenameFile", "handle:x,newName,replaceIfExists", kCode, handle,
                                                    newName, replaceIfExists);
}

DWORD CTracingManager::ZdQueryDirContents(Handle handle, DirectoryEntry** entries, DWORD* count) {
    return Forward<&IProtocolManager::ZdQueryDirContents>("ZdQueryDirContents", "handle:x,,>count", kCode, handle,
                                                          entries, count);
}

DWORD CTracingManager::ZdReadFile(Handle handle, std::int64_t offset, DWORD length, void* buffer, DWORD* bytesRead) {
    return Forward<&IProtocolManager::ZdReadFile>("ZdReadFile", "handle:x,offset,length,,>bytesRead", kCode, handle,
                                                  offset, length, buffer, bytesRead);
}

DWORD CTracingManager::ZdWriteFile(Handle handle, std::int64_t offset, DWORD length, const void* buffer,
                                   DWORD* bytesWritten) {
    return Forward<&IProtocolManager::ZdWriteFile>("ZdWriteFile", "handle:x,offset,length,,>bytesWritten", kCode,
                                                   handle, offset, length, buffer, bytesWritten);
}

DWORD CTracingManager::ZdQueryVolumeInfo(BYTE request, VolumeInformation* information) {
    return Forward<&IProtocolManager::ZdQueryVolumeInfo>("ZdQueryVolumeInfo", "request", kCode, request, information);
}

DWORD CTracingManager::ZdSetVolumeLabel(const wchar_t* label) {
    return Forward<&IProtocolManager::ZdSetVolumeLabel>("ZdSetVolumeLabel", "label", kCode, label);
}

DWORD CTracingManager::ZdGetSecurity(Handle handle, std::uint64_t securityInformation,
                                     PSECURITY_DESCRIPTOR* descriptor) {
    return Forward<&IProtocolManager::ZdGetSecurity>("ZdGetSecurity", "handle:x,securityInformation:x", kCode, handle,
                                                     securityInformation, descriptor);
}

DWORD CTracingManager::ZdSetSecurity(Handle handle, std::uint64_t securityInformation,
                                     PSECURITY_DESCRIPTOR descriptor) {
    return Forward<&IProtocolManager::ZdSetSecurity>("ZdSetSecurity", "handle:x,securityInformation:x,descriptor",
                                                     kCode, handle, securityInformation, descriptor);
}

void CTracingManager::Release() {
    Forward<&IProtocolManager::Release>("Release", "", kNumber);
}

DWORD CTracingManager::ZdEnumerateSpaList(std::set<std::wstring>* names) {
    return Forward<&IProtocolManager::ZdEnumerateSpaList>("ZdEnumerateSpaList", ">count", kCode, names);
}

DWORD CTracingManager::ZdControlPath(const wchar_t* path) {
    return Forward<&IProtocolManager::ZdControlPath>("ZdControlPath", "path", kNumber, path);
}

DWORD CTracingManager::ZdHandleIoctl(Handle handle, DWORD request, std::uint64_t argument) {
    return Forward<&IProtocolManager::ZdHandleIoctl>("ZdHandleIoctl", "handle:x,request", kNumber, handle, request,
                                                     argument);
}

void CTracingManager::ZdRefreshSettings(DWORD value, bool full) {
    Forward<&IProtocolManager::ZdRefreshSettings>("ZdRefreshSettings", "value,full", kNumber, value, full);
}

DWORD CTracingManager::ZdStub1() {
    return Forward<&IProtocolManager::ZdStub1>("ZdStub1", "", kNumber);
}

DWORD CTracingManager::ZdStub2() {
    return Forward<&IProtocolManager::ZdStub2>("ZdStub2", "", kNumber);
}

DWORD CTracingManager::ZdStub3() {
    return Forward<&IProtocolManager::ZdStub3>("ZdStub3", "", kNumber);
}

void CTracingManager::ZdLogMessage(DWORD level, const char* message) {
    Forward<&IProtocolManager::ZdLogMessage>("ZdLogMessage", "level,message", kNumber, level, message);
}

DWORD CTracingManager::ZdAppendFile(Handle target, Handle source, std::int64_t targetOffset, std::int64_t sourceOffset,
                                    std::int64_t length) {
    return Forward<&IProtocolManager::ZdAppendFile>("ZdAppendFile",
                                                    "target:x,source:x,targetOffset,sourceOffset,length", kCode, target,
                                                    source, targetOffset, sourceOffset, length);
}

std::wstring CTracingManager::ZdGetRandomTag() {
    return Forward<&IProtocolManager::ZdGetRandomTag>("ZdGetRandomTag", "", kNumber);
}

DWORD CTracingManager::ZdPathIoctl(DWORD request, std::uint64_t argument) {
    return Forward<&IProtocolManager::ZdPathIoctl>("ZdPathIoctl", "request", kNumber, request, argument);
}

}  // namespace zd::host
