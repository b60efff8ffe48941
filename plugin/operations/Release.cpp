#include "protocol/ProtocolManager.h"

namespace zd {

void CProtocolManager::Release() {
    delete this;
}

}  // namespace zd
