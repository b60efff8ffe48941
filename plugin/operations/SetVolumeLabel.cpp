#include "protocol/ProtocolManager.h"

namespace zd {

DWORD CProtocolManager::ZdSetVolumeLabel(const wchar_t* label) {
    m_label.Set(label);
    return ERROR_SUCCESS;
}

}  // namespace zd
