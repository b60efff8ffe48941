// Fixtures for tests of the plug-in. A test of the plug-in runs in a process of its own (ctest starts one for each),
// because the plug-in keeps state for the process.
//
//   #include "harness/PluginFixture.h"
//   using namespace zd::test;
//
//   class CCloseTest : public CConnectedTest {};        connected to "pool" of the recording double, logs cleared
//
//   TEST_F(CCloseTest, ClosesTheDescriptorOnce) {
//       Double().MakeFile("pool/a.txt", "hello");
//       const Created file = Create(L"\\a.txt", {.disposition = kZdOpen});
//       ASSERT_EQ(0u, file.code);
//       ClearLogs();
//       EXPECT_EQ(0u, m_manager->ZdCloseFile(file.handle, 0));
//       EXPECT_CALLS("ZdvfsClose(*) = 0");
//       EXPECT_LOG({6, "ZdCloseFile Enter - handle: *\n"}, {6, "*"}, {6, "ZdCloseFile Exit\n"});
//   }
//
//   TEST_F(CCloseTest, PassesTheFailureOfTheStorageOn) {
//       Double().MakeFile("pool/a.txt");
//       Double().Add(OnCall("ZdvfsOpen").ForPath("pool/a.txt").Fails(ENOSPC));
//       EXPECT_EQ(112u, Create(L"\\a.txt", {.disposition = kZdOpen}).code);
//   }
//
// Which fixture:
//   CDoubleTest          the double, not connected yet: set the registry and the double up, then Connect()
//   CConnectedTest       the double, connected to "pool" with default settings
//   CLocalEngineTest     bin/zdvfs.dll and bin/hul.dll over a private pool folder, not connected yet
//   CConnectedLocalTest  the same, connected to "pool"
// Settings that the plug-in reads only once (in GetProtocol) are written before the first Connect() or NewManager():
//   Registry().SetDword(kPluginKey, L"MaxFileSizeMB", 1);
// The registry starts with DebugLevel 6 and the agent's "path" (Environment().AgentFolder()); Registry().DeleteKey and
// DeleteValue take them away. Hul().SetValue fills the double's ini files; their path in calls is the agent's folder
// and the file's name.
//
// The log's writer is held at its start: TakeLog() and EXPECT_LOG read the queue itself, with levels and exact text.
// Environment().RunWriter() lets it write; then DrainLog(), LogText(), DebuggerTexts(), EventReports() show what came
// out. System functions of the plug-in are replaced with CImportPatch (ImportPatch.h), identities with CImpersonation
// (Security.h), a process that ends is a child (Child.h), raw slots are CSlots (SlotTable.h), threads meet at a CGate
// (Gate.h).
//
// At the end of a test the fixture releases the objects and expects that no descriptor, directory stream or converter
// block is left and that no closed descriptor was used; AllowLeaks() turns that off.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "Child.h"
#include "Environment.h"
#include "Gate.h"
#include "Security.h"
#include "SlotTable.h"
#include "TextCompare.h"

namespace zd::test {

// Arguments of ZdCreateFile beside the name; the defaults create or open a file for reading and writing.
struct CreateOptions {
    DWORD isDirectory = 0;
    DWORD attributes = FILE_ATTRIBUTE_NORMAL;
    DWORD disposition = kZdOpenIf;
    DWORD access = 0x3;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
};

// Out arguments that the plug-in did not touch keep these values.
inline constexpr Handle kUntouchedHandle = 0xCDCDCDCDCDCDCDCD;
inline constexpr DWORD kUntouched = 0xCDCDCDCD;

struct Created {
    DWORD code = kUntouched;
    Handle handle = kUntouchedHandle;
    DWORD action = kUntouched;
    FileInformation information;  // all bytes 0xCD where untouched
};

struct Transfer {
    DWORD code = kUntouched;
    DWORD count = kUntouched;
    std::string data;  // of a read: `count` bytes where the call succeeded
};

struct Listing {
    DWORD code = kUntouched;
    std::vector<DirectoryEntry> entries;
    std::vector<std::wstring> names;  // of the entries
};

class CPluginTest : public ::testing::Test {
protected:
    explicit CPluginTest(EBackEnd backEnd);
    ~CPluginTest() override;
    void SetUp() override;
    void TearDown() override;

    CEnvironment& Environment() { return *m_environment; }
    CRegistrySandbox& Registry() { return m_environment->Registry(); }
    IDoubleControl& Double() { return m_environment->Double(); }
    IHulControl& Hul() { return m_environment->Hul(); }
    CLogger& Logger() { return m_environment->Logger(); }
    HMODULE Plugin() { return m_environment->Plugin(); }

    // Makes m_manager where there is none, connects it, answers the code. Exceptions pass.
    DWORD Connect(const std::wstring& pool = L"pool", const std::wstring& second = std::wstring(),
                  const std::wstring& third = std::wstring());
    // A further object in the same process; released at the end of the test.
    IProtocolManager* NewManager() { return m_environment->NewManager(); }
    static ConnectParameters Parameters(const std::wstring& pool, const std::wstring& second = std::wstring(),
                                        const std::wstring& third = std::wstring());

    // Each works on m_manager, or on the object given.
    Created Create(const std::wstring& name, const CreateOptions& options = CreateOptions(),
                   IProtocolManager* manager = nullptr);
    Transfer Read(Handle handle, std::int64_t offset, DWORD length, IProtocolManager* manager = nullptr);
    Transfer Write(Handle handle, std::int64_t offset, const std::string& data, IProtocolManager* manager = nullptr);
    Listing List(Handle handle, IProtocolManager* manager = nullptr);
    // Closes and releases.
    void Close(Handle handle, IProtocolManager* manager = nullptr);

    // Forgets the calls and the log lines so far.
    void ClearLogs();
    // The lines of the storage calls since the last ClearLogs or TakeCalls, and of all calls, hul.dll's among them.
    std::vector<std::string> TakeCalls();
    std::vector<std::string> TakeAllCalls();
    std::vector<LogLine> TakeLog() { return m_environment->TakeLog(); }

    ChildResult RunSelfInChild() { return RunTestInChild(m_environment->Folder()); }

    void AllowLeaks() { m_checkLeaks = false; }

    IProtocolManager* m_manager = nullptr;

private:
    IProtocolManager* Or(IProtocolManager* manager) const { return manager != nullptr ? manager : m_manager; }
    void ExpectNoLeaks();

    EBackEnd m_backEnd;
    bool m_checkLeaks = true;
    std::unique_ptr<CEnvironment> m_environment;
};

class CDoubleTest : public CPluginTest {
protected:
    CDoubleTest() : CPluginTest(EBackEnd::kDouble) {}
};

class CConnectedTest : public CDoubleTest {
protected:
    void SetUp() override;
};

class CLocalEngineTest : public CPluginTest {
protected:
    CLocalEngineTest() : CPluginTest(EBackEnd::kLocalEngine) {}
};

class CConnectedLocalTest : public CLocalEngineTest {
protected:
    void SetUp() override;
};

// Patterns (level, text) against lines, in order and complete.
::testing::AssertionResult LogFits(const std::vector<LogLine>& patterns, const std::vector<LogLine>& lines);
// Success where some line has the level and fits the pattern.
::testing::AssertionResult Logged(const std::vector<LogLine>& lines, std::uint32_t level, const std::string& pattern);

// A printed number for each character would hide the text.
void PrintTo(const LogLine& line, std::ostream* out);

}  // namespace zd::test

// The exact storage calls since the last look, in order; "*" in a pattern stands for any characters ("\\*" for a star).
// Taking them clears the call log. EXPECT_CALLS() expects none.
#define EXPECT_CALLS(...) EXPECT_TRUE(::zd::test::LinesFit(std::vector<std::string>{__VA_ARGS__}, TakeCalls()))
// The same with the calls of hul.dll among them.
#define EXPECT_ALL_CALLS(...) EXPECT_TRUE(::zd::test::LinesFit(std::vector<std::string>{__VA_ARGS__}, TakeAllCalls()))
// The exact log lines since the last look: EXPECT_LOG({6, "ZdConnect Enter\n"}, {6, "*"}).
#define EXPECT_LOG(...) EXPECT_TRUE(::zd::test::LogFits(std::vector<::zd::test::LogLine>{__VA_ARGS__}, TakeLog()))
