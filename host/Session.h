// One loaded plug-in, its log and its connection to a pool.
#pragma once

#include <windows.h>

#include <memory>
#include <optional>
#include <string>

#include "IProtocolManager.h"
#include "trace/Trace.h"
#include "ZdvfsLoader.h"

namespace zd::host {

struct SessionOptions {
    std::string plugin;  // path of the plug-in; empty: ZdvfsProtocol.dll beside this program
    std::string pool = "pool";
    std::string second;
    std::string third;
    TraceOptions trace;
};

// Loads and connects when it is first needed, so that commands without a connection need no plug-in. One thread.
class CSession {
public:
    // Throws CFailure where the trace that is asked for has no place to go.
    explicit CSession(SessionOptions options);
    // Ends the session; what fails then is not reported.
    ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    // The connected plug-in. Throws CFatalFailure where it cannot be loaded or connected, CUsageError for names that do
    // not fit the connection's record.
    IProtocolManager& Manager();

    // The same object without a connection, for operations that need none. Throws CFatalFailure.
    IProtocolManager& Plugin();

    // The folder of the plug-in and its libraries, with its last separator. Nothing is loaded.
    std::wstring LibraryFolder() const;

    const std::string& PoolName() const { return m_options.pool; }

    // Disconnects and releases the plug-in's object; the next use makes both anew, over the same plug-in and log.
    // Throws CFailure where the plug-in cannot disconnect.
    void Disconnect();

    // Disconnects, releases the plug-in's object and lets the log finish, so that no line is lost. Throws CFailure
    // where one of these fails; the rest is done all the same. Nothing
    // may be used afterwards: the plug-in keeps to the first log that it was given.
    void End();

private:
    std::wstring PluginPath() const;
    void Load();
    void Connect();
    DWORD Release();

    SessionOptions m_options;
    std::unique_ptr<CTrace> m_trace;  // where one is wanted
    std::optional<zdvfs::CLibrary> m_library;
    std::optional<zdvfs::CLog> m_log;  // outlives the plug-in's object and the thread that writes the log
    IProtocolManager* m_manager = nullptr;
    bool m_connected = false;
};

}  // namespace zd::host
