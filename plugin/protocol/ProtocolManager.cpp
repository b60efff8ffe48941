#include "protocol/ProtocolManager.h"

#include "base/RegistryKey.h"
#include "config/Agent.h"
#include "config/SettingsMap.h"
#include "log/Log.h"
#include "security/SecurityDescriptors.h"

namespace zd {

CProtocolManager::CProtocolManager(CLogger* logger) : m_mount(OnlyFormerMakerTree()) {
    const bool formerMaker = m_mount.IsFormerMaker();
    AdoptLogger(logger);
    m_policy.defaultDescriptor.Reset(DuplicateText(DefaultDescriptorText().c_str()));
    m_mount.Block().logLevel = static_cast<std::uint32_t>(GetLogLevel());
    ReadFilePolicy(formerMaker, m_policy);
    DiscoverAgentPath(formerMaker);
    OpenSettingsKey(formerMaker);
    LoadSettings();
    const std::int32_t level = SetLogLevel(static_cast<std::int32_t>(SettingInForce(settings::kDebugLevel)));
    m_mount.Block().logLevel = static_cast<std::uint32_t>(level);
}

CProtocolManager::~CProtocolManager() {
    LogText(kLogTrace, "~CProtocolManager Enter\n");
    if (m_mount.IsConnected()) m_mount.Disconnect(m_files);
}

}  // namespace zd
