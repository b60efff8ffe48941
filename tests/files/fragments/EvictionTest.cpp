// How many fragments of a handle are open at once, and which one makes room.
#include <algorithm>

#include "files/FilesFixture.h"
#include "harness/RandomBits.h"

namespace zd::test {
namespace {

const std::vector<std::string> kFour = {"0123456789", "abcdefghij", "ABCDEFGHIJ", "tail"};

class CEvictionTest : public CFilesTest {
protected:
    void Use(Handle handle, int fragment) { EXPECT_EQ(1U, Read(handle, fragment * 10, 1).count) << fragment; }

    // The storage paths of the descriptors that are open, in order of opening.
    std::vector<std::string> OpenPaths() {
        std::vector<std::string> paths;
        for (const OpenDescriptor& open : Double().OpenDescriptors()) paths.push_back(open.path);
        return paths;
    }

    std::vector<std::string> EvictionLines() {
        std::vector<std::string> lines;
        for (const LogLine& line : TakeLog()) {
            if (line.text.starts_with("Closed fragment") && line.level == 3) lines.push_back(line.text);
        }
        return lines;
    }
};

TEST_F(CEvictionTest, FragmentsOpenOnlyWhenATransferReachesThem) {
    ConnectWith();
    const Handle handle = Open(kFour);
    EXPECT_THAT(OpenPaths(), ::testing::ElementsAre("pool/a"));
    EXPECT_EQ(5U, Read(handle, 3, 5).count);
    EXPECT_EQ(10U, Write(handle, 0, "0123456789").count);
    EXPECT_THAT(OpenPaths(), ::testing::ElementsAre("pool/a"));
    Use(handle, 2);
    EXPECT_THAT(OpenPaths(), ::testing::UnorderedElementsAre("pool/a", "pool/a;F2"));
    ClearLogs();
    Use(handle, 2);
    EXPECT_CALLS("ZdvfsPread(11, 1, 0) = 1");
    Close(handle);
}

TEST_F(CEvictionTest, ThirdFragmentClosesTheFirstWhereTwoMayBeOpen) {
    ConnectWith(2);
    const Handle handle = Open(kFour);
    Use(handle, 0);
    Use(handle, 1);
    ClearLogs();
    Use(handle, 2);
    EXPECT_CALLS("ZdvfsClose(10) = 0", "ZdvfsStat(\"pool/a;F2\") = 0", "ZdvfsOpen(\"pool/a;F2\", 0x102, 0x0) = 12",
                 "ZdvfsPread(12, 1, 0) = 1");
    EXPECT_LOG({6, "ZdReadFile Enter - handle: " + Pointer(handle) + ", offset: 20, len: 1\n"},
               {3, "Closed fragment 0 to open pool/a;F2\n"},
               {3, "Entering CProtocolManager::ReOpenFile(\"pool/a;F2\"\n"}, {6, "filename = pool/a;F2   fd = 12\n"},
               {6, "ZdReadFile Exit\n"});
    Close(handle);
}

TEST_F(CEvictionTest, TheOneUsedLongestAgoMakesRoom) {
    ConnectWith(2);
    const Handle handle = Open(kFour);
    Use(handle, 1);
    Use(handle, 0);
    ClearLogs();
    Use(handle, 3);
    EXPECT_THAT(EvictionLines(), ::testing::ElementsAre("Closed fragment 1 to open pool/a;F3\n"));
    Use(handle, 1);
    EXPECT_THAT(EvictionLines(), ::testing::ElementsAre("Closed fragment 0 to open pool/a;F1\n"));
    Use(handle, 3);
    Use(handle, 0);
    EXPECT_THAT(EvictionLines(), ::testing::ElementsAre("Closed fragment 1 to open pool/a\n"));
    Close(handle);
}

TEST_F(CEvictionTest, OpeningStampsFragmentZeroSoItIsTheOldest) {
    ConnectWith(1);
    const Handle handle = Open(kFour);
    Use(handle, 1);
    EXPECT_THAT(EvictionLines(), ::testing::ElementsAre("Closed fragment 0 to open pool/a;F1\n"));
    Close(handle);
}

TEST_F(CEvictionTest, EachLimitKeepsThatManyOpen) {
    static constexpr struct {
        DWORD setting;
        std::size_t open;       // after all four fragments were used in order, and at no time more
        std::size_t evictions;  // on the way
    } kRows[] = {
        {1, 1, 3},          {2, 2, 2},          {3, 3, 1},
        {4, 4, 0},          {5, 4, 0},          {0, 4, 0},  // 0 stands for 100
        {0xFFFFFFFF, 1, 3}, {0x80000000, 1, 3}, {0x7FFFFFFF, 4, 0},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.setting);
        ConnectWith(row.setting);
        const Handle handle = Open(kFour);
        std::size_t most = 0;
        Double().Add(OnCall("ZdvfsOpen").After([&](const Call&) { most = std::max(most, OpenPaths().size()); }));
        EXPECT_EQ("0123456789abcdefghijABCDEFGHIJtail", Read(handle, 0, 100).data);
        EXPECT_EQ(row.open, OpenPaths().size());
        EXPECT_GE(row.open, most);
        EXPECT_EQ(row.evictions, EvictionLines().size());
        Double().ClearRules();
        Close(handle);
    }
}

TEST_F(CEvictionTest, NegativeLimitClosesBeforeEachOpenButNeverWhereNoneIsOpen) {
    ConnectWith(static_cast<DWORD>(-3));
    const Handle handle = Open(kFour);
    Use(handle, 0);
    EXPECT_CALLS("ZdvfsPread(10, 1, 0) = 1") << "an open fragment is used as it is";
    Use(handle, 1);
    EXPECT_CALLS("ZdvfsClose(10) = 0", "ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11",
                 "ZdvfsPread(11, 1, 0) = 1");
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    Use(handle, 2);
    EXPECT_CALLS("ZdvfsStat(\"pool/a;F2\") = 0", "ZdvfsOpen(\"pool/a;F2\", 0x102, 0x0) = 12",
                 "ZdvfsPread(12, 1, 0) = 1");
    EXPECT_TRUE(EvictionLines().empty());
    Close(handle);
}

TEST_F(CEvictionTest, LimitIsOfEachHandle) {
    ConnectWith(1);
    const Handle first = Open(kFour, "a");
    const Handle second = Open(kFour, "b");
    const Created again = Create(L"\\a", kOpenToRead);
    Use(first, 1);
    Use(second, 2);
    Use(again.handle, 3);
    EXPECT_THAT(OpenPaths(), ::testing::UnorderedElementsAre("pool/a;F1", "pool/b;F2", "pool/a;F3"));
    Close(first);
    Close(second);
    Close(again.handle);
}

TEST_F(CEvictionTest, LimitBelongsToTheConnection) {
    ConnectWith(1);
    Registry().SetDword(kPluginKey, L"MaxOpenFragments", 3);
    IProtocolManager* const wide = NewManager();
    const ConnectParameters parameters = Parameters(L"pool");
    ASSERT_EQ(0U, wide->ZdConnect(&parameters));
    const Handle narrow = Open(kFour);
    EXPECT_EQ(34U, Read(narrow, 0, 100).count);
    EXPECT_EQ(1U, OpenPaths().size());
    Close(narrow);
    const Created file = Create(L"\\a", kOpenToRead, wide);
    EXPECT_EQ(34U, Read(file.handle, 0, 100, wide).count);
    EXPECT_EQ(3U, OpenPaths().size());
    Close(file.handle, wide);
}

TEST_F(CEvictionTest, FailingCloseOfTheVictimFailsTheOperationAndOpensNothing) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{EBUSY, 170}, {ENOSPC, 39}, {EIO, 1117}, {EBADF, 6}};
    ConnectWith(1);
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.error);
        const Handle handle = Open(kFour);
        Double().Add(OnCall("ZdvfsClose").Fails(row.error));
        const Transfer transfer = Read(handle, 10, 5);
        EXPECT_EQ(row.code, transfer.code);
        EXPECT_EQ(kUntouched, transfer.count);
        EXPECT_TRUE(LinesFit({"ZdvfsClose(*) = -1"}, TakeCalls()));
        EXPECT_TRUE(EvictionLines().empty());
        Double().ClearRules();
        ExpectUsableElsewhere(handle);
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    }
    // The storage gave the descriptors up all the same; each record closed its own once more.
    AllowLeaks();
}

// The open fragments as a list, the one used longest ago in front.
TEST_F(CEvictionTest, RandomUsesKeepOpenWhatWasUsedLast) {
    constexpr std::size_t kLimit = 3;
    ConnectWith(kLimit);
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDEFGHIJ", "0123456789", "abcdefghij", "tail"});
    std::vector<int> used = {0};
    std::uint64_t bits = 5;
    for (int step = 0; step < 400; ++step) {
        SCOPED_TRACE(step);
        if (NextBits(bits) % 20 == 0) {
            ASSERT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
            used.clear();
        }
        const int fragment = static_cast<int>(NextBits(bits) % 6);
        const auto known = std::find(used.begin(), used.end(), fragment);
        if (known != used.end()) {
            used.erase(known);
        } else if (used.size() == kLimit) {
            used.erase(used.begin());
        }
        used.push_back(fragment);
        Use(handle, fragment);
        std::vector<std::string> expected;
        for (const int index : used) expected.push_back(index == 0 ? "pool/a" : "pool/a;F" + std::to_string(index));
        ASSERT_THAT(OpenPaths(), ::testing::UnorderedElementsAreArray(expected));
    }
    Close(handle);
}

TEST_F(CEvictionTest, WritesAndSizesObeyTheLimitToo) {
    ConnectWith(1);
    const Handle handle = Open(kFour);
    EXPECT_EQ(0U, Write(handle, 5, "-----+++++++++++++++++++++").code);
    EXPECT_EQ(1U, OpenPaths().size());
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 62));
    EXPECT_EQ(1U, OpenPaths().size());
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 11));
    EXPECT_EQ(1U, OpenPaths().size());
    Close(handle);
    EXPECT_THAT(Stored(), ::testing::ElementsAre("01234-----", "+"));
}

}  // namespace
}  // namespace zd::test
