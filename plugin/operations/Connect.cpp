// ZdConnect: mounts a pool and prepares the connection.
#include <cstring>
#include <cwchar>

#include "base/Conversion.h"
#include "base/RegistryKey.h"
#include "base/StorageOwners.h"
#include "config/Settings.h"
#include "protocol/MountBlock.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr char kVersion[] = "6.0.0.0";
constexpr char kConnectName[] = "CProtocolManager::ZdConnect";
constexpr std::uint32_t kFlagsAtConnect = 50;
constexpr std::uint32_t kFlagsOfAgent1 = 0x140;
constexpr std::uint32_t kFlagOfAgent3 = 0x80;
constexpr std::uint32_t kFlagRestoreDecryptLocal = 0x200;
constexpr DWORD kAgent1 = 1;
constexpr DWORD kAgent2 = 2;
constexpr DWORD kAgent3 = 3;
constexpr std::size_t kLongestRootName = 260;  // bytes, for the search of the marker
constexpr int kLengthOfValue = 4;

// A field of the host's record, which is full where it has no terminator.
template <std::size_t kWidth>
std::wstring Field(const wchar_t (&field)[kWidth]) {
    return std::wstring(field, ::wcsnlen(field, kWidth));
}

char* DuplicateUtf8(const std::wstring& text) {
    if (text.empty()) return nullptr;
    return DuplicateText(WideToUtf8(text).c_str());
}

bool IsDots(const char* name) noexcept {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

}  // namespace

void ForwardToLog(std::uint32_t level, const char* message) {
    LogText(static_cast<std::int32_t>(level), message);
}

char* DuplicateText(const char* text) {
    char* const copy = ::_strdup(text);
    if (copy == nullptr) throw std::bad_alloc();
    return copy;
}

void FreeWords(ZdvfsMountBlock& block) noexcept {
    for (char** word : {&block.configurationFile, &block.secondName, &block.thirdName, &block.agentKind}) {
        std::free(std::exchange(*word, nullptr));
    }
}

void CProtocolManager::FindConfiguration(DWORD agentType, const std::wstring& pool) {
    auto file = FindConfigurationFile(agentType, pool);
    if (!file) {
        LogText(kLogTrace, "Config file not found scanning\n");
        ScanForPools();
        file = FindConfigurationFile(agentType, pool);
    }
    if (file) {
        CUniqueHulText utf8(::wcstoutf8_malloced(file->c_str()));
        if (!utf8) throw std::bad_alloc();
        m_mountBlock.configurationFile = DuplicateText(utf8.Get());
        ::_HulFree(utf8.Release());
    }
    LogMade(kLogTrace, [&] {
        return FormatText("Config file used (duped): %s\n", NameForLog(m_mountBlock.configurationFile).c_str());
    });
    if (agentType == kAgent1) m_mountBlock.flags |= kFlagsOfAgent1;
    if (agentType == kAgent3) m_mountBlock.flags |= kFlagOfAgent3;
}

void CProtocolManager::FillMountBlock(std::uint32_t agentType, const std::wstring& pool,
                                      const ConnectParameters& parameters) {
    m_mountBlock.syncFileCount = SettingOr(kSyncFileCount, kDefaultSyncFileCount);
    m_mountBlock.five4212 = 5;
    m_mountBlock.one4220 = 1;
    m_mountBlock.poolName = DuplicateText(WideToUtf8(pool).c_str());
    m_mountBlock.zero8 = 0;
    m_mountBlock.secondName = DuplicateUtf8(Field(parameters.secondName));
    m_mountBlock.thirdName = DuplicateUtf8(Field(parameters.thirdName));
    if (agentType == kAgent2) m_mountBlock.agentKind = DuplicateText("ZDDO_AGENT");
}

void CProtocolManager::FindTopLevelDirectory(const std::wstring& pool) {
    const std::string rootName = WideToUtf8(m_rootName.view());
    if (rootName.size() > kLongestRootName) return;
    CUniqueDirectory directory(::ZdvfsOpendir(m_vfsRootPath.c_str()));
    if (!directory) return;
    while (const ZdvfsDirectoryRecord* const entry = ::ZdvfsReaddir(directory.Get())) {
        if (IsDots(entry->name)) continue;
        const std::string name(entry->name);
        const std::string marker = FormatText("%s/%s/QBX_ZD_MARKER", rootName.c_str(), name.c_str());
        ZdvfsStatRecord status{};
        if (::ZdvfsStat(marker.c_str(), &status) != 0) continue;
        const std::wstring path = std::wstring(VendorTree(m_vendorFlag != 0).spaList) + L"\\" + pool;
        CRegistryKey key;
        if (key.Open(path.c_str()) == ERROR_SUCCESS) key.SetText(L"TopLevelDirectory", Utf8ToWide(name));
        break;
    }
    // Not left to the owner, which would keep an exception from the operation's handlers.
    ::ZdvfsClosedir(directory.Release());
}

void CProtocolManager::SetCompressionAndEncryption() {
    CUniqueDescriptor root(::ZdvfsOpen(m_vfsRootPath.c_str(), 0, 0));
    if (!root) {
        LogLine(kLogWarning, "%s: Error %d setting compression and encryption", kConnectName, errno);
        return;
    }
    struct CValue {
        int request;
        std::int32_t value;
        const char* lower;
        const char* upper;
    };
    for (const CValue& value : {CValue{kZdvfsIoctlSetCompression, m_compression, "compression", "Compression"},
                                CValue{kZdvfsIoctlSetEncryption, m_encryption, "encryption", "Encryption"}}) {
        errno = 0;
        const int result = ::ZdvfsIoctl(root.Get(), value.request, value.value, kLengthOfValue);
        if (result != 0) {
            LogLine(kLogWarning, "%s: Error %d setting %s value %d", kConnectName, errno, value.lower, value.value);
        } else {
            LogLine(kLogTrace, "%s: %s %s enabled", kConnectName, value.upper, value.value == result ? "is not" : "is");
        }
    }
    ::ZdvfsClose(root.Release());
}

void CProtocolManager::RegisterConnection(const std::wstring& pool) {
    CProcessState& state = ProcessState();
    std::wstring name(pool);
    const CAutoCriticalSection held(state.m_settingsLock);
    state.m_mountBlocks.insert(&m_mountBlock);
    try {
        ++state.m_mountedNames[pool];
    } catch (...) {
        state.m_mountBlocks.erase(&m_mountBlock);
        throw;
    }
    m_mountedName = std::move(name);
}

void CProtocolManager::Connect(std::wstring pool, const ConnectParameters& parameters) {
    LoadSettings();
    CopyHighestValidNameChar();
    if (pool.empty()) {
        // Through the object's table, which the compiler would pass by: a host may have a tag of its own there.
        IProtocolManager* const volatile object = this;
        pool = object->ZdGetRandomTag();
    }
    if (pool.empty()) throw std::bad_alloc();
    m_mountBlock.flags = kFlagsAtConnect;
    const DWORD agentType = ReadAgentType();
    LogLine(kLogTrace, "Agent Type is: %d\n", static_cast<int>(agentType));
    if (agentType != 0) FindConfiguration(agentType, pool);

    CAgentConfiguration configuration = ReadAgentConfiguration();
    m_compression = configuration.compression;
    m_encryption = configuration.encryption;
    m_restoreDecryptLocal = configuration.restoreDecryptLocal;
    m_extensionSegments = std::move(configuration.segments);
    m_edbSegmentSize = configuration.edbSegmentSize;
    if (m_restoreDecryptLocal != 0) m_mountBlock.flags |= kFlagRestoreDecryptLocal;
    m_maxOpenFragments = static_cast<std::int32_t>(NonZeroSettingOr(kMaxOpenFragments, kDefaultMaxOpenFragments));
    FillMountBlock(agentType, pool, parameters);

    CheckZdvfs(::ZdvfsMountV1(kVersion, &m_mountBlock, sizeof m_mountBlock));
    m_isMounted = true;
    m_rootName = CWideString(pool.c_str());
    m_words.ForgetPaths();
    m_vfsRootPath = CUtf8String(m_mountBlock.poolName);
    ZdvfsVolumeRecord volume{};
    CheckZdvfs(::ZdvfsStatvfs(m_vfsRootPath.c_str(), &volume));
    FindTopLevelDirectory(pool);
    SetCompressionAndEncryption();
    RegisterConnection(pool);
}

DWORD CProtocolManager::ZdConnect(const ConnectParameters* parameters) {
    const CAutoCriticalSection held(m_objectLock);
    // What fails leaves nothing behind, so that the object can connect again.
    struct CTakeBack {
        CProtocolManager* manager;
        ~CTakeBack() {
            if (manager != nullptr) manager->AbandonConnect();
        }
    };
    return RunOperation<EUnexpected::PassOn>(kConnectText, [&] {
        if (parameters == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
        std::wstring pool = Field(parameters->poolName);
        // A backslash would reach into other keys of the registry's pool list.
        if (pool.find(L'\\') != std::wstring::npos) ThrowWin32(ERROR_INVALID_PARAMETER);
        if (IsConnected()) ZdDisconnect();
        CTakeBack takeBack{this};
        FreeWords(m_mountBlock);
        Connect(std::move(pool), *parameters);
        takeBack.manager = nullptr;
    });
}

}  // namespace zd
