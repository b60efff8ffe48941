#include "Session.h"

#include "Impersonation.h"
#include "text/Failure.h"
#include "text/LocalPath.h"
#include "text/Text.h"

namespace zd::host {

namespace {

// How long the end of the session waits for the log to be written out.
constexpr DWORD kLogWaitMilliseconds = 30000;

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
    return m_options.plugin.empty() ? zdvfs::PathBesideProgram() : AbsolutePath(ToWide(m_options.plugin));
}

std::wstring CSession::LibraryFolder() const {
    const std::wstring path = PluginPath();
    return path.substr(0, path.rfind(L'\\') + 1);
}

void CSession::Load() {
    try {
        if (!m_library) m_library.emplace(PluginPath());
        if (!m_log) {
            m_log.emplace();
            if (m_trace != nullptr) m_trace->Attach(m_library->Module(), *m_log->Get());
        }
    } catch (const zdvfs::CError& error) {
        throw CFatalFailure(error.what());
    }
    void* hostContext = this;
    m_manager = m_trace != nullptr ? m_trace->MakeManager(m_library->Entry(), &hostContext, m_log->Get())
                                   : m_library->Entry()(&hostContext, m_log->Get());
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
    // Where the writer goes on, the process ends soon and takes it with the log.
    const bool stopped = !m_log || m_log->Stop(kLogWaitMilliseconds);
    if (m_trace != nullptr) m_trace->Detach();
    if (m_library && !stopped) m_library->KeepLoaded();
    m_library.reset();
    if (disconnected != ERROR_SUCCESS) ThrowFailure("ZdDisconnect", disconnected, ToWide(m_options.pool));
    if (!stopped) throw CFailure("the plug-in's log could not be finished");
    if (m_trace != nullptr) m_trace->Finish();
}

}  // namespace zd::host
