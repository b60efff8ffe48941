// Slots 23 to 26 and 28.
#include <cstdlib>
#include <ctime>

#include "harness/PluginFixture.h"
#include "log/ClosurePatches.h"

using namespace zd::test;

namespace {

class CTrivialSlotTest : public CConnectedTest {};

// ---- 23 to 25 ----

TEST_F(CTrivialSlotTest, StubsAnswerOneWhateverTheyAreGiven) {
    const CObjectSlots slots(m_manager);
    for (const int slot : {23, 24, 25}) {
        EXPECT_EQ(1U, slots.Code(slot, {})) << slot;
        EXPECT_EQ(1U, slots.Code(slot, {8}, 0)) << slot;
        EXPECT_EQ(1U, slots.Code(slot, {8, 4, 8}, nullptr, -1, 0x7FFFFFFFFFFFFFFF)) << slot;
    }
    EXPECT_LOG();
    EXPECT_ALL_CALLS();
}

// ---- 26 ----

TEST_F(CTrivialSlotTest, LogMessageIsFilteredByTheLevelLikeEveryLine) {
    Registry().SetDword(kPluginKey, L"DebugLevel", 3);
    m_manager->ZdRefreshSettings(0, false);
    ClearLogs();
    m_manager->ZdLogMessage(3, "as high as the level\n");
    m_manager->ZdLogMessage(4, "above it\n");
    m_manager->ZdLogMessage(1, "below it\n");
    EXPECT_LOG({3, "as high as the level\n"}, {1, "below it\n"});
}

TEST_F(CTrivialSlotTest, LogMessageIsPassedUnchanged) {
    m_manager->ZdLogMessage(2, "100% %s %n \xc3\xa4 without an end");
    EXPECT_LOG({2, "100% %s %n \xc3\xa4 without an end"});
}

TEST_F(CTrivialSlotTest, NullMessageIsIgnored) {
    m_manager->ZdLogMessage(1, nullptr);
    EXPECT_LOG();
}

TEST_F(CTrivialSlotTest, TheRecordThatEndsTheWriterCannotBeSentAsAMessage) {
    Registry().SetDword(kPluginKey, L"DebugLevel", 1000);
    m_manager->ZdRefreshSettings(0, false);
    ClearLogs();
    m_manager->ZdLogMessage(666, "stop\n");
    m_manager->ZdLogMessage(665, "a line\n");
    EXPECT_LOG({665, "a line\n"});
}

// ---- 28 ----

TEST_F(CTrivialSlotTest, RandomTagIsTheNumberAsSignedTextOfAtLeastSixCharacters) {
    unsigned number = 0;
    CClosurePatches patches(Plugin());
    patches.Replace<int(unsigned*)>("rand_s", [&](auto, unsigned* value) {
        *value = number;
        return 0;
    });
    static const struct {
        unsigned number;
        const wchar_t* tag;
    } kRows[] = {{0, L"     0"},
                 {42, L"    42"},
                 {123456, L"123456"},
                 {1234567, L"1234567"},
                 {0x7FFFFFFF, L"2147483647"},
                 {0x80000000, L"-2147483648"},
                 {0xFFFFFFFF, L"    -1"}};
    for (const auto& row : kRows) {
        number = row.number;
        EXPECT_EQ(row.tag, m_manager->ZdGetRandomTag()) << row.number;
    }
    EXPECT_LOG();
    EXPECT_ALL_CALLS();
}

TEST_F(CTrivialSlotTest, RandomTagSeedsTheGeneratorWithTheTimeAndDrawsOnce) {
    std::vector<std::string> calls;
    CClosurePatches patches(Plugin());
    patches.Replace<__time64_t(__time64_t*)>("_time64", [](auto, __time64_t* out) -> __time64_t {
        if (out != nullptr) *out = 1700000123;
        return 1700000123;
    });
    patches.Replace<void(unsigned)>("srand",
                                    [&](auto, unsigned seed) { calls.push_back("srand " + std::to_string(seed)); });
    patches.Replace<int(unsigned*)>("rand_s", [&](auto original, unsigned* value) {
        calls.push_back("rand_s");
        return original(value);
    });
    m_manager->ZdGetRandomTag();
    EXPECT_THAT(calls, ::testing::ElementsAre("srand 1700000123", "rand_s"));
}

TEST_F(CTrivialSlotTest, RandomTagsOfOneSecondDiffer) {
    CClosurePatches patches(Plugin());
    patches.Replace<__time64_t(__time64_t*)>("_time64", [](auto, __time64_t* out) -> __time64_t {
        if (out != nullptr) *out = 1700000123;
        return 1700000123;
    });
    // 16 numbers of 32 bits that are all the same do not happen.
    std::set<std::wstring> tags;
    for (int i = 0; i < 16; ++i) tags.insert(m_manager->ZdGetRandomTag());
    EXPECT_GT(tags.size(), 1U);
}

}  // namespace
