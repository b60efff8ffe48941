// The operations that a host calls on its own side of the shared object, and the end of the log.
#include <gtest/gtest.h>

#include "LogFixture.h"

namespace zd::test {
namespace {

using LogHostSide = CLogTest;

TEST_F(LogHostSide, HostsLinesGoThroughThePluginsWriter) {
    LogToSandbox();
    Start(3);
    EXPECT_FALSE(Logger().Log(1, "no writer runs yet\n"));
    Say(1, "plug-in\n");
    EXPECT_TRUE(Logger().Log(3, "host\n"));
    EXPECT_FALSE(Logger().Log(6, "not passing\n"));
    EXPECT_FALSE(Logger().Log(1, nullptr));
    Say(3, "plug-in again\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), (Texts{"plug-in", "host", "plug-in again"}));
    EXPECT_EQ(LogBytes().find(":UNKNOWN"), std::string::npos);
}

TEST_F(LogHostSide, LevelBelowOneCountsAsOneOnTheHostsSideToo) {
    Start();
    EXPECT_EQ(Logger().SetLevel(0), 1);
    EXPECT_EQ(Logger().level, 1);
    EXPECT_EQ(Logger().SetLevel(4), 4);
    EXPECT_EQ(Logger().GetLevel(), 4);
    Logger().level = -3;
    EXPECT_EQ(Logger().GetLevel(), 1);
}

TEST_F(LogHostSide, StopWithoutAWriterIsDoneAtOnce) {
    Start();
    EXPECT_TRUE(Logger().Stop(0));
    EXPECT_TRUE(Logger().queue.empty());
}

TEST_F(LogHostSide, StopFinishesTheQueueFlushesAndEndsTheWriter) {
    LogToSandbox();
    Start();
    for (int line = 0; line < 500; ++line) Say(6, "line\n");
    EXPECT_TRUE(Logger().Stop(20000));
    EXPECT_EQ(::WaitForSingleObject(Logger().writerThread, 0), WAIT_OBJECT_0);
    DWORD code = 1;
    ::GetExitCodeThread(Logger().writerThread, &code);
    EXPECT_EQ(code, 0u);
    EXPECT_TRUE(Logger().queue.empty()) << "the stop record is taken off, too";
    EXPECT_EQ(LoggedTexts(), Texts(500, "line")) << "the file is flushed";
}

TEST_F(LogHostSide, StopRecordItselfIsNotWritten) {
    LogToSandbox();
    LogThese(6, {"line\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
    EXPECT_EQ(DebuggedLines(), Texts{"line\n"});
    EXPECT_TRUE(Events().empty());
}

TEST_F(LogHostSide, LinesAfterTheStopAreNotQueued) {
    LogToSandbox();
    LogThese(6, {"before\n"});
    for (int line = 0; line < 100; ++line) Say(1, "after\n");
    EXPECT_TRUE(Logger().queue.empty());
    EXPECT_EQ(LoggedTexts(), Texts{"before"});
}

TEST_F(LogHostSide, SecondStopIsDoneAtOnce) {
    LogToSandbox();
    Start();
    Say(6, "line\n");
    EXPECT_TRUE(Logger().Stop(20000));
    EXPECT_TRUE(Logger().Stop(0));
}

TEST_F(LogHostSide, RecordWithoutAProcessIsShownAsTheHostsOwn) {
    LogToSandbox();
    Start();
    Say(1, "brings the log up\n");
    ASSERT_TRUE(WaitForEmptyQueue());
    ::EnterCriticalSection(&Logger().lock);
    Logger().queue.push_back(LogRecord{1, "bare\n", ::_time64(nullptr), 77, nullptr});
    ::LeaveCriticalSection(&Logger().lock);
    ::SetEvent(Logger().wakeEvent);
    Finish();
    EXPECT_NE(LogBytes().find("(" + std::to_string(::GetCurrentProcessId()) + ":" + OwnImageName() + ", 77) - bare"),
              std::string::npos);
}

TEST_F(LogHostSide, LinesQueuedBeforeTheWriterIsThereAreWritten) {
    LogToSandbox();
    Logger().queue.push_back(LogRecord{1, "queued early\n", ::_time64(nullptr), 77, nullptr});
    Start();
    Say(1, "brings the log up\n");
    ASSERT_TRUE(WaitForEmptyQueue());
    Finish();
    EXPECT_NE(LogBytes().find("queued early"), std::string::npos);
    EXPECT_NE(LogBytes().find("brings the log up"), std::string::npos);
}

// ---- A host that writes the log itself ----

DWORD WINAPI WaitForEvent(void* event) {
    return ::WaitForSingleObject(event, INFINITE);
}

TEST_F(LogHostSide, HostsOwnWriterGetsTheLinesUntilItEnds) {
    const HANDLE stop = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE writer = ::CreateThread(nullptr, 0, &WaitForEvent, stop, 0, &Logger().writerThreadId);
    ASSERT_NE(nullptr, writer);
    Logger().wakeEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    Logger().writerThread = writer;
    Start();
    Say(1, "for the host's writer\n");
    EXPECT_EQ(Logger().writerThread, writer) << "no second one is started";
    EXPECT_EQ(::WaitForSingleObject(Logger().wakeEvent, 0), WAIT_OBJECT_0);
    ASSERT_EQ(Logger().queue.size(), 1u);
    EXPECT_EQ(Logger().queue.front().text, "for the host's writer\n");
    ::SetEvent(stop);
    ASSERT_EQ(::WaitForSingleObject(writer, 20000), WAIT_OBJECT_0);
    Say(1, "for nobody\n");
    EXPECT_EQ(Logger().queue.size(), 1u);
    Logger().queue.clear();
    ::CloseHandle(stop);
}

TEST_F(LogHostSide, LogThatAHostBroughtUpWithoutAWriterTakesNoLines) {
    ::InitializeCriticalSection(&Logger().lock);
    Logger().lockInitialised = true;
    Logger().initialised = true;
    Start();
    Say(1, "for nobody\n");
    EXPECT_TRUE(Logger().queue.empty());
    EXPECT_EQ(Logger().writerThread, nullptr);
}

}  // namespace
}  // namespace zd::test
