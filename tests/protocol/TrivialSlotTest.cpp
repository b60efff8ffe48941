// Slots 23 to 26 and 28, and the ones that this build does not carry out.
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

// ---- Not carried out by this build ----

// No slot may pretend to have done something: an error, no storage call, no out argument touched.
TEST_F(CTrivialSlotTest, UnimplementedSlotsAnswerAnErrorAndMakeNoStorageCall) {
    Double().MakeFile("pool/a.txt", "hello");
    Double().MakeDirectory("pool/dir");
    const Handle file = Create(L"\\a.txt").handle;
    const Handle directory = Create(L"\\dir", {.isDirectory = 1, .disposition = kZdOpen}).handle;
    const CSlots slots(m_manager);
    FileInformation information{};
    information.size = 4711;
    VolumeInformation volume{};
    volume.totalUnits = 4711;
    DirectoryEntry* entries = nullptr;
    DWORD count = kUntouched;
    ClearLogs();
    for (const Handle handle : {file, directory, Handle{0}, Handle{0x1234}}) {
        EXPECT_EQ(120U, slots.Call(5, handle, &information)) << handle;
        EXPECT_EQ(120U, slots.Call(8, handle, 1, 2, 3, 4, 0x21)) << handle;
        EXPECT_EQ(120U, slots.Call(10, handle, L"\\b.txt", 1)) << handle;
        EXPECT_EQ(120U, slots.Call(11, handle, &entries, &count)) << handle;
        EXPECT_EQ(0xFFFFFFFF, slots.Call(21, handle, 2, 0)) << handle;
    }
    for (const wchar_t* path : {static_cast<const wchar_t*>(nullptr), L"\\a.txt"}) {
        EXPECT_EQ(120U, slots.Call(6, path, &information));
        EXPECT_EQ(120U, slots.Call(9, path));
        EXPECT_EQ(120U, slots.Call(15, path));
        EXPECT_EQ(0U, slots.Call(20, path));
    }
    for (const int request : {0, 1, 2, 4, 7, 0xFF}) EXPECT_EQ(120U, slots.Call(14, request, &volume)) << request;
    EXPECT_EQ(0xFFFFFFFF, slots.Call(29, 14, 0));
    EXPECT_ALL_CALLS();
    EXPECT_EQ(4711U, information.size);
    EXPECT_EQ(4711U, volume.totalUnits);
    EXPECT_EQ(nullptr, entries);
    EXPECT_EQ(kUntouched, count);
    EXPECT_TRUE(Double().Exists("pool/a.txt"));
}

}  // namespace
