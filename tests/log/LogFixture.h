// The plug-in with its log, whose writer runs, over a registry and a directory of the test's own.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "ClosurePatches.h"
#include "harness/PluginFixture.h"

namespace zd::test {

using Texts = std::vector<std::string>;

class CLogTest : public CDoubleTest {
protected:
    // A value of the agent's key, which does not exist at first. The plug-in's own key does, and is empty.
    void SetAgentText(const std::string& name, const std::string& text, DWORD type = REG_SZ);
    // Sets the log directory to m_logDirectory, which does not exist yet.
    void LogToSandbox();

    // Replaces an import of the plug-in until Finish; what `body` refers to must live until then. To be called before
    // the first line, where the writer thread is concerned.
    template <class Signature, class Body>
    void Replace(const char* name, Body body) {
        m_patches->Replace<Signature>(name, std::move(body));
    }
    // The plug-in's clock: seconds since 1970 at each call.
    void SetClock(std::function<time_t()> clock);

    // Brings up the plug-in with the log at `level`.
    void Start(std::int32_t level = kLogTrace);
    IProtocolManager* GetProtocol(CLogger* logger);
    void Say(std::int32_t level, const char* text) { m_manager->ZdLogMessage(static_cast<DWORD>(level), text); }
    // A whole life of the log: Start, a line of each text, Finish.
    void LogThese(std::int32_t level, std::initializer_list<const char*> texts);
    // Waits until every line is through its outputs.
    bool WaitForEmptyQueue();
    // Lets the writer finish the queue and end, and gives the imports back.
    void Finish();

    // Texts that went to the debugger, that of the log file's path included; those of lines, without the prefix.
    std::vector<std::string> Debugged() { return Environment().DebuggerTexts(); }
    std::vector<std::string> DebuggedLines();
    std::vector<EventReport> Events() { return Environment().EventReports(); }

    static bool Exists(const std::string& path);
    // Names of what is in a directory, in order.
    static std::vector<std::string> FilesIn(const std::string& directory);
    // A file's bytes, and those of the one file in the log directory.
    static std::string Bytes(const std::string& path);
    std::string LogBytes() const;
    // The texts of the lines in that file; each line has to end with CRLF.
    std::vector<std::string> LoggedTexts() const;

    // "(ZDVFS)2026-11-16-0329.LOG" and "2026/11/16 03:29:25 " for a time.
    static std::string FileName(time_t time);
    static std::string TimeText(time_t time);
    static std::string OwnImageName();

    void SetUp() override;
    void TearDown() override;

    std::string m_sandbox;       // an existing directory, with "\" at the end
    std::string m_logDirectory;  // "log\" in it

private:
    std::unique_ptr<CClosurePatches> m_patches;
    std::function<time_t()> m_clock;
    void* m_hostContext = nullptr;
};

}  // namespace zd::test
