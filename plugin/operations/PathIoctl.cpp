#include "protocol/MountedPools.h"
#include "protocol/ProtocolManager.h"

namespace zd {

// A control request that passes through to all mounted pools. No lines of its own.
DWORD CProtocolManager::ZdPathIoctl(DWORD request, std::uint64_t argument) {
    return SendToPools(request, ArgumentList(argument));
}

}  // namespace zd
