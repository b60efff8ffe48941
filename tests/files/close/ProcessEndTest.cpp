// Closing and releasing end the process when something comes up that they do not know: a host that lost track of its
// handles must not go on. The log is drained before.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CProcessEndTest : public CFilesTest {
protected:
    // Child: connects with the agent's folder where the parent looks for the log, and lets the writer run.
    void StartChild() {
        Registry().SetText(kAgentKey, L"path", ChildFolder(SharedFolder()));
        ::CreateDirectoryW(ChildFolder(SharedFolder()).c_str(), nullptr);
        ConnectWith();
        Double().MirrorTo(ChildFolder(SharedFolder()) + L"calls.txt");
    }

    // Parent: expects exit code 1, and that the child's log ends with this line of level 1.
    void ExpectEnded(const std::string& lastLine) {
        const ChildResult result = RunSelfInChild();
        EXPECT_EQ(1U, result.exitCode) << result.output;
        EXPECT_FALSE(result.timedOut);
        const std::wstring folder = ChildFolder(Environment().Folder());
        std::string log;
        for (const std::wstring& file : Environment().LogFiles(folder + L"log\\")) log += FileContent(file);
        std::erase(log, '\r');  // the file is written as text
        const std::size_t last = log.find_last_of('\n', log.size() < 2 ? 0 : log.size() - 2);
        const std::string end = log.substr(last == std::string::npos ? 0 : last + 1);
        EXPECT_TRUE(Fits("*" + lastLine, end)) << "the log's last line is " << end;
        m_calls = FileContent(folder + L"calls.txt");
        m_log = log;
    }

    static std::wstring ChildFolder(const std::wstring& shared) { return shared + L"child\\"; }

    std::string m_calls;
    std::string m_log;
};

TEST_F(CProcessEndTest, ReleaseOfAnUnknownHandle) {
    if (InChild()) {
        StartChild();
        Environment().RunWriter();
        ::SetLastError(1234);
        m_manager->ZdReleaseFile(0x4711);
        return;
    }
    ExpectEnded("ZdReleaseFile: ERROR:  Unhandled exception caught, dwError Code:   *\n");
    EXPECT_EQ(std::string::npos, m_log.find("ZdReleaseFile Exit"));
    EXPECT_EQ(std::string::npos, m_calls.find("ZdvfsClose("));
}

TEST_F(CProcessEndTest, SecondReleaseOfAHandle) {
    if (InChild()) {
        StartChild();
        Environment().RunWriter();
        const Handle handle = Open({"hello"});
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
        m_manager->ZdReleaseFile(handle);
        return;
    }
    ExpectEnded("ZdReleaseFile: ERROR:  Unhandled exception caught, dwError Code:   *\n");
    EXPECT_NE(std::string::npos, m_log.find("ZdReleaseFile Exit")) << "of the first one";
}

TEST_F(CProcessEndTest, ReleaseThroughAnotherConnection) {
    if (InChild()) {
        StartChild();
        IProtocolManager* const other = NewManager();
        const ConnectParameters parameters = Parameters(L"pool");
        EXPECT_EQ(0U, other->ZdConnect(&parameters));
        Environment().RunWriter();
        other->ZdReleaseFile(Open({"hello"}));
        return;
    }
    ExpectEnded("ZdReleaseFile: ERROR:  Unhandled exception caught, dwError Code:   *\n");
}

TEST_F(CProcessEndTest, UnknownExceptionInAClose) {
    if (InChild()) {
        StartChild();
        Environment().RunWriter();
        const Handle handle = Open({"hello"});
        Double().Add(OnCall("ZdvfsClose").Throws(EThrow::kRuntimeError).WithLastError(31));
        m_manager->ZdCloseFile(handle, 0);
        return;
    }
    ExpectEnded("ZdCloseFile:   ERROR:  Unhandled exception caught, dwError Code:   31\n");
    EXPECT_EQ(std::string::npos, m_log.find("ZdCloseFile Exit"));
}

TEST_F(CProcessEndTest, UnknownExceptionWithoutALastErrorShowsTheDeviceError) {
    if (InChild()) {
        StartChild();
        Environment().RunWriter();
        const Handle handle = Open({"hello"});
        Double().Add(OnCall("ZdvfsUnlink").Throws(EThrow::kRuntimeError).WithLastError(0));
        m_manager->ZdCloseFile(handle, 1);
        return;
    }
    ExpectEnded("ZdCloseFile:   ERROR:  Unhandled exception caught, dwError Code:   1117\n");
}

TEST_F(CProcessEndTest, UnknownExceptionInARelease) {
    if (InChild()) {
        StartChild();
        Environment().RunWriter();
        const Handle handle = Open({"hello"});
        Double().Add(OnCall("ZdvfsClose").OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(31));
        m_manager->ZdReleaseFile(handle);
        return;
    }
    ExpectEnded("ZdReleaseFile: ERROR:  Unhandled exception caught, dwError Code:   31\n");
}

TEST_F(CProcessEndTest, ALongQueueIsWrittenBeforeTheProcessEnds) {
    constexpr int kLines = 2000;
    if (InChild()) {
        StartChild();
        // The writer stood still while the queue grew.
        for (int i = 0; i < kLines; ++i) {
            m_manager->ZdLogMessage(6, ("queued line number " + std::to_string(i) + "\n").c_str());
        }
        Environment().RunWriter();
        m_manager->ZdReleaseFile(0x4711);
        return;
    }
    ExpectEnded("ZdReleaseFile: ERROR:  Unhandled exception caught, dwError Code:   *\n");
    for (const int line : {0, 1, kLines / 2, kLines - 1}) {
        EXPECT_NE(std::string::npos, m_log.find("queued line number " + std::to_string(line) + "\n")) << line;
    }
}

TEST_F(CProcessEndTest, AWriterThatStandsStillDoesNotKeepTheProcess) {
    if (InChild()) {
        StartChild();  // the writer stays held
        m_manager->ZdReleaseFile(0x4711);
        return;
    }
    const ChildResult result = RunSelfInChild();
    EXPECT_EQ(1U, result.exitCode) << result.output;
    EXPECT_FALSE(result.timedOut);
}

}  // namespace
}  // namespace zd::test
