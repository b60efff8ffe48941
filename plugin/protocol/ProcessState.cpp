#include "protocol/ProcessState.h"

#include <new>

namespace zd {

alignas(CProcessState) std::byte g_processStateStorage[sizeof(CProcessState)];

CProcessState::~CProcessState() {
    if (m_settingsKey != nullptr) ::RegCloseKey(m_settingsKey);
}

void CreateProcessState() {
    new (g_processStateStorage) CProcessState;
}

void DestroyProcessState() noexcept {
    ProcessState().~CProcessState();
}

}  // namespace zd
