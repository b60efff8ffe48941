// ZdDisconnect: closes what is open, unmounts the pool and leaves the process-wide registries.
#include <cstdlib>

#include "base/Errors.h"
#include "log/Log.h"
#include "protocol/MountBlock.h"
#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr std::uint32_t kFlagUnconnected = 2;

}  // namespace

void CProtocolManager::CloseAllHandles() noexcept {
    try {
        while (const CWordRef word = m_words.TakeFirst()) CloseFileHandle(*word, 0);
    } catch (...) {
        // What is left in the table is closed when the object dies.
    }
}

void CProtocolManager::Unmount() noexcept {
    m_isMounted = false;
    try {
        ::ZdvfsUmount(m_mountBlock.poolName);
    } catch (...) {
        // The host cannot do anything about a failed unmount.
    }
}

void CProtocolManager::UnregisterConnection() noexcept {
    CProcessState& state = ProcessState();
    const CAutoCriticalSection held(state.m_settingsLock);
    state.m_mountBlocks.erase(&m_mountBlock);
    const auto name = state.m_mountedNames.find(m_mountedName);
    if (name != state.m_mountedNames.end() && --name->second == 0) state.m_mountedNames.erase(name);
    m_mountedName.clear();
}

void CProtocolManager::AbandonConnect() noexcept {
    const CFailure failure = CFailure::Now();
    if (m_isMounted) Unmount();
    std::free(std::exchange(m_mountBlock.poolName, nullptr));
    FreeWords(m_mountBlock);
    m_mountBlock.flags = kFlagUnconnected;
    m_rootName = m_unconnectedRoot;
    m_words.ForgetPaths();
    m_vfsRootPath = m_unconnectedRootUtf8;
    ::SetLastError(failure.lastError);
    errno = failure.error;
}

DWORD CProtocolManager::ZdDisconnect() {
    LogText(kLogTrace, "ZdDiscconect Enter\n");
    {
        const CAutoCriticalSection held(m_objectLock);
        if (IsConnected()) {
            CloseAllHandles();
            Unmount();
            UnregisterConnection();
            std::free(std::exchange(m_mountBlock.poolName, nullptr));
        }
    }
    LogText(kLogTrace, "ZdDiscconect Exit\n");
    return ERROR_SUCCESS;
}

}  // namespace zd
