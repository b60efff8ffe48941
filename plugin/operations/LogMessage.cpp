#include "log/Log.h"
#include "protocol/ProtocolManager.h"

namespace zd {

void CProtocolManager::ZdLogMessage(DWORD level, const char* message) {
    LogText(static_cast<std::int32_t>(level), message);
}

}  // namespace zd
