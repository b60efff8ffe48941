#include "config/Agent.h"

#include "base/RegistryKey.h"
#include "config/ConfigState.h"

namespace zd {
namespace {

// The agent's directory as its key gives it, empty where the value cannot be used.
std::wstring PathFromRegistry(bool formerMaker) {
    CRegistryKey key;
    if (key.Open(VendorTree(formerMaker).agent, KEY_READ) != ERROR_SUCCESS) return {};
    CTextValue value(settings::kAgentPath.longest + 1);
    if (value.Query(key.Get(), settings::kAgentPath.name.wide) != ERROR_SUCCESS) return {};
    if (value.Type() != REG_SZ && value.Type() != REG_EXPAND_SZ) return {};
    const DWORD size = value.Size();
    if (size == 0 || size % sizeof(wchar_t) != 0) return {};
    if (value.Text()[size / sizeof(wchar_t) - 1] != L'\0') return {};
    return value.Text();
}

// The directory of the host's program, with its last separator.
std::wstring PathOfHost() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) return {};
        if (length < path.size()) {
            path.resize(length);
            break;
        }
        path.resize(path.size() * 2);
    }
    const std::size_t separator = path.rfind(L'\\');
    path.resize(separator == std::wstring::npos ? 0 : separator + 1);
    return path;
}

}  // namespace

void DiscoverAgentPath(bool formerMaker) {
    CConfigState& state = ConfigState();
    {
        const CAutoCriticalSection held(state.m_lock);
        if (!state.m_agentPath.empty()) return;
    }
    std::wstring path = PathFromRegistry(formerMaker);
    if (path.empty()) path = PathOfHost();
    CWideString shared(std::move(path));
    const CAutoCriticalSection held(state.m_lock);
    if (state.m_agentPath.empty()) state.m_agentPath = std::move(shared);
}

CWideString AgentPath() {
    CConfigState& state = ConfigState();
    const CAutoCriticalSection held(state.m_lock);
    return state.m_agentPath;
}

std::string AnsiPath(const std::wstring& path) {
    const int units = static_cast<int>(path.size());
    const int size = ::WideCharToMultiByte(CP_THREAD_ACP, 0, path.data(), units, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return {};
    std::string narrow(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_THREAD_ACP, 0, path.data(), units, narrow.data(), size, nullptr, nullptr);
    return narrow;
}

DWORD ReadAgentType() noexcept {
    const CVendorTree& tree = VendorTree(OnlyFormerMakerTree());
    const auto read = [](const wchar_t* path, const settings::Setting& setting) -> std::optional<DWORD> {
        CRegistryKey key;
        if (key.Open(path, KEY_READ) != ERROR_SUCCESS) return std::nullopt;
        return ReadDword(key.Get(), setting.name.wide);
    };
    if (const auto type = read(tree.settings, settings::kAgentType)) return *type;
    return settings::kAgentKeyType.InForce(read(tree.agent, settings::kAgentKeyType));
}

}  // namespace zd
