// Which lines pass, and what happens to those that do not.
#include <gtest/gtest.h>

#include <limits>

#include "LogFixture.h"

namespace zd::test {
namespace {

using LogLevel = CLogTest;

TEST_F(LogLevel, LevelZeroBehavesAsOneAndIsStoredAsOne) {
    LogToSandbox();
    Start(0);
    Say(2, "warning\n");
    EXPECT_EQ(Logger().level, 1);
    Say(1, "error\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), Texts{"error"});
}

TEST_F(LogLevel, NegativeLevelBehavesAsOneAndIsStoredAsOne) {
    LogToSandbox();
    Start(std::numeric_limits<std::int32_t>::min());
    Say(2, "warning\n");
    EXPECT_EQ(Logger().level, 1);
    Say(1, "error\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), Texts{"error"});
}

TEST_F(LogLevel, LineAtSixIsWrittenAtLevelSix) {
    LogToSandbox();
    Start(6);
    Say(6, "trace\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), Texts{"trace"});
}

TEST_F(LogLevel, LineAtSixIsDroppedBeforeAnyWorkAtLevelFive) {
    LogToSandbox();
    Start(5);
    Say(6, "trace\n");
    EXPECT_FALSE(Logger().initialised);
    EXPECT_FALSE(Logger().lockInitialised);
    EXPECT_EQ(Logger().writerThread, nullptr);
    EXPECT_TRUE(Logger().queue.empty());
    EXPECT_TRUE(FilesIn(m_logDirectory).empty());
    EXPECT_TRUE(Debugged().empty());
}

TEST_F(LogLevel, EachLevelPassesUpToTheOneInForce) {
    LogToSandbox();
    Start(3);
    for (std::int32_t level = 1; level <= 6; ++level) Say(level, (std::to_string(level) + "\n").c_str());
    Logger().level = 5;
    for (std::int32_t level = 1; level <= 6; ++level) Say(level, ("later " + std::to_string(level) + "\n").c_str());
    Finish();
    EXPECT_EQ(LoggedTexts(), (Texts{"1", "2", "3", "later 1", "later 2", "later 3", "later 4", "later 5"}));
}

TEST_F(LogLevel, LineOfLevelZeroOrBelowPassesAndIsNoEvent) {
    LogToSandbox();
    Start(1);
    Say(0, "zero\n");
    Say(-1, "minus\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), (Texts{"zero", "minus"}));
    EXPECT_TRUE(Events().empty());
}

TEST_F(LogLevel, StopRecordsLevelIsNotALine) {
    LogToSandbox();
    Start(1000);
    Say(666, "not a line\n");
    EXPECT_FALSE(Logger().initialised) << "nothing was to be done for it";
    Say(667, "a line\n");
    Say(665, "another\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), (Texts{"a line", "another"})) << "the writer went on";
}

TEST_F(LogLevel, NullTextIsIgnored) {
    LogToSandbox();
    Start();
    Say(1, nullptr);
    EXPECT_FALSE(Logger().initialised);
    Say(1, "text\n");
    Say(1, nullptr);
    Finish();
    EXPECT_EQ(LoggedTexts(), Texts{"text"});
}

TEST_F(LogLevel, PercentSignsInFinishedTextAreJustText) {
    LogToSandbox();
    LogThese(1, {"100%s %n %d\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"100%s %n %d"});
}

TEST_F(LogLevel, WithoutALoggerNothingIsLoggedUntilOneComes) {
    LogToSandbox();
    m_manager = GetProtocol(nullptr);
    ASSERT_NE(m_manager, nullptr);
    Say(1, "too early\n");
    m_manager->Release();
    LogThese(1, {"in time\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"in time"});
}

TEST_F(LogLevel, SecondLoggerInOneProcessIsIgnored) {
    LogToSandbox();
    Start();
    CLogger second;
    IProtocolManager* other = GetProtocol(&second);
    ASSERT_NE(other, nullptr);
    Logger().level = kLogTrace;
    other->ZdLogMessage(6, "through the other object\n");
    Say(6, "through the first object\n");
    other->Release();
    Logger().level = 1;
    Finish();
    EXPECT_EQ(LoggedTexts(),
              (Texts{"through the other object", "through the first object", "~CProtocolManager Enter"}));
    EXPECT_FALSE(second.initialised);
    EXPECT_FALSE(second.lockInitialised);
    EXPECT_TRUE(second.queue.empty());
}

}  // namespace
}  // namespace zd::test
