#include "files/Closing.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {

DWORD CProtocolManager::ZdCloseFile(Handle handle, DWORD deleteFlag) {
    return RunOperation<EUnexpected::EndProcess>(
        kCloseFileText, [&] { LogCloseEntry(handle); }, [&] { CloseByHandle(m_files, handle, deleteFlag); });
}

}  // namespace zd
