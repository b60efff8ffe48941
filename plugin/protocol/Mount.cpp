#include "protocol/Mount.h"

#include <cstdlib>
#include <utility>

#include "base/Errors.h"
#include "base/KeptErrors.h"
#include "log/Log.h"
#include "protocol/MountedPools.h"

namespace zd {
namespace {

constexpr char kVersion[] = "6.0.0.0";
constexpr char kUnconnectedPath[] = "/";
constexpr std::uint32_t kFlagUnconnected = 2;

}  // namespace

CMount::CMount(bool formerMaker)
    : m_isFormerMaker(formerMaker), m_unconnectedPath(kUnconnectedPath), m_rootPath(m_unconnectedPath) {
    m_block.logCallback = &ForwardToLog;
    m_block.flags = kFlagUnconnected;
}

void CMount::Mount() {
    CheckZdvfs(::ZdvfsMountV1(kVersion, &m_block, sizeof m_block));
    m_isMounted = true;
    m_rootPath = CUtf8String(m_block.poolName);
}

void CMount::Register(const std::wstring& pool) {
    std::wstring name(pool);
    RegisterMount(pool, m_block);
    m_mountedName = std::move(name);
}

void CMount::Unmount() noexcept {
    m_isMounted = false;
    try {
        ::ZdvfsUmount(m_block.poolName);
    } catch (...) {
        // The host cannot do anything about a failed unmount.
    }
}

void CMount::Disconnect(COpenFiles& files) noexcept {
    LogText(kLogTrace, "ZdDiscconect Enter\n");
    {
        const CAutoCriticalSection held(m_lock);
        if (IsConnected()) {
            files.CloseAll();
            Unmount();
            UnregisterMount(m_mountedName, m_block);
            m_mountedName.clear();
            std::free(std::exchange(m_block.poolName, nullptr));
        }
    }
    LogText(kLogTrace, "ZdDiscconect Exit\n");
}

void CMount::Abandon(COpenFiles& files) noexcept {
    const CKeptErrors kept;
    if (m_isMounted) Unmount();
    std::free(std::exchange(m_block.poolName, nullptr));
    FreeWords(m_block);
    m_block.flags = kFlagUnconnected;
    files.ForgetRoot();
    m_rootPath = m_unconnectedPath;
}

}  // namespace zd
