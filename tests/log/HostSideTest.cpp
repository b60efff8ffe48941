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

}  // namespace
}  // namespace zd::test
