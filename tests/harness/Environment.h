// Everything a test of the plug-in stands on: a private registry and folder, the storage libraries, the plug-in itself
// and its logger. The fixtures of PluginFixture.h wrap it.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

#include "../double/Double.h"
#include "ImportPatch.h"
#include "IProtocolManager.h"
#include "Logger.h"
#include "RegistrySandbox.h"

namespace zd::test {

enum class EBackEnd { kDouble, kLocalEngine };

struct LogLine {
    std::uint32_t level;
    std::string text;  // with its line end
};

// A report that the writer thread gave to the event log.
struct EventReport {
    HANDLE source;
    WORD type;
    WORD category;
    DWORD id;
    bool hasSid;
    std::vector<std::string> strings;
    DWORD dataSize;
};

// One for a process: the plug-in keeps state of its own for the process, so a second one could not start afresh. The
// constructor throws std::logic_error for the second.
class CEnvironment {
public:
    explicit CEnvironment(EBackEnd backEnd);
    // Releases the objects made, ends the log's writer, removes registry and folder.
    ~CEnvironment();
    CEnvironment(const CEnvironment&) = delete;
    CEnvironment& operator=(const CEnvironment&) = delete;

    // Loads zdvfs.dll and hul.dll of the back end and then the plug-in, whose imports bind to them.
    void Load();

    // A new object from GetProtocol. Release it with ReleaseManager, or leave that to the destructor.
    IProtocolManager* NewManager(void** hostContext = nullptr);
    void ReleaseManager(IProtocolManager* manager);
    void ReleaseManagers();
    // GetProtocol as it is exported.
    GetProtocolFunction Entry() const { return m_getProtocol; }

    HMODULE Plugin() const { return m_plugin; }
    // Of the double only.
    IDoubleControl& Double() const;
    IHulControl& Hul() const;

    CRegistrySandbox& Registry() { return m_registry; }
    // Lives until the process ends.
    CLogger& Logger() { return m_logger; }

    // Folders of this process, with "\" at the end. The agent's folder is in the registry as "path".
    const std::wstring& Folder() const { return m_folder; }
    std::wstring AgentFolder() const { return m_folder + L"agent\\"; }
    std::wstring LogFolder() const { return m_folder + L"agent\\log\\"; }
    std::wstring PoolsFolder() const { return m_folder + L"pools\\"; }

    // ---- The log ----
    // As long as RunWriter was not called the writer thread is held at its start, and lines stay in the queue.

    // Takes the lines out of the queue, in order. Throws std::logic_error where the writer runs.
    std::vector<LogLine> TakeLog();
    // Drops the lines queued so far; does nothing where the writer runs.
    void ForgetLog();
    // Lets the writer thread run. Lines queued so far are written.
    void RunWriter();
    // Waits until the writer has taken every line off the queue and flushes the file. False after ten seconds.
    bool DrainLog();
    // What the writer sent to the debugger and to the event log since the plug-in was loaded.
    std::vector<std::string> DebuggerTexts() const;
    std::vector<EventReport> EventReports() const;
    // The files with the ending ".LOG" in a folder, and the content of a file.
    std::vector<std::wstring> LogFiles(const std::wstring& folder) const;
    std::string LogText() const;  // of all log files in LogFolder(), in order of name

private:
    void BindDouble(HMODULE zdvfs, HMODULE hul);
    void EndWriter();

    EBackEnd m_backEnd;
    CRegistrySandbox m_registry;
    std::wstring m_folder;
    HMODULE m_plugin = nullptr;
    GetProtocolFunction m_getProtocol = nullptr;
    IDoubleControl* m_double = nullptr;
    IHulControl* m_hul = nullptr;
    CLogger& m_logger;
    std::vector<IProtocolManager*> m_managers;
    std::vector<std::unique_ptr<CImportPatch>> m_patches;
};

// The folder of the program with "\" at the end, and the one with the plug-in.
std::wstring ProgramFolder();
std::wstring BinaryFolder();

std::string FileContent(const std::wstring& path);
void WriteFileContent(const std::wstring& path, const std::string& content);

}  // namespace zd::test
