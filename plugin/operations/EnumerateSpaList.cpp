#include "config/PoolList.h"
#include "protocol/ProtocolManager.h"

namespace zd {

DWORD CProtocolManager::ZdEnumerateSpaList(std::set<std::wstring>* names) {
    if (names == nullptr) return ERROR_INVALID_PARAMETER;
    try {
        return EnumeratePools(*names);
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace zd
