// Which lines pass and which are counted, in sequences that a test writes line by line.
#include "SuppressorFixture.h"

#include <limits>

namespace zd::test {
namespace {

using Suppression = CSuppressorTest;
using ::testing::ElementsAre;

TEST_F(Suppression, CycleOfTwoIsWrittenOnceAndToldBeforeTheLineThatBreaksIt) {
    Suppressor().maxMessages = 2;
    Start();
    SayEach("ABABAB");
    EXPECT_THAT(Queued(), ElementsAre("A\n", "B\n"));
    SayEach("C");
    EXPECT_THAT(Queued(), ElementsAre("The previous 2 messages have repeated 3 times\n", "C\n"));
    EXPECT_EQ("C1", Remembered());
}

TEST_F(Suppression, LineInARowIsWrittenOnceAndToldBeforeTheNext) {
    Start();
    SayEach("AAAB");
    EXPECT_THAT(Queued(), ElementsAre("A\n", "The previous 1 messages have repeated 3 times\n", "B\n"));
}

TEST_F(Suppression, LineRepeatedOutOfOrderIsWrittenAgainWithoutASummaryWhereTheOldestCameOnce) {
    Start();
    SayEach("ABB");
    EXPECT_THAT(Queued(), ElementsAre("A\n", "B\n", "B\n"));
    EXPECT_EQ("B1", Remembered());
}

TEST_F(Suppression, OccurrenceLimitTellsAtOnceAndBeginsAnew) {
    Suppressor().occurrenceLimit = 3;
    Start();
    SayEach("AAA");
    EXPECT_THAT(Queued(), ElementsAre("A\n"));
    SayEach("A");
    EXPECT_THAT(Queued(), ElementsAre("The previous 1 messages have repeated 4 times\n"));
    EXPECT_EQ("", Remembered());
    SayEach("A");
    EXPECT_THAT(Queued(), ElementsAre("A\n"));
}

TEST_F(Suppression, SequencesComeOutAsTold) {
    const auto told = [](int messages, int times) { return Summary(messages, times); };
    const std::vector<std::string> a = {"A\n"};
    const struct {
        const char* name;
        const char* lines;
        std::uint64_t most;
        std::int32_t limit;
        Texts written;
        const char* remembered;
    } rows[] = {
        {"distinct lines pass", "ABCD", 16, 1000, Lines("ABCD"), "A1 B1 C1 D1"},
        {"a full list loses its oldest line", "ABCD", 2, 1000, Lines("ABCD"), "C1 D1"},
        {"a line that was lost is new", "ABCA", 2, 1000, Lines("ABCA"), "C1 A1"},
        {"losing a line tells nothing", "ABCB", 2, 1000, Lines("ABC"), "B2 C1"},
        {"a list for one line", "AABB", 1, 1000, {"A\n", told(1, 2), "B\n"}, "B2"},
        {"a list for no line is one for one", "AABB", 0, 1000, {"A\n", told(1, 2), "B\n"}, "B2"},
        {"a cycle of three", "ABCABCD", 16, 1000, {"A\n", "B\n", "C\n", told(3, 2), "D\n"}, "D1"},
        {"a cycle that breaks in the middle goes on unseen", "ABAC", 16, 1000, Lines("ABC"), "A2 B1 C1"},
        {"and is told by the line after it", "ABACBCD", 16, 1000, {"A\n", "B\n", "C\n", told(3, 2), "D\n"}, "D1"},
        {"a line ahead of the one before it", "ABABB", 16, 1000, {"A\n", "B\n", told(2, 2), "B\n"}, "B1"},
        {"skipping a line of the cycle", "ABCAC", 16, 1000, {"A\n", "B\n", "C\n", told(3, 2), "C\n"}, "C1"},
        {"the oldest line may come ahead", "ABAAB", 16, 1000, Lines("AB"), "A3 B2"},
        {"a limit of one", "AAA", 16, 1, {"A\n", told(1, 2), "A\n"}, "A1"},
        {"a limit of zero passes every line", "AAAB", 16, 0, Lines("AAAB"), ""},
        {"so does a negative one", "AAAB", 16, -1, Lines("AAAB"), ""},
        {"a limit reached by the cycle's first line", "ABABABA", 16, 3, {"A\n", "B\n", told(2, 4)}, ""},
        {"the highest limit", "AAAA", 16, std::numeric_limits<std::int32_t>::max(), a, "A4"},
    };
    Start();
    for (const auto& row : rows) {
        for (const RecentMessage& message : Suppressor().recent) delete message.record;
        Suppressor().recent.clear();
        Suppressor().maxMessages = row.most;
        Suppressor().occurrenceLimit = row.limit;
        SayEach(row.lines);
        EXPECT_EQ(row.written, Queued()) << row.name;
        EXPECT_EQ(row.remembered, Remembered()) << row.name;
    }
}

TEST_F(Suppression, LinesAreTheSameWhenTheirFirstCharactersAre) {
    const struct {
        const char* first;
        const char* second;
        std::int32_t characters;
        bool same;
    } rows[] = {
        {"abcdX\n", "abcdY\n", 4, true},
        {"abcdX\n", "abcdY\n", 5, false},
        {"abcd\n", "abcdefgh\n", 4, true},
        {"abc", "abcd", 4, false},
        {"abc", "ab", 4, false},
        {"abc", "abd", 4, false},
        {"abc", "abc", 4, true},
        {"", "", 4, true},
        {"", "a", 4, false},
        {"one\n", "other\n", 0, true},
        {"one\n", "other\n", -1, true},
        {"one\n", "other\n", std::numeric_limits<std::int32_t>::min(), true},
        {"one\n", "One\n", 256, false},
        {"one\n", "one\n", std::numeric_limits<std::int32_t>::max(), true},
        {"\xc3\xa4", "\xc3\xb6", 1, true},
    };
    Start();
    for (const auto& row : rows) {
        for (const RecentMessage& message : Suppressor().recent) delete message.record;
        Suppressor().recent.clear();
        Suppressor().charsForMatch = row.characters;
        Say(row.first);
        Say(row.second);
        EXPECT_EQ(row.same ? 1U : 2U, Queued().size()) << row.first << " and " << row.second << ", " << row.characters;
    }
}

TEST_F(Suppression, ListShortenedLaterLosesOneLineForEachNewOne) {
    Start();
    SayEach("ABCD");
    Suppressor().maxMessages = 2;
    SayEach("E");
    EXPECT_EQ("B1 C1 D1 E1", Remembered());
    EXPECT_EQ(Lines("ABCDE"), Queued());
}

TEST_F(Suppression, RepeatUpdatesLevelAndLastTimeOfTheRememberedLine) {
    Start();
    Say("A\n", kLogError);
    m_now += 5;
    Say("A\n", kLogWarning);
    ASSERT_EQ(1U, Suppressor().recent.size());
    const RecentMessage& message = Suppressor().recent.front();
    EXPECT_EQ(2U, message.record->level);
    EXPECT_EQ(1700000000, message.firstSeen);
    EXPECT_EQ(1700000005, message.lastSeen);
    EXPECT_EQ(2, message.count);
    EXPECT_EQ(1700000000, message.record->created);
    EXPECT_LOG({1, "A\n"});
}

TEST_F(Suppression, RepeatOutOfOrderIsWrittenAtItsOwnLevel) {
    Start();
    SayEach("AB");
    Say("B\n", kLogWarning);
    EXPECT_LOG({1, "A\n"}, {1, "B\n"}, {2, "B\n"});
}

TEST_F(Suppression, SummaryIsANoticeEvenWhereNoticesDoNotPass) {
    SetSetting(L"DebugLevel", 1);
    Start();
    SayEach("AAB");
    EXPECT_LOG({1, "A\n"}, {3, "The previous 1 messages have repeated 2 times\n"}, {1, "B\n"});
}

TEST_F(Suppression, SummaryBelongsToTheCallingThreadThisProcessAndTheTimeOfItsWriting) {
    Start();
    const ProcessEntry other{4711, "other.exe"};
    Logger().threadAttribution[::GetCurrentThreadId()] = ThreadAttribution{99, &other};
    SayEach("AA");
    m_now += 7;
    SayEach("B");
    ::EnterCriticalSection(&Logger().lock);
    const std::deque<LogRecord> queue = Logger().queue;
    ::LeaveCriticalSection(&Logger().lock);
    ASSERT_EQ(3U, queue.size());
    EXPECT_EQ(99U, queue[0].threadId);
    EXPECT_EQ(&other, queue[0].process);
    EXPECT_EQ(::GetCurrentThreadId(), queue[1].threadId);
    EXPECT_EQ(Logger().currentProcess, queue[1].process);
    EXPECT_EQ(1700000007, queue[1].created);
    EXPECT_EQ(3U, queue[1].level);
    EXPECT_EQ(99U, queue[2].threadId);
    EXPECT_EQ(1700000007, Suppressor().lastSummary);
}

TEST_F(Suppression, NoSummaryMeansNoTimeOfOne) {
    Start();
    SayEach("ABBCD");
    EXPECT_EQ(0, Suppressor().lastSummary);
}

TEST_F(Suppression, LinesPassUncountedWhileItIsOff) {
    Start();
    Suppressor().enabled = false;
    SayEach("AAABAB");
    EXPECT_EQ(Lines("AAABAB"), Queued());
    EXPECT_EQ("", Remembered());
}

TEST_F(Suppression, LinesThatDoNotPassTheLevelBreakNoCycle) {
    Start();
    Say("A\n");
    Say("trace\n", kLogTrace);
    Say("A\n");
    EXPECT_EQ("A2", Remembered());
    EXPECT_LOG({1, "A\n"});
}

TEST_F(Suppression, LineThatWasTheFirstOfTheProcessIsRemembered) {
    Suppressor().enabled = true;
    m_manager = NewManager();
    SayEach("AAB");
    EXPECT_THAT(Queued(), ElementsAre("A\n", "The previous 1 messages have repeated 2 times\n", "B\n"));
}

TEST_F(Suppression, RepeatedFailuresOfAnOperationAreFolded) {
    SetSetting(L"HighestValidNameChar", L'z');
    Start();
    ASSERT_EQ(0U, Connect());
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(123U, Create(L"\\{").code);
    const Texts once = Queued();
    ASSERT_FALSE(once.empty());
    Say("done\n");
    EXPECT_THAT(Queued(), ElementsAre(Summary(static_cast<int>(once.size()), 1000), "done\n"));
}

TEST_F(Suppression, SummaryReachesTheFileInItsPlace) {
    Start();
    SayEach("AAB");
    Environment().RunWriter();
    ASSERT_TRUE(Environment().DrainLog());
    const std::string file = Environment().LogText();
    const std::size_t summary = file.find(" - The previous 1 messages have repeated 2 times\r\n");
    ASSERT_NE(std::string::npos, summary) << file;
    EXPECT_LT(file.find(" - A\r\n"), summary);
    EXPECT_GT(file.find(" - B\r\n"), summary);
    for (const EventReport& report : Environment().EventReports()) {
        EXPECT_THAT(report.strings, ::testing::Not(::testing::Contains(Summary(1, 2)))) << "a notice is no event";
    }
}

}  // namespace
}  // namespace zd::test
