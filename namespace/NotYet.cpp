// Operations that this build does not carry out. Each answers an error, so that no host takes them for done.
#include "protocol/ProtocolManager.h"

namespace zd {

DWORD CProtocolManager::ZdQueryFileInfo(Handle, FileInformation*) {
    return ERROR_CALL_NOT_IMPLEMENTED;
}

DWORD CProtocolManager::ZdQueryPathInfo(const wchar_t*, FileInformation*) {
    return ERROR_CALL_NOT_IMPLEMENTED;
}

DWORD CProtocolManager::ZdSetFileBasicInfo(Handle, std::int64_t, std::int64_t, std::int64_t, std::int64_t, DWORD) {
    return ERROR_CALL_NOT_IMPLEMENTED;
}

DWORD CProtocolManager::ZdDeleteFile(void*) {
    return ERROR_CALL_NOT_IMPLEMENTED;
}

DWORD CProtocolManager::ZdRenameFile(Handle, const wchar_t*, DWORD) {
    return ERROR_CALL_NOT_IMPLEMENTED;
}

DWORD CProtocolManager::ZdQueryDirContents(Handle, DirectoryEntry**, DWORD*) {
    return ERROR_CALL_NOT_IMPLEMENTED;
}

DWORD CProtocolManager::ZdQueryVolumeInfo(BYTE, VolumeInformation*) {
    return ERROR_CALL_NOT_IMPLEMENTED;
}

DWORD CProtocolManager::ZdSetVolumeLabel(const wchar_t*) {
    return ERROR_CALL_NOT_IMPLEMENTED;
}

// 1 would say that the storage's view was refreshed.
DWORD CProtocolManager::ZdControlPath(const wchar_t*) {
    return 0;
}

DWORD CProtocolManager::ZdHandleIoctl(Handle, DWORD, std::uint64_t) {
    return 0xFFFFFFFF;
}

DWORD CProtocolManager::ZdPathIoctl(DWORD, std::uint64_t) {
    return 0xFFFFFFFF;
}

}  // namespace zd
