// ZdConnect: mounts a pool and prepares the connection.
#include "base/Undo.h"
#include "config/Agent.h"
#include "config/SettingsMap.h"
#include "operations/ConnectBlock.h"
#include "operations/ConnectRoot.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr std::uint32_t kFlagsAtConnect = 50;
constexpr std::uint32_t kFlagRestoreDecryptLocal = 0x200;

// The pool is not empty.
void ConnectPool(CMount& mount, COpenFiles& files, CFilePolicy& policy, const std::wstring& pool,
                 const ConnectParameters& parameters) ZD_REQUIRES(mount.Lock()) {
    ZdvfsMountBlock& block = mount.Block();
    block.flags = kFlagsAtConnect;
    const DWORD agentType = ReadAgentType();
    LogLine(kLogTrace, "Agent Type is: %d\n", static_cast<int>(agentType));
    if (agentType != 0) FindConfiguration(block, agentType, pool);

    CAgentConfiguration configuration = ReadAgentConfiguration();
    policy.extensionSegments = std::move(configuration.segments);
    policy.edbSegmentSize = configuration.edbSegmentSize;
    if (configuration.restoreDecryptLocal != 0) block.flags |= kFlagRestoreDecryptLocal;
    files.SetFragmentLimit(static_cast<std::int32_t>(SettingInForce(settings::kMaxOpenFragments)));
    FillMountBlock(block, agentType, pool, parameters);

    mount.Mount();
    files.SetRoot(CWideString(pool.c_str()));
    ZdvfsVolumeRecord volume{};
    CheckZdvfs(::ZdvfsStatvfs(mount.RootPath().c_str(), &volume));
    FindTopLevelDirectory(mount, files, pool);
    SetCompressionAndEncryption(mount, configuration);
    mount.Register(pool);
}

// The name that a connection gets whose host names no pool.
std::wstring TagOf(IProtocolManager& manager) {
    // Through the object's table, which the compiler would pass by: a host may have a tag of its own there.
    IProtocolManager* const volatile object = &manager;
    std::wstring tag = object->ZdGetRandomTag();
    if (tag.empty()) throw std::bad_alloc();
    return tag;
}

}  // namespace

ZD_TAKES_AGAIN DWORD CProtocolManager::ZdConnect(const ConnectParameters* parameters) {
    const CAutoCriticalSection held(m_mount.Lock());
    return RunOperation<EUnexpected::PassOn>(kConnectText, [&]() ZD_TAKES_AGAIN {
        if (parameters == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
        std::wstring pool = FieldText(parameters->poolName);
        // A backslash would reach into other keys of the registry's pool list.
        if (pool.find(L'\\') != std::wstring::npos) ThrowWin32(ERROR_INVALID_PARAMETER);
        if (m_mount.IsConnected()) m_mount.Disconnect(m_files);
        // What fails leaves nothing behind, so that the object can connect again.
        CUndo abandon([&]() ZD_REQUIRES(m_mount.Lock()) { m_mount.Abandon(m_files); });
        FreeWords(m_mount.Block());
        LoadSettings();
        CopyHighestValidNameChar();
        if (pool.empty()) pool = TagOf(*this);
        ConnectPool(m_mount, m_files, m_policy, pool, *parameters);
        abandon.Keep();
    });
}

}  // namespace zd
