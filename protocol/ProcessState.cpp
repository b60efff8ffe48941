#include "protocol/ProcessState.h"

#include <new>

namespace zd {
namespace {

// Static storage without a static destructor, which would run at the end of the process too.
alignas(CProcessState) std::byte g_storage[sizeof(CProcessState)];

}  // namespace

CProcessState::~CProcessState() {
    if (m_settingsKey != nullptr) ::RegCloseKey(m_settingsKey);
}

CProcessState& ProcessState() noexcept {
    return *std::launder(reinterpret_cast<CProcessState*>(g_storage));
}

void CreateProcessState() {
    new (g_storage) CProcessState;
}

void DestroyProcessState() noexcept {
    ProcessState().~CProcessState();
}

}  // namespace zd
