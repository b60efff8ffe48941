#include "files/CreateRequest.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {

DWORD CProtocolManager::ZdCreateFile(const wchar_t* name, DWORD isDirectory, DWORD, DWORD fileAttributes, DWORD,
                                     DWORD createDisposition, DWORD access, DWORD, PSECURITY_DESCRIPTOR descriptor,
                                     Handle* handle, DWORD* createAction, FileInformation* information) {
    CCreateRequest request(m_files, m_policy, name, isDirectory != 0, fileAttributes, createDisposition, access,
                           descriptor);
    Handle created = 0;
    return RunOperation(
        kCreateFileText, [&] { request.LogEntry(); },
        [&] {
            if (name == nullptr || handle == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
            request.Run(created, createAction, information);
            *handle = created;
        },
        [&](DWORD) { request.LogExit(created); });
}

}  // namespace zd
