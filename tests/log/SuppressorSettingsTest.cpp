// When the suppression reads its settings, what it takes from them, and what a change of the level does to it.
#include "SuppressorFixture.h"

namespace zd::test {
namespace {

using ::testing::ElementsAre;

constexpr const wchar_t* kInterval = L"LogSuppressorUpdateInterval";
constexpr const wchar_t* kMessages = L"LogNumMsgs";
constexpr const wchar_t* kOccurrences = L"LogOccurLimit";
constexpr const wchar_t* kTime = L"LogTimeLimit";
constexpr const wchar_t* kCharacters = L"LogNumCharsForMatch";
constexpr const wchar_t* kEnabled = L"LogSuppressRepeatedMessages";

class SuppressorSettings : public CSuppressorTest {
protected:
    // Other values than those a logger starts with.
    void ChooseLimits() {
        Suppressor().maxMessages = 3;
        Suppressor().occurrenceLimit = 4;
        Suppressor().timeLimit = 5;
        Suppressor().charsForMatch = 6;
    }

    // "messages occurrences time characters enabled interval"
    std::string Limits() {
        return std::to_string(Suppressor().maxMessages) + " " + std::to_string(Suppressor().occurrenceLimit) + " " +
               std::to_string(static_cast<std::int64_t>(Suppressor().timeLimit)) + " " +
               std::to_string(Suppressor().charsForMatch) + (Suppressor().enabled ? " on " : " off ") +
               std::to_string(Logger().settingsUpdateInterval);
    }
};

TEST_F(SuppressorSettings, AllAreReadOnceTheIntervalHasPassed) {
    ChooseLimits();
    Start();
    SetSetting(kInterval, 100);
    SetSetting(kMessages, 30);
    SetSetting(kOccurrences, 40);
    SetSetting(kTime, 50);
    SetSetting(kCharacters, 60);
    SetSetting(kEnabled, 0);
    ReloadAfter(60);
    EXPECT_EQ("3 4 5 6 on 60", Limits()) << "as long as the interval is not exceeded";
    ReloadAfter(1);
    EXPECT_EQ("30 40 50 60 off 100", Limits());
    EXPECT_EQ(m_now, Logger().settingsLastRead);
    SetSetting(kMessages, 31);
    SetSetting(kEnabled, 1);
    ReloadAfter(100);
    EXPECT_EQ("30 40 50 60 off 100", Limits());
    ReloadAfter(1);
    EXPECT_EQ("31 40 50 60 on 100", Limits());
}

TEST_F(SuppressorSettings, MissingValuesKeepWhatIsInForceAndTheIntervalFallsBackTo60) {
    ChooseLimits();
    Logger().settingsUpdateInterval = 7;
    Start();
    ReloadAfter(1000);
    EXPECT_EQ("3 4 5 6 on 60", Limits());
    SetSetting(kInterval, 7);
    ReloadAfter(61);
    EXPECT_EQ("3 4 5 6 on 7", Limits());
    Registry().DeleteValue(kPluginKey, kInterval);
    ReloadAfter(8);
    EXPECT_EQ("3 4 5 6 on 60", Limits());
}

TEST_F(SuppressorSettings, ZeroKeepsALimitButDisables) {
    ChooseLimits();
    Start();
    for (const wchar_t* const name : {kInterval, kMessages, kOccurrences, kTime, kCharacters, kEnabled}) {
        SetSetting(name, 0);
    }
    ReloadAfter(61);
    EXPECT_EQ("3 4 5 6 off 60", Limits());
}

TEST_F(SuppressorSettings, ValuesOfAnotherTypeOrSizeCountAsMissing) {
    ChooseLimits();
    Start();
    const struct {
        const char* name;
        DWORD type;
        std::vector<std::uint8_t> data;
    } rows[] = {
        {"text", REG_SZ, {'9', 0, 0, 0}},
        {"binary", REG_BINARY, {9, 0, 0, 0}},
        {"64 bits", REG_QWORD, {9, 0, 0, 0, 0, 0, 0, 0}},
        {"too long", REG_DWORD, {9, 0, 0, 0, 0, 0, 0, 0}},
        {"no type", REG_NONE, {9, 0, 0, 0}},
    };
    for (const auto& row : rows) {
        for (const wchar_t* const name : {kInterval, kMessages, kOccurrences, kTime, kCharacters, kEnabled}) {
            Registry().SetRaw(kPluginKey, name, row.type, row.data);
        }
        ReloadAfter(61);
        EXPECT_EQ("3 4 5 6 on 60", Limits()) << row.name;
    }
}

TEST_F(SuppressorSettings, AnyNumberButZeroEnables) {
    Start();
    Suppressor().enabled = false;
    SetSetting(kEnabled, 0x80000000);
    ReloadAfter(61);
    EXPECT_TRUE(Suppressor().enabled);
    SayEach("AAB");
    EXPECT_THAT(Queued(), ElementsAre("A\n", Summary(1, 2), "B\n"));
}

TEST_F(SuppressorSettings, LargestNumbersAreTakenAsTheirFieldsHoldThem) {
    Start();
    for (const wchar_t* const name : {kInterval, kMessages, kOccurrences, kTime, kCharacters}) {
        SetSetting(name, 0xFFFFFFFF);
    }
    ReloadAfter(61);
    EXPECT_EQ("4294967295 -1 4294967295 -1 on 4294967295", Limits());
    SayEach("AA");
    EXPECT_EQ(Lines("AA"), Queued()) << "a negative limit passes every line";
    SetSetting(kMessages, 31);
    ReloadAfter(4294967295);
    EXPECT_EQ(4294967295U, Suppressor().maxMessages) << "not read before the interval is exceeded";
    ReloadAfter(1);
    EXPECT_EQ(31U, Suppressor().maxMessages);
}

TEST_F(SuppressorSettings, HostsIntervalHoldsUntilTheFirstReadingAndZeroCountsAs60) {
    Start();
    SetSetting(kMessages, 30);
    Logger().settingsUpdateInterval = 10;
    ReloadAfter(11);
    EXPECT_EQ(30U, Suppressor().maxMessages);
    EXPECT_EQ(60U, Logger().settingsUpdateInterval);
    SetSetting(kMessages, 31);
    Logger().settingsUpdateInterval = 0;
    ReloadAfter(60);
    EXPECT_EQ(30U, Suppressor().maxMessages);
    ReloadAfter(1);
    EXPECT_EQ(31U, Suppressor().maxMessages);
}

TEST_F(SuppressorSettings, AClockSetBackReadsNothing) {
    Start();
    SetSetting(kMessages, 30);
    ReloadAfter(-100000);
    EXPECT_EQ(16U, Suppressor().maxMessages);
}

TEST_F(SuppressorSettings, AreReadFromTheFormerMakersTreeWhereTheHostSaysSo) {
    Registry().SetDword(kFormerPluginKey, kMessages, 30);
    SetSetting(kMessages, 40);
    Logger().formerMakerKeys = true;
    Start();
    ReloadAfter(61);
    EXPECT_EQ(30U, Suppressor().maxMessages);
}

TEST_F(SuppressorSettings, WithoutAnOpenKeyOnlyTheIntervalChanges) {
    ChooseLimits();
    Start();
    const HKEY key = std::exchange(Logger().settingsKey, nullptr);
    Logger().settingsUpdateInterval = 7;
    SetSetting(kMessages, 30);
    SetSetting(kEnabled, 0);
    ReloadAfter(61);
    EXPECT_EQ("3 4 5 6 on 60", Limits());
    EXPECT_EQ(m_now, Logger().settingsLastRead);
    Logger().settingsKey = key;
}

TEST_F(SuppressorSettings, ConstructionRefreshesTooBeforeTheLevelIsStored) {
    Start();
    SetSetting(kMessages, 30);
    SetSetting(L"DebugLevel", kLogTrace);
    m_now += 61;
    NewManager();
    EXPECT_EQ(30U, Suppressor().maxMessages);
    EXPECT_TRUE(Suppressor().enabled) << "the level before was 2";
    EXPECT_EQ(kLogTrace, Logger().level);
}

TEST_F(SuppressorSettings, ActivityReportsReadNothing) {
    Start();
    SetSetting(kMessages, 30);
    SayEach("AA");
    ClearLogs();
    m_now += 1000;
    m_manager->ZdRefreshSettings(0, true);
    EXPECT_EQ(16U, Suppressor().maxMessages);
    EXPECT_EQ("A2", Remembered());
    EXPECT_LOG();
}

// ---- The level ----

TEST_F(SuppressorSettings, LevelAbove2TurnsSuppressionOffAtTheNextChange) {
    SetSetting(L"DebugLevel", 3);
    Start();
    SayEach("AAA");
    EXPECT_EQ(Lines("A"), Queued()) << "the level before the first change was 1";
    Reload();
    EXPECT_FALSE(Suppressor().enabled);
    ClearLogs();
    SayEach("AAA");
    EXPECT_EQ(Lines("AAA"), Queued());
}

TEST_F(SuppressorSettings, RaisingTheLevelSwitchesOffOneChangeLater) {
    Start();
    SetSetting(L"DebugLevel", 3);
    Reload();
    EXPECT_EQ(3, Logger().level);
    EXPECT_TRUE(Suppressor().enabled);
    Reload();
    EXPECT_FALSE(Suppressor().enabled);
}

TEST_F(SuppressorSettings, LoweringTheLevelEnablesOnlyAtALaterReadingThatSaysSo) {
    SetSetting(L"DebugLevel", 6);
    Start();
    Reload();
    ASSERT_FALSE(Suppressor().enabled);
    SetSetting(L"DebugLevel", 2);
    SetSetting(kEnabled, 1);
    ReloadAfter(61);
    EXPECT_FALSE(Suppressor().enabled) << "read, but the level was still 6";
    Reload();
    EXPECT_FALSE(Suppressor().enabled) << "the interval has not passed";
    ReloadAfter(61);
    EXPECT_TRUE(Suppressor().enabled);
}

// ---- The time limit ----

TEST_F(SuppressorSettings, TimeLimitTellsAndForgetsAtAChangeOfTheLevelOnly) {
    Suppressor().timeLimit = 10;
    Start();
    Suppressor().lastSummary = m_now;
    SayEach("ABAB");
    EXPECT_EQ(Lines("AB"), Queued());
    m_now += 1000;
    SayEach("AB");
    EXPECT_EQ(Texts(), Queued()) << "no line looks at the time";
    Reload();
    EXPECT_THAT(Queued(), ElementsAre(Summary(2, 3)));
    EXPECT_EQ("", Remembered());
    EXPECT_EQ(m_now, Suppressor().lastSummary);
    SayEach("A");
    EXPECT_EQ(Lines("A"), Queued());
}

TEST_F(SuppressorSettings, TimeLimitHasToBeExceeded) {
    Suppressor().timeLimit = 10;
    Start();
    Suppressor().lastSummary = m_now;
    SayEach("AA");
    ClearLogs();
    ReloadAfter(10);
    EXPECT_EQ("A2", Remembered());
    EXPECT_LOG();
    ReloadAfter(1);
    EXPECT_EQ("", Remembered());
    EXPECT_LOG({3, "The previous 1 messages have repeated 2 times\n"});
}

TEST_F(SuppressorSettings, FractionsOfASecondCount) {
    Suppressor().timeLimit = 10.5;
    Start();
    Suppressor().lastSummary = m_now;
    SayEach("A");
    ReloadAfter(10);
    EXPECT_EQ("A1", Remembered());
    ReloadAfter(1);
    EXPECT_EQ("", Remembered());
}

TEST_F(SuppressorSettings, LinesThatCameOnceAreForgottenWithoutASummary) {
    Start();
    SayEach("AB");
    ClearLogs();
    Reload();
    EXPECT_LOG();
    EXPECT_EQ("", Remembered()) << "no summary was ever written, so the limit is long exceeded";
    EXPECT_EQ(0, Suppressor().lastSummary);
}

TEST_F(SuppressorSettings, NewTimeLimitHoldsAtTheChangeThatReadsIt) {
    Start();
    Suppressor().lastSummary = m_now;
    SetSetting(kTime, 1000);
    SayEach("AA");
    ReloadAfter(61);
    EXPECT_EQ("A2", Remembered());
}

TEST_F(SuppressorSettings, SwitchedOffItStillTellsWhatItHeld) {
    Start();
    SayEach("AAA");
    SetSetting(kEnabled, 0);
    ReloadAfter(61);
    EXPECT_THAT(Queued(), ElementsAre("A\n", Summary(1, 3)));
    SayEach("AA");
    EXPECT_EQ(Lines("AA"), Queued());
}

TEST_F(SuppressorSettings, SummaryPrecedesTheNewLevel) {
    Start();
    SayEach("AA");
    SetSetting(L"DebugLevel", 6);
    Reload();
    EXPECT_EQ(6, Logger().level);
    m_manager->ZdControlPath(nullptr);
    EXPECT_THAT(Queued(), ElementsAre("A\n", Summary(1, 2)));
}

}  // namespace
}  // namespace zd::test
