// The process's count of handles that are open for writing or direct I/O: who raises it, and that each handle which
// did lowers it exactly once.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CCountTest : public CConnectedFilesTest {
protected:
    // What a close says about the count; empty where it does not lower it.
    std::vector<std::string> LoweringLines(Handle handle) {
        ClearLogs();
        EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
        return LinesStarting(TakeLog(), "CloseFileHandle: found");
    }

    static std::string Lowering(const std::string& flags, int count) {
        return "CloseFileHandle: found direct-io/write-only/read-write file - m_OpenFlags:" + flags +
               ", m_OpenDirectIOorWriteFiles: " + std::to_string(count) + "\n";
    }
};

TEST_F(CCountTest, EachKindOfOpenCountsOrDoesNot) {
    Double().MakeDirectory("pool/dir");
    static const struct {
        const char* name;
        const wchar_t* path;
        CreateOptions options;
        const char* flags;  // shown when the count is lowered; null: not counted
    } kRows[] = {
        {"read only", L"\\a", {.disposition = kZdOpen, .access = kReadAccess}, nullptr},
        {"read only, created where missing", L"\\b", {.disposition = kZdOpenIf, .access = kReadAccess}, nullptr},
        {"read and write", L"\\c", {.disposition = kZdOpenIf, .access = kWriteAccess}, "2"},
        {"database, write only and direct", L"\\d.edb", {.access = kWriteAccess}, "4001"},
        {"emptied", L"\\e", {.disposition = kZdOverwriteIf, .access = kWriteAccess}, "2"},
        {"read only, direct",
         L"\\a",
         {.attributes = FILE_FLAG_SEQUENTIAL_SCAN, .disposition = kZdOpen, .access = kReadAccess},
         "4000"},
        {"read only, second cache flag",
         L"\\a",
         {.attributes = FILE_FLAG_DELETE_ON_CLOSE, .disposition = kZdOpen, .access = kReadAccess},
         nullptr},
        {"write, second cache flag",
         L"\\a",
         {.attributes = FILE_FLAG_DELETE_ON_CLOSE, .disposition = kZdOpen, .access = kWriteAccess},
         "10002"},
        {"temporary", L"\\t", {.attributes = FILE_ATTRIBUTE_TEMPORARY, .access = kWriteAccess}, "8002"},
        {"directory", L"\\dir", {.isDirectory = 1, .disposition = kZdOpen, .access = kWriteAccess}, nullptr},
        {"directory, direct",
         L"\\dir",
         {.isDirectory = 1, .attributes = FILE_FLAG_SEQUENTIAL_SCAN, .disposition = kZdOpen},
         "4000"},
    };
    Double().MakeFile("pool/a", "content");
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        ClearLogs();
        const Created created = Create(row.path, row.options);
        ASSERT_EQ(0U, created.code);
        const bool counts = row.flags != nullptr;
        EXPECT_EQ(counts ? std::optional<int>(1) : std::nullopt, ToldCount(TakeLog()));
        EXPECT_EQ(counts ? 1 : 0, OpenWriters());
        EXPECT_EQ(counts ? std::vector<std::string>{Lowering(row.flags, 0)} : std::vector<std::string>{},
                  LoweringLines(created.handle));
        EXPECT_EQ(0, OpenWriters());
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(created.handle));
        EXPECT_EQ(0, OpenWriters());
    }
}

TEST_F(CCountTest, CountsAllHandlesOfAllConnections) {
    IProtocolManager* const other = NewManager();
    const ConnectParameters parameters = Parameters(L"pool");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    const Handle first = Open({"x"}, "one");
    const Handle second = Open({"x"}, "two");
    const Created third = Create(L"\\one", kOpenToWrite, other);
    ASSERT_EQ(0U, third.code);
    EXPECT_EQ(3, OpenWriters());
    EXPECT_EQ(std::vector<std::string>{Lowering("2", 2)}, LoweringLines(first));
    Close(third.handle, other);
    EXPECT_EQ(1, OpenWriters());
    Close(second);
    EXPECT_EQ(0, OpenWriters());
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(first));
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCountTest, ClosingTwiceLowersOnce) {
    const Handle keeper = Open({"x"}, "keeper");
    const Handle handle = Open({"x"});
    EXPECT_EQ(std::vector<std::string>{Lowering("2", 1)}, LoweringLines(handle));
    EXPECT_TRUE(LoweringLines(handle).empty());
    EXPECT_EQ(1, OpenWriters());
    Close(handle);
    EXPECT_EQ(1, OpenWriters());
    Close(keeper);
}

TEST_F(CCountTest, ClosingAfterAReopenDoesNotLowerAgain) {
    const Handle keeper = Open({"x"}, "keeper");
    const Handle handle = Open({"x"});
    EXPECT_EQ(1U, LoweringLines(handle).size());
    EXPECT_EQ(0U, Write(handle, 0, "y").code);
    EXPECT_TRUE(LoweringLines(handle).empty()) << "the reopening did not raise the count";
    EXPECT_EQ(1, OpenWriters());
    Close(handle);
    Close(keeper);
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCountTest, ReleaseWithoutCloseLowers) {
    const Handle handle = Open({"x"});
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_EQ(std::vector<std::string>{Lowering("2", 0)}, LinesStarting(TakeLog(), "CloseFileHandle: found"));
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCountTest, DisconnectLowersForEveryOpenHandle) {
    Open({"x"}, "one");
    Open({"x"}, "two");
    EXPECT_EQ(2, OpenWriters());
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    ASSERT_EQ(0U, Connect());
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCountTest, ReadOnlyHandleNeverChangesTheCountBelowZeroOrElsewhere) {
    const Handle reader = Open({"hello"}, "a", kOpenToRead);
    EXPECT_TRUE(LoweringLines(reader).empty());
    EXPECT_EQ(0, OpenWriters());
    EXPECT_EQ(0U, Read(reader, 0, 5).code);
    EXPECT_TRUE(LoweringLines(reader).empty());
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(reader));
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCountTest, FailingOpenLeavesTheCountAsItWas) {
    Double().MakeFile("pool/a", "x");
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/a").Fails(EACCES));
    EXPECT_EQ(5U, Create(L"\\a", kOpenToWrite).code);
    Double().ClearRules();
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCountTest, FailingCloseLowersNeverthelessOnce) {
    const Handle handle = Open({"x"});
    Double().Add(OnCall("ZdvfsClose").ForPath("pool/a").Fails(EIO));
    EXPECT_EQ(std::vector<std::string>{Lowering("2", 0)}, LoweringLines(handle));
    Double().ClearRules();
    EXPECT_TRUE(LoweringLines(handle).empty());
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_EQ(0, OpenWriters());
}

class CEvictedCountTest : public CFilesTest {};

TEST_F(CEvictedCountTest, HandleWithoutOpenDescriptorsLowersWhenItsRecordDies) {
    ConnectWith(1);
    const Handle keeper = Open({"x"}, "keeper");
    const Handle handle = Open({"0123456789", "tail"});
    // Fragment 0 makes room for fragment 1, which then cannot be opened: nothing is left to close.
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/a;F1").Fails(EACCES));
    EXPECT_EQ(0U, Read(handle, 10, 4).count);
    Double().ClearRules();
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_FALSE(ToldCount(TakeLog()).has_value());
    EXPECT_EQ(2, OpenWriters());
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_EQ(1, OpenWriters());
    Close(keeper);
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CEvictedCountTest, EvictionAndReopeningDoNotTouchTheCount) {
    ConnectWith(1);
    const Handle handle = Open({"0123456789", "0123456789", "tail"});
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(24U, Read(handle, 0, 100).count);
        EXPECT_EQ(1, OpenWriters());
    }
    Close(handle);
    EXPECT_EQ(0, OpenWriters());
}

}  // namespace
}  // namespace zd::test
