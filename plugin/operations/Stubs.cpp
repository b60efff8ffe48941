#include "protocol/ProtocolManager.h"

namespace zd {

DWORD CProtocolManager::ZdStub1() {
    return 1;
}
DWORD CProtocolManager::ZdStub2() {
    return 1;
}
DWORD CProtocolManager::ZdStub3() {
    return 1;
}

}  // namespace zd
