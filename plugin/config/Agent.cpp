#include "config/Agent.h"

#include <algorithm>

#include "base/RegistryKey.h"
#include "hul.h"
#include "protocol/ProcessState.h"

namespace zd {
namespace {

constexpr DWORD kAgentPathUnits = 1024;
constexpr DWORD kPoolNameUnits = 260;
constexpr int kNoAgentId = -1;
constexpr wchar_t kConfigurationFilter[] = L"*.cfg";
constexpr std::size_t kConfigurationEnding = 4;  // ".cfg"
constexpr wchar_t kConfigFilePath[] = L"ConfigFilePath";

// The agent's directory as its key gives it, empty where the value cannot be used.
std::wstring PathFromRegistry(bool formerMaker) {
    CRegistryKey key;
    if (key.Open(VendorTree(formerMaker).agent, KEY_READ) != ERROR_SUCCESS) return {};
    CTextValue value(kAgentPathUnits);
    if (value.Query(key.Get(), L"path") != ERROR_SUCCESS) return {};
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

// A path as the ini reader takes it.
std::string AnsiPath(const std::wstring& path) {
    const int units = static_cast<int>(path.size());
    const int size = ::WideCharToMultiByte(CP_THREAD_ACP, 0, path.data(), units, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return {};
    std::string narrow(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_THREAD_ACP, 0, path.data(), units, narrow.data(), size, nullptr, nullptr);
    return narrow;
}

DWORD RegisterPool(const std::wstring& pool, const std::wstring& configurationFile) {
    const std::wstring list = VendorTree(OnlyFormerMakerTree()).spaList;
    CRegistryKey key;
    LSTATUS status = key.Create(list.c_str());
    if (status == ERROR_SUCCESS) status = key.Create((list + L"\\" + pool).c_str());
    if (status == ERROR_SUCCESS) status = key.SetText(kConfigFilePath, configurationFile);
    return status == ERROR_SUCCESS ? ERROR_SUCCESS : kPoolNotRegistered;
}

bool IsHandled(const std::wstring& path, const FILETIME& lastWrite) {
    CProcessState& state = ProcessState();
    const CAutoCriticalSection held(state.m_settingsLock);
    const auto found = state.m_scannedPools.find(path);
    if (found == state.m_scannedPools.end() || found->second.registered == kPoolNotRegistered) return false;
    return ::CompareFileTime(&found->second.lastWrite, &lastWrite) == 0;
}

void ScanFile(const std::wstring& directory, const WIN32_FIND_DATAW& entry) {
    const std::wstring name(entry.cFileName);
    const std::wstring path = directory + name;
    if (IsHandled(path, entry.ftLastWriteTime)) return;
    const std::string file = AnsiPath(path);
    ::InifileReleaseA(file.c_str());
    DWORD outcome = ERROR_SUCCESS;
    if (::InifileGetIntegerA(file.c_str(), "Main", "AgentID", kNoAgentId) != kNoAgentId) {
        outcome = RegisterPool(name.substr(0, name.size() - kConfigurationEnding), path);
    }
    CProcessState& state = ProcessState();
    const CAutoCriticalSection held(state.m_settingsLock);
    state.m_scannedPools[path] = CScannedPool{entry.ftLastWriteTime, outcome};
}

// The system's filter also compares short names, by which longer endings match too.
bool HasConfigurationEnding(const wchar_t* name) {
    const std::wstring_view view(name);
    return view.size() > kConfigurationEnding && view[view.size() - kConfigurationEnding] == L'.';
}

}  // namespace

void DiscoverAgentPath(bool formerMaker) {
    CProcessState& state = ProcessState();
    {
        const CAutoCriticalSection held(state.m_settingsLock);
        if (!state.m_agentPath.empty()) return;
    }
    std::wstring path = PathFromRegistry(formerMaker);
    if (path.empty()) path = PathOfHost();
    CWideString shared(std::move(path));
    const CAutoCriticalSection held(state.m_settingsLock);
    if (state.m_agentPath.empty()) state.m_agentPath = std::move(shared);
}

CWideString AgentPath() {
    CProcessState& state = ProcessState();
    const CAutoCriticalSection held(state.m_settingsLock);
    return state.m_agentPath;
}

DWORD ReadAgentType() noexcept {
    const CVendorTree& tree = VendorTree(OnlyFormerMakerTree());
    for (const wchar_t* path : {tree.settings, tree.agent}) {
        CRegistryKey key;
        if (key.Open(path, KEY_READ) != ERROR_SUCCESS) continue;
        if (const auto type = ReadDword(key.Get(), L"AgentType")) return *type;
    }
    return 0;
}

std::optional<std::wstring> FindConfigurationFile(DWORD agentType, const std::wstring& pool) {
    const CVendorTree& tree = VendorTree(OnlyFormerMakerTree());
    const bool inPoolList = agentType >= kFirstPoolAgent && agentType <= kLastPoolAgent;
    std::wstring path(inPoolList ? tree.spaList : tree.agent);
    if (inPoolList) path.append(L"\\").append(pool);
    CRegistryKey key;
    if (key.Open(path.c_str(), KEY_READ) != ERROR_SUCCESS) return std::nullopt;
    return ReadText(key.Get(), kConfigFilePath);
}

void ScanForPools() {
    const std::wstring directory(AgentPath().view());
    WIN32_FIND_DATAW entry;
    const CUniqueFind find(::FindFirstFileW((directory + kConfigurationFilter).c_str(), &entry));
    if (!find) return;
    do {
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
        if (HasConfigurationEnding(entry.cFileName)) ScanFile(directory, entry);
    } while (::FindNextFileW(find.Get(), &entry) != FALSE);
}

DWORD EnumeratePools(std::set<std::wstring>& names) {
    CRegistryKey list;
    const LSTATUS opened = list.Open(VendorTree(OnlyFormerMakerTree()).spaList, KEY_READ);
    if (opened != ERROR_SUCCESS) return static_cast<DWORD>(opened);
    for (DWORD index = 0;; ++index) {
        wchar_t name[kPoolNameUnits + 1];
        DWORD length = kPoolNameUnits + 1;
        const LSTATUS status = ::RegEnumKeyExW(list.Get(), index, name, &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) return ERROR_SUCCESS;
        if (status != ERROR_SUCCESS) return static_cast<DWORD>(status);
        names.emplace(name, length);
    }
}

CAgentConfiguration ReadAgentConfiguration() {
    constexpr int kListBytes = 256;
    const std::string file = AnsiPath(std::wstring(AgentPath().view()) + L"zd.conf");
    const char* const section = kHulSectionOfLooseKeys;
    CAgentConfiguration configuration;
    configuration.compression = ::InifileGetIntegerA(file.c_str(), section, "IFS_COMPRESSION", 0);
    configuration.encryption = ::InifileGetIntegerA(file.c_str(), section, "ENCRYPTION", 0);
    configuration.restoreDecryptLocal = ::InifileGetIntegerA(file.c_str(), section, "RESTORE_DECRYPT_LOCAL", 1);
    char list[kListBytes] = {};
    ::InifileGetValueA(file.c_str(), section, "PREFERRED_EXT_SEGKSIZE", "", list, kListBytes);
    list[kListBytes - 1] = '\0';
    ParseSegmentSizes(list, configuration);
    return configuration;
}

}  // namespace zd
