// The storage task's time: when it is renewed, when it is given back, what is sent and what is logged.
#include <atomic>
#include <memory>

#include "harness/PluginFixture.h"
#include "log/ClosurePatches.h"

using namespace zd::test;

namespace {

constexpr std::int64_t kSecond = 10'000'000;  // FILETIME units
constexpr std::int64_t kStart = 133'000'000'000'000'000;

class CTaskTimeTest : public CDoubleTest {
protected:
    void SetUp() override {
        CDoubleTest::SetUp();
        m_patches = std::make_unique<CClosurePatches>(Plugin());
        m_patches->Replace<void(FILETIME*)>("GetSystemTimeAsFileTime", [this](auto /*original*/, FILETIME* time) {
            ++m_reads;
            time->dwLowDateTime = static_cast<DWORD>(m_now);
            time->dwHighDateTime = static_cast<DWORD>(m_now >> 32);
        });
        Double().SetIoctlShape(14, "ii");
        Double().SetIoctlShape(16, "ii");
        ASSERT_EQ(0U, Connect());
        ClearLogs();
    }

    void TearDown() override {
        m_patches.reset();
        CDoubleTest::TearDown();
    }

    void Set(const wchar_t* name, DWORD value) {
        Registry().SetDword(kPluginKey, name, value);
        m_manager->ZdRefreshSettings(0, false);
        ClearLogs();
    }

    // One activity of the host, so many FILETIME units after the first moment; the requests 14 that it sent, with
    // their values and lengths: "630, 4".
    std::vector<std::string> ActivityAt(std::int64_t units, DWORD value = 0) {
        m_now = kStart + units;
        ClearLogs();
        m_manager->ZdRefreshSettings(value, true);
        std::vector<std::string> sent;
        for (const Call& call : Double().Calls()) {
            const std::size_t request = call.arguments.find(", 14, ");
            if (call.function == "ZdvfsVIoctl" && request != std::string::npos) {
                sent.push_back(call.arguments.substr(request + 6));
            }
        }
        return sent;
    }
    std::vector<std::string> Activity(std::int64_t seconds, DWORD value = 0) {
        return ActivityAt(seconds * kSecond, value);
    }

    // The lines since the last activity began.
    static LogLine Renewing(int count) {
        return {6, "DoAddTaskTimeUpdate: renewing task - m_OpenDirectIOorWriteFiles: " + std::to_string(count) + "\n"};
    }
    static LogLine Stopping() { return {6, "DoAddTaskTimeUpdate: stopping task\n"}; }

    std::atomic<std::int64_t> m_now{kStart};
    std::atomic<int> m_reads{0};

private:
    std::unique_ptr<CClosurePatches> m_patches;
};

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(CTaskTimeTest, FirstActivityRenewsWithTheAddedTimeAndTheGivenValue) {
    EXPECT_THAT(Activity(0, 30), ElementsAre("630, 4"));
    EXPECT_LOG(Renewing(0));
}

TEST_F(CTaskTimeTest, RequestsGoThroughThePoolsRootTheTaskBeforeTheFileCount) {
    m_manager->ZdRefreshSettings(30, true);
    EXPECT_CALLS("ZdvfsOpen(\"/pool\", 0x0, 0x0) = *", "ZdvfsVIoctl(*, 14, 630, 4) = 0", "ZdvfsClose(*) = 0",
                 "ZdvfsOpen(\"/pool\", 0x0, 0x0) = *", "ZdvfsVIoctl(*, 16, 1000, 4) = 0", "ZdvfsClose(*) = 0");
}

TEST_F(CTaskTimeTest, EveryActivitySendsTheFileCountOfTheSettings) {
    Activity(0);
    Activity(1);
    EXPECT_CALLS("ZdvfsOpen(\"/pool\", 0x0, 0x0) = *", "ZdvfsVIoctl(*, 16, 1000, 4) = 0", "ZdvfsClose(*) = 0");
    for (const DWORD value : {0U, 1U, 5000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        Set(L"SyncFileCount", value);
        Activity(2);
        EXPECT_CALLS("ZdvfsOpen(\"/pool\", 0x0, 0x0) = *",
                     "ZdvfsVIoctl(*, 16, " + std::to_string(static_cast<int>(value)) + ", 4) = 0", "ZdvfsClose(*) = 0");
    }
}

TEST_F(CTaskTimeTest, ReadingTheSettingsIsNoActivity) {
    m_manager->ZdRefreshSettings(30, false);
    EXPECT_CALLS();
    EXPECT_LOG();
    EXPECT_THAT(Activity(5), ElementsAre("600, 4")) << "the first activity comes now";
}

TEST_F(CTaskTimeTest, SecondActivityIsTooEarlyUntilTheAddedTimeHasPassed) {
    ASSERT_THAT(Activity(0, 30), ElementsAre("630, 4"));
    EXPECT_THAT(Activity(300, 30), IsEmpty());
    EXPECT_LOG();
    EXPECT_THAT(Activity(600, 30), ElementsAre("630, 4"));
    EXPECT_LOG(Renewing(0));
    EXPECT_THAT(Activity(899, 30), IsEmpty());
}

TEST_F(CTaskTimeTest, RenewalIsDueHalfASecondBeforeTheAddedTimeIsOver) {
    Activity(0);
    EXPECT_THAT(ActivityAt(600 * kSecond - 5'000'000), IsEmpty()) << "at most";
    EXPECT_THAT(ActivityAt(600 * kSecond - 4'999'999), ElementsAre("600, 4"));
    const std::int64_t renewed = 600 * kSecond - 4'999'999;
    Set(L"TaskCloseWait", 100000);
    EXPECT_THAT(ActivityAt(renewed + 600 * kSecond - 5'000'000), IsEmpty()) << "counted from the last renewal";
    EXPECT_THAT(ActivityAt(renewed + 600 * kSecond - 4'999'999), ElementsAre("600, 4"));
}

TEST_F(CTaskTimeTest, HostThatCallsEveryAddedTimeRenewsOnEveryCall) {
    Set(L"TaskCloseWait", 100000);
    for (int call = 0; call < 20; ++call) EXPECT_THAT(Activity(call * 600), ElementsAre("600, 4")) << call;
}

TEST_F(CTaskTimeTest, TooEarlyActivitiesDoNotPutTheRenewalOff) {
    Set(L"TaskCloseWait", 100000);
    Activity(0);
    for (int second = 50; second < 600; second += 50) EXPECT_THAT(Activity(second), IsEmpty()) << second;
    EXPECT_THAT(Activity(600), ElementsAre("600, 4"));
}

TEST_F(CTaskTimeTest, EachActivityBringsItsOwnValue) {
    Set(L"TaskCloseWait", 100000);
    EXPECT_THAT(Activity(0, 30), ElementsAre("630, 4"));
    EXPECT_THAT(Activity(600, 0), ElementsAre("600, 4"));
    EXPECT_THAT(Activity(1200, 1000), ElementsAre("1600, 4"));
}

TEST_F(CTaskTimeTest, ActivityWithoutOpenFilesAfterTheCloseWaitStopsTheTask) {
    Activity(0);
    EXPECT_THAT(Activity(900), ElementsAre("0, 4"));
    EXPECT_LOG(Stopping());
}

TEST_F(CTaskTimeTest, StopIsDueHalfASecondBeforeTheCloseWaitIsOver) {
    Set(L"TaskTimeAdd", 10000);
    Activity(0);
    EXPECT_THAT(ActivityAt(900 * kSecond - 5'000'000), IsEmpty()) << "not more";
    EXPECT_LOG();
    EXPECT_THAT(ActivityAt(900 * kSecond - 4'999'999), ElementsAre("0, 4"));
    EXPECT_LOG(Stopping());
}

TEST_F(CTaskTimeTest, CloseWaitCountsFromTheStartNotFromTheLastRenewal) {
    Activity(0);
    ASSERT_THAT(Activity(600), ElementsAre("600, 4"));
    EXPECT_THAT(Activity(900), ElementsAre("0, 4"));
}

TEST_F(CTaskTimeTest, OpenFileForWritingKeepsTheTaskAlive) {
    Activity(0);
    const Handle handle = Create(L"\\a").handle;
    EXPECT_THAT(Activity(900), ElementsAre("600, 4")) << "900 s after the last renewal";
    EXPECT_LOG(Renewing(1));
    EXPECT_THAT(Activity(1000), IsEmpty()) << "not due, and no stop";
    EXPECT_LOG();
    Close(handle);
    EXPECT_THAT(Activity(1001), ElementsAre("0, 4"));
    EXPECT_LOG(Stopping());
}

TEST_F(CTaskTimeTest, CountInTheLineIsThatOfOpenWritingAndDirectHandles) {
    Set(L"TaskCloseWait", 100000);
    const Handle first = Create(L"\\a").handle;
    const Handle second = Create(L"\\a").handle;
    const Handle reader = Create(L"\\a", {.disposition = kZdOpen, .access = 0}).handle;
    Activity(0);
    const std::vector<LogLine> lines = TakeLog();
    ASSERT_EQ(1U, lines.size());
    EXPECT_TRUE(lines[0].text == Renewing(2).text || lines[0].text == Renewing(3).text) << lines[0].text;
    for (const Handle handle : {first, second, reader}) Close(handle);
    Activity(600);
    EXPECT_LOG(Renewing(0));
}

TEST_F(CTaskTimeTest, AfterAStopNothingIsRenewedAnyMore) {
    Activity(0);
    ASSERT_THAT(Activity(900), ElementsAre("0, 4"));
    const Handle handle = Create(L"\\a").handle;
    for (const int second : {901, 1500, 1800, 100000}) {
        EXPECT_THAT(Activity(second, 30), IsEmpty()) << second;
        EXPECT_LOG();
    }
    Close(handle);
    EXPECT_THAT(Activity(200000), IsEmpty()) << "nor stopped again";
    EXPECT_LOG();
}

TEST_F(CTaskTimeTest, AddedTimeOfZeroAfterARenewalSendsZeroOnce) {
    Activity(0);
    Set(L"TaskTimeAdd", 0);
    EXPECT_THAT(Activity(10), ElementsAre("0, 4"));
    EXPECT_LOG();
    EXPECT_THAT(Activity(20), IsEmpty());
    EXPECT_THAT(Activity(2000), IsEmpty());
    EXPECT_LOG();
}

TEST_F(CTaskTimeTest, AddedTimeOfZeroBeforeAnyRenewalSendsNothing) {
    for (const DWORD value : {0U, 0x80000000U, 0xFFFFFFFFU}) {
        Set(L"TaskTimeAdd", value);
        EXPECT_THAT(Activity(0), IsEmpty()) << value;
        EXPECT_LOG();
    }
}

TEST_F(CTaskTimeTest, NegativeAddedTimeTurnsRenewalOffToo) {
    Activity(0);
    Set(L"TaskTimeAdd", 0x80000000);
    EXPECT_THAT(Activity(10), ElementsAre("0, 4"));
    EXPECT_THAT(Activity(20), IsEmpty());
}

TEST_F(CTaskTimeTest, TurnedOnAgainItGoesOnFromTheLastRenewal) {
    Activity(0);
    Set(L"TaskTimeAdd", 0);
    Activity(10);
    Set(L"TaskTimeAdd", 600);
    EXPECT_THAT(Activity(20), IsEmpty());
    EXPECT_THAT(Activity(600), ElementsAre("600, 4"));
    Set(L"TaskTimeAdd", 0);
    EXPECT_THAT(Activity(610), ElementsAre("0, 4")) << "the renewal made it active again";
}

TEST_F(CTaskTimeTest, TurnedOffAfterAStopItStillSendsZeroOnce) {
    Activity(0);
    ASSERT_THAT(Activity(900), ElementsAre("0, 4"));
    Set(L"TaskTimeAdd", 0);
    EXPECT_THAT(Activity(901), ElementsAre("0, 4")) << "a stop leaves the renewal active";
    EXPECT_THAT(Activity(902), IsEmpty());
}

TEST_F(CTaskTimeTest, ActivityWhileTurnedOffIsTheStartAllTheSame) {
    Set(L"TaskTimeAdd", 0);
    EXPECT_THAT(Activity(0), IsEmpty());
    Set(L"TaskTimeAdd", 600);
    EXPECT_THAT(Activity(5), IsEmpty()) << "only the very first activity begins a renewal";
    EXPECT_LOG();
    EXPECT_THAT(Activity(0), ElementsAre("600, 4")) << "whose time is what counts";
}

TEST_F(CTaskTimeTest, NegativeSumChangesTheStateAndIsLoggedButNotSent) {
    EXPECT_THAT(Activity(0, 0x7FFFFFFF), IsEmpty());
    EXPECT_LOG(Renewing(0));
    EXPECT_THAT(Activity(300), IsEmpty()) << "it counts as renewed";
    EXPECT_LOG();
    EXPECT_THAT(Activity(600), ElementsAre("600, 4"));
    Set(L"TaskTimeAdd", 0);
    EXPECT_THAT(Activity(601), ElementsAre("0, 4"));
}

TEST_F(CTaskTimeTest, NegativeSumMakesTheRenewalActive) {
    EXPECT_THAT(Activity(0, 0xFFFFFC00), IsEmpty());
    Set(L"TaskTimeAdd", 0);
    EXPECT_THAT(Activity(1), ElementsAre("0, 4"));
}

TEST_F(CTaskTimeTest, SumsAreThoseOf32Bits) {
    const Handle writing = Create(L"\\a").handle;  // no wait ends the task
    static const struct {
        DWORD add;
        DWORD value;
        const char* sent;
    } kRows[] = {
        {600, 0xFFFFFDA8, "0, 4"},         // comes out at 2^32
        {600, 0xFFFFFFFF, "599, 4"},       // one less
        {1, 0x7FFFFFFE, "2147483647, 4"},  // the largest
        {1, 0x7FFFFFFF, nullptr},          // negative
        {0x7FFFFFFF, 0, "2147483647, 4"},  // the largest setting that renews
        {0x7FFFFFFF, 0x80000001, "0, 4"},  // over and round
    };
    std::int64_t time = 0;
    for (const auto& row : kRows) {
        Set(L"TaskTimeAdd", row.add);
        const std::vector<std::string> sent = Activity(time, row.value);
        if (row.sent == nullptr) {
            EXPECT_THAT(sent, IsEmpty()) << row.add << " + " << row.value;
        } else {
            EXPECT_THAT(sent, ElementsAre(row.sent)) << row.add << " + " << row.value;
        }
        time += 0x7FFFFFFF;
    }
    Close(writing);
}

TEST_F(CTaskTimeTest, CloseWaitOfZeroIsTheDefault) {
    Set(L"TaskCloseWait", 0);
    Activity(0);
    EXPECT_THAT(Activity(899), ElementsAre("600, 4"));
    EXPECT_THAT(Activity(900), ElementsAre("0, 4"));
}

TEST_F(CTaskTimeTest, SettingsOfAnotherTypeCountAsAbsent) {
    Registry().SetText(kPluginKey, L"TaskTimeAdd", L"5");
    Registry().SetRaw(kPluginKey, L"TaskCloseWait", REG_QWORD, {5, 0, 0, 0, 0, 0, 0, 0});
    m_manager->ZdRefreshSettings(0, false);
    EXPECT_THAT(Activity(0), ElementsAre("600, 4"));
    EXPECT_THAT(Activity(599), IsEmpty());
    EXPECT_THAT(Activity(600), ElementsAre("600, 4"));
}

TEST_F(CTaskTimeTest, SettingsHoldOnceTheyAreReadAnew) {
    Registry().SetDword(kPluginKey, L"TaskTimeAdd", 100);
    EXPECT_THAT(Activity(0), ElementsAre("600, 4"));
    m_manager->ZdRefreshSettings(0, false);
    EXPECT_THAT(Activity(100), ElementsAre("100, 4"));
}

TEST_F(CTaskTimeTest, LargestCloseWaitDoesNotOverflow) {
    Set(L"TaskCloseWait", 0xFFFFFFFF);
    Set(L"TaskTimeAdd", 1);
    Activity(0);
    EXPECT_THAT(Activity(0x7FFFFFFF), ElementsAre("1, 4"));
    EXPECT_THAT(Activity(0xFFFFFFFELL), ElementsAre("1, 4"));
    EXPECT_THAT(Activity(0xFFFFFFFFLL), ElementsAre("0, 4"));
    EXPECT_LOG(Stopping());
}

TEST_F(CTaskTimeTest, ClockSetBackNeitherRenewsNorStops) {
    Activity(0);
    EXPECT_THAT(Activity(-100000), IsEmpty());
    EXPECT_LOG();
    EXPECT_THAT(Activity(600), ElementsAre("600, 4"));
}

TEST_F(CTaskTimeTest, StateIsThatOfTheProcess) {
    IProtocolManager* const other = NewManager();
    const ConnectParameters parameters = Parameters(L"second");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    EXPECT_THAT(Activity(0), ElementsAre("600, 4", "600, 4")) << "one for each mounted pool";
    m_now = kStart + 300 * kSecond;
    ClearLogs();
    other->ZdRefreshSettings(0, true);
    EXPECT_CALLS("ZdvfsOpen(\"/pool\", 0x0, 0x0) = *", "ZdvfsVIoctl(*, 16, 1000, 4) = 0", "ZdvfsClose(*) = 0",
                 "ZdvfsOpen(\"/second\", 0x0, 0x0) = *", "ZdvfsVIoctl(*, 16, 1000, 4) = 0", "ZdvfsClose(*) = 0");
    EXPECT_LOG();
}

TEST_F(CTaskTimeTest, WithoutAMountTheStateChangesAndNothingIsSent) {
    ASSERT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_THAT(Activity(0), IsEmpty());
    EXPECT_LOG(Renewing(0));
    EXPECT_CALLS();
    ASSERT_EQ(0U, Connect());
    EXPECT_THAT(Activity(300), IsEmpty());
    EXPECT_THAT(Activity(600), ElementsAre("600, 4"));
}

TEST_F(CTaskTimeTest, FailingRequestsChangeNothing) {
    Double().Add(OnCall("ZdvfsVIoctl").Fails(EINVAL));
    EXPECT_THAT(Activity(0), ElementsAre("600, 4"));
    EXPECT_LOG(Renewing(0));
    EXPECT_THAT(Activity(300), IsEmpty()) << "it counts as renewed";
    Double().ClearRules();
    Double().Add(OnCall("ZdvfsOpen").Fails(EACCES));
    EXPECT_THAT(Activity(600), IsEmpty());
    EXPECT_LOG(Renewing(0));
}

TEST_F(CTaskTimeTest, NoExceptionLeavesTheActivity) {
    for (const char* const function : {"ZdvfsOpen", "ZdvfsVIoctl", "wcstoutf8_buf"}) {
        for (const EThrow thrown : {EThrow::kBadAlloc, EThrow::kRuntimeError, EThrow::kUnsignedLong}) {
            Double().ClearRules();
            Double().Add(OnCall(function).Throws(thrown, 5));
            EXPECT_NO_THROW(m_manager->ZdRefreshSettings(0, true)) << function;
        }
    }
}

TEST_F(CTaskTimeTest, ActivityReadsTheTimeOnceAndOnceMoreWhereSomethingChanged) {
    Logger().level = kLogError;  // each line reads it too
    m_reads = 0;
    Activity(0);
    EXPECT_EQ(1, m_reads);
    Close(Create(L"\\a").handle);
    m_reads = 0;
    Activity(1);
    EXPECT_EQ(2, m_reads) << "the time of the change is noted";
    m_reads = 0;
    Activity(2);
    EXPECT_EQ(1, m_reads) << "the change was taken note of";
}

TEST_F(CTaskTimeTest, ReadingTheSettingsNotesAChangeToo) {
    Set(L"DebugLevel", kLogError);  // lines read the time too
    const auto readsOfARefresh = [&]() -> int {
        m_reads = 0;
        m_manager->ZdRefreshSettings(0, false);
        return m_reads;
    };
    const auto forTheLog = readsOfARefresh();
    EXPECT_EQ(forTheLog, readsOfARefresh());
    Close(Create(L"\\a").handle);
    EXPECT_EQ(forTheLog + 1, readsOfARefresh());
    EXPECT_EQ(forTheLog, readsOfARefresh());
}

}  // namespace
