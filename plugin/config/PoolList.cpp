#include "config/PoolList.h"

#include "base/RegistryKey.h"
#include "base/UniqueHandle.h"
#include "config/Agent.h"
#include "config/ConfigState.h"
#include "hul.h"

namespace zd {
namespace {

constexpr DWORD kPoolNameUnits = 260;
constexpr wchar_t kConfigurationFilter[] = L"*.cfg";
constexpr std::size_t kConfigurationEnding = 4;  // ".cfg"

DWORD RegisterPool(const std::wstring& pool, const std::wstring& configurationFile) {
    const std::wstring list = VendorTree(OnlyFormerMakerTree()).spaList;
    CRegistryKey key;
    LSTATUS status = key.Create(list.c_str());
    if (status == ERROR_SUCCESS) status = key.Create((list + L"\\" + pool).c_str());
    if (status == ERROR_SUCCESS) status = key.SetText(settings::kPoolConfigFile.name.wide, configurationFile);
    return status == ERROR_SUCCESS ? ERROR_SUCCESS : kPoolNotRegistered;
}

bool IsHandled(const std::wstring& path, const FILETIME& lastWrite) {
    CConfigState& state = ConfigState();
    const CAutoCriticalSection held(state.m_lock);
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
    constexpr int kNoAgentId = settings::kAgentId.Standard<int>();
    const int agentId =
        ::InifileGetIntegerA(file.c_str(), settings::kPoolFileSection, settings::kAgentId.name.narrow, kNoAgentId);
    if (agentId != kNoAgentId) {
        outcome = RegisterPool(name.substr(0, name.size() - kConfigurationEnding), path);
    }
    CConfigState& state = ConfigState();
    const CAutoCriticalSection held(state.m_lock);
    state.m_scannedPools[path] = CScannedPool{entry.ftLastWriteTime, outcome};
}

// The system's filter also compares short names, by which longer endings match too.
bool HasConfigurationEnding(const wchar_t* name) {
    const std::wstring_view view(name);
    return view.size() > kConfigurationEnding && view[view.size() - kConfigurationEnding] == L'.';
}

}  // namespace

std::optional<std::wstring> FindConfigurationFile(DWORD agentType, const std::wstring& pool) {
    const CVendorTree& tree = VendorTree(OnlyFormerMakerTree());
    const bool inPoolList = agentType >= kFirstPoolAgent && agentType <= kLastPoolAgent;
    std::wstring path(inPoolList ? tree.spaList : tree.agent);
    if (inPoolList) path.append(L"\\").append(pool);
    CRegistryKey key;
    if (key.Open(path.c_str(), KEY_READ) != ERROR_SUCCESS) return std::nullopt;
    return ReadText(key.Get(), (inPoolList ? settings::kPoolConfigFile : settings::kAgentConfigFile).name.wide);
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

}  // namespace zd
