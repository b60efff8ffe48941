#include "protocol/ProtocolManager.h"

namespace zd {

DWORD CProtocolManager::ZdDisconnect() {
    m_mount.Disconnect(m_files);
    return ERROR_SUCCESS;
}

}  // namespace zd
