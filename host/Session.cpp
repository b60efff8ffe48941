#include "Session.h"

#include "Failure.h"
#include "Impersonation.h"
#include "LocalFile.h"
#include "Settings.h"
#include "Text.h"

namespace zd {

namespace {

// How long the end of the session waits for the log to be written out.
constexpr DWORD kLogWaitMilliseconds = 30000;

std::wstring PluginBesideProgram() {
    std::wstring path(32768, L'\0');
    const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0 || length >= path.size()) throw CFatalFailure("cannot tell where this program stands");
    path.resize(length);
    path.resize(path.rfind(L'\\') + 1);
    return path + L"ZdvfsProtocol.dll";
}

template <std::size_t kWidth>
void CopyField(wchar_t (&field)[kWidth], const std::string& text, const char* option) {
    const std::wstring wide = ToWide(text);
    if (wide.size() >= kWidth) {
        throw CUsageError(std::string(option) + ": at most " + std::to_string(kWidth - 1) + " characters");
    }
    wide.copy(field, wide.size());
}

}  // namespace

CSession::CSession(SessionOptions options) : m_options(std::move(options)) {
    if (m_options.trace.Wanted()) m_trace = std::make_unique<CTrace>(m_options.trace);
}

CSession::~CSession() {
    try {
        End();
    } catch (const CFailure&) {
        // Whoever wants to know has called End before.
    }
}

IProtocolManager& CSession::Manager() {
    if (!m_connected) {
        // Connections begin and end as the service's own, whomever the thread serves.
        const CImpersonation service(Caller::Process);
        Plugin();
        Connect();
    }
    return *m_manager;
}

IProtocolManager& CSession::Plugin() {
    if (m_manager == nullptr) Load();
    return *m_manager;
}

std::wstring CSession::PluginPath() const {
    return m_options.plugin.empty() ? PluginBesideProgram() : AbsolutePath(ToWide(m_options.plugin));
}

std::wstring CSession::LibraryFolder() const {
    const std::wstring path = PluginPath();
    return path.substr(0, path.rfind(L'\\') + 1);
}

void CSession::PrepareLog() {
    m_logger = std::make_unique<CLogger>();
    m_logger->formerMakerKeys = FormerTreeInUse();
    // The plug-in opens this key with its first line, which comes after it has first read the settings of suppression.
    // A key that is there before lets them count from the beginning.
    const std::wstring key = RootOf(m_logger->formerMakerKeys ? SettingsTree::Former : SettingsTree::Present);
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, (key + L"\\ZDVFS").c_str(), 0, KEY_READ, &m_logger->settingsKey) !=
        ERROR_SUCCESS) {
        m_logger->settingsKey = nullptr;
    }
}

void CSession::Load() {
    if (m_module == nullptr) {
        const std::wstring path = PluginPath();
        // The plug-in's own libraries stand beside it, which need not be where this program stands.
        m_module = ::LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
        if (m_module == nullptr) {
            throw CFatalFailure(DescribeFailure("loading the plug-in", ::GetLastError(), path));
        }
    }
    const auto address = ::GetProcAddress(m_module, "GetProtocol");
    if (address == nullptr) throw CFatalFailure(DescribeFailure("looking up GetProtocol", ::GetLastError(), L""));
    const auto getProtocol = reinterpret_cast<GetProtocolFunction>(reinterpret_cast<void*>(address));
    if (m_logger == nullptr) {
        PrepareLog();
        if (m_trace != nullptr) m_trace->Attach(m_module, *m_logger);
    }
    void* hostContext = this;
    m_manager = m_trace != nullptr ? m_trace->MakeManager(getProtocol, &hostContext, m_logger.get())
                                   : getProtocol(&hostContext, m_logger.get());
    if (m_manager == nullptr) throw CFatalFailure("GetProtocol answered no object");
}

void CSession::Connect() {
    ConnectParameters parameters{};
    CopyField(parameters.poolName, m_options.pool, "--pool");
    CopyField(parameters.secondName, m_options.second, "--second");
    CopyField(parameters.thirdName, m_options.third, "--third");
    const std::wstring pool = ToWide(m_options.pool);
    DWORD code = ERROR_SUCCESS;
    try {
        code = m_manager->ZdConnect(&parameters);
    } catch (unsigned long thrown) {
        throw CFatalFailure(DescribeFailure("ZdConnect (thrown)", thrown, pool));
    }
    if (code != ERROR_SUCCESS) throw CFatalFailure(DescribeFailure("ZdConnect", code, pool));
    m_connected = true;
}

DWORD CSession::Release() {
    if (m_manager == nullptr) return ERROR_SUCCESS;
    const CImpersonation service(Caller::Process);
    const DWORD disconnected = m_connected ? m_manager->ZdDisconnect() : ERROR_SUCCESS;
    m_connected = false;
    m_manager->Release();
    m_manager = nullptr;
    return disconnected;
}

void CSession::Disconnect() {
    CheckCode("ZdDisconnect", Release(), ToWide(m_options.pool));
}

void CSession::End() {
    const DWORD disconnected = Release();
    bool stopped = true;
    if (m_logger != nullptr) {
        stopped = m_logger->Stop(kLogWaitMilliseconds);
        if (stopped) {
            if (m_logger->settingsKey != nullptr) ::RegCloseKey(m_logger->settingsKey);
            m_logger.reset();
        } else {
            // The thread still uses it; the process ends soon and takes both with it.
            static_cast<void>(m_logger.release());
        }
    }
    if (m_trace != nullptr) m_trace->Detach();
    if (m_module != nullptr && stopped) ::FreeLibrary(m_module);
    m_module = nullptr;
    if (disconnected != ERROR_SUCCESS) ThrowFailure("ZdDisconnect", disconnected, ToWide(m_options.pool));
    if (!stopped) throw CFailure("the plug-in's log could not be finished");
    if (m_trace != nullptr) m_trace->Finish();
}

}  // namespace zd
