#define _CRT_RAND_S  // before the first header, which decides whether rand_s is declared
#include "protocol/ProtocolManager.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "base/Errors.h"
#include "base/RegistryKey.h"
#include "config/Settings.h"
#include "log/Log.h"
#include "namespace/PathTranslation.h"
#include "protocol/MountBlock.h"
#include "protocol/OperationFrame.h"
#include "security/Descriptors.h"

namespace zd {
namespace {

constexpr wchar_t kRoot[] = L"/";
constexpr char kRootUtf8[] = "/";
constexpr std::uint32_t kFlagAtConstruction = 2;
constexpr std::uint64_t kBytesPerMb = 1'048'576;

}  // namespace

CProtocolManager::CProtocolManager(void* hostContext, CLogger* logger)
    : m_hostContext(hostContext),
      m_rootName(kRoot),
      m_vfsRootPath(kRootUtf8),
      m_vendorFlag(OnlyFormerMakerTree() ? 1 : 0) {
    AdoptLogger(logger);
    m_defaultDescriptor.Reset(DuplicateText(DefaultDescriptorText().c_str()));
    m_mountBlock.logLevel = static_cast<std::uint32_t>(GetLogLevel());
    m_mountBlock.logCallback = &ForwardToLog;
    m_mountBlock.flags |= kFlagAtConstruction;
    ReadConnectionSettings();
    DiscoverAgentPath(m_vendorFlag != 0);
    OpenSettingsKey(m_vendorFlag != 0);
    LoadSettings();
    const std::int32_t level = SetLogLevel(static_cast<std::int32_t>(SettingOr(kDebugLevel, kDefaultDebugLevel)));
    m_mountBlock.logLevel = static_cast<std::uint32_t>(level);
}

CProtocolManager::~CProtocolManager() {
    LogText(kLogTrace, "~CProtocolManager Enter\n");
    if (IsConnected()) ZdDisconnect();
    FreeWords(m_mountBlock);
}

void CProtocolManager::ReadConnectionSettings() {
    CRegistryKey key;
    if (key.Open(VendorTree(m_vendorFlag != 0).settings, KEY_READ) != ERROR_SUCCESS) return;
    if (ReadDword(key.Get(), L"LocalCacheOff").value_or(0) != 0) m_localCacheOn = 0;
    const DWORD megabytes = ReadDword(key.Get(), L"MaxFileSizeMB").value_or(0);
    if (megabytes != 0) m_maximumFileSize = megabytes * kBytesPerMb;
}

void CProtocolManager::Release() {
    delete this;
}

CWordRef CProtocolManager::FindWord(Handle handle) {
    CWordRef word = m_words.Find(handle);
    if (!word) ThrowWin32(ERROR_INVALID_HANDLE);
    return word;
}

CUtf8String CProtocolManager::Translate(const wchar_t* name) const {
    return TranslatePath(m_rootName, name);
}

CUtf8String CProtocolManager::TranslateFragment(const WORDInfo& word, std::int32_t fragment) const {
    CFileInfo::CNames names = word.FileInfo().Names();
    if (names.path.empty()) {
        // A suffix may make room for a name that does not fit by itself.
        if (fragment > 0) return Translate(FragmentName(names.name, fragment).c_str());
        names.path = Translate(names.name.c_str());
        word.FileInfo().RememberPath(names);
    }
    return FragmentPath(names.path, fragment);
}

DWORD CProtocolManager::ZdStub1() {
    return 1;
}
DWORD CProtocolManager::ZdStub2() {
    return 1;
}
DWORD CProtocolManager::ZdStub3() {
    return 1;
}

void CProtocolManager::ZdLogMessage(DWORD level, const char* message) {
    LogText(static_cast<std::int32_t>(level), message);
}

std::wstring CProtocolManager::ZdGetRandomTag() {
    try {
        // The seed has no influence on rand_s; hosts see both calls made.
        ::srand(static_cast<unsigned>(::_time64(nullptr)));
        unsigned number = 0;
        ::rand_s(&number);
        const std::string text = FormatText("%6d", static_cast<int>(number));
        return std::wstring(text.begin(), text.end());
    } catch (...) {
        return {};
    }
}

DWORD CProtocolManager::ZdEnumerateSpaList(std::set<std::wstring>* names) {
    if (names == nullptr) return ERROR_INVALID_PARAMETER;
    try {
        return EnumeratePools(*names);
    } catch (...) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

}  // namespace zd
