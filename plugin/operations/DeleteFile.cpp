#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {

// Files are removed by closing a handle with the delete flag, which the host arranges.
DWORD CProtocolManager::ZdDeleteFile(void*) {
    return RunOperation(kDeleteFileText, [] {});
}

}  // namespace zd
