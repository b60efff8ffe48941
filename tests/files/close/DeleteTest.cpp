// Closing with the delete flag.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CDeleteTest : public CConnectedFilesTest {};

const std::vector<std::string> kFour = {"0123456789", "abcdefghij", "ABCDEFGHIJ", "tail"};

TEST_F(CDeleteTest, RemovesEveryFragmentInOrderAfterClosing) {
    const Handle handle = Open(kFour);
    EXPECT_EQ(1U, Read(handle, 20, 1).count);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_CALLS("ZdvfsClose(10) = 0", "ZdvfsClose(11) = 0", "ZdvfsUnlink(\"pool/a\") = 0",
                 "ZdvfsUnlink(\"pool/a;F1\") = 0", "ZdvfsUnlink(\"pool/a;F2\") = 0", "ZdvfsUnlink(\"pool/a;F3\") = 0");
    EXPECT_TRUE(Double().Names("pool").empty());
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_CALLS();
}

TEST_F(CDeleteTest, AnyNonZeroFlagDeletes) {
    for (const DWORD flag : {2U, 0x80000000U, 0xFFFFFFFFU}) {
        const Handle handle = Open({"x"});
        EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, flag));
        EXPECT_FALSE(Double().Exists("pool/a")) << flag;
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    }
}

TEST_F(CDeleteTest, AClosedHandleCanStillDelete) {
    const Handle handle = Open(kFour);
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_EQ(4U, Double().Names("pool").size());
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_CALLS("ZdvfsUnlink(\"pool/a\") = 0", "ZdvfsUnlink(\"pool/a;F1\") = 0", "ZdvfsUnlink(\"pool/a;F2\") = 0",
                 "ZdvfsUnlink(\"pool/a;F3\") = 0");
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CDeleteTest, FragmentsWrittenThroughTheHandleAreRemovedToo) {
    const Handle handle = OpenSized(10, "0123456789");
    EXPECT_EQ(0U, Write(handle, 10, "abcdefghijABC").code);
    EXPECT_EQ(3U, Double().Names("pool").size());
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_TRUE(Double().Names("pool").empty());
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CDeleteTest, FailingRemovalIsTheResultAndStopsThere) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{EBUSY, 170}, {EACCES, 5}, {ENOENT, 2}, {ENOTEMPTY, 1117}, {0, 1117}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.error);
        const Handle handle = Open(kFour);
        Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/a;F2").Fails(row.error, 4711));
        EXPECT_EQ(row.code, m_manager->ZdCloseFile(handle, 1));
        EXPECT_CALLS("ZdvfsClose(*) = 0", "ZdvfsUnlink(\"pool/a\") = 0", "ZdvfsUnlink(\"pool/a;F1\") = 0",
                     "ZdvfsUnlink(\"pool/a;F2\") = -1");
        EXPECT_EQ("ABCDEFGHIJ", Double().Bytes("pool/a;F2"));
        EXPECT_EQ("tail", Double().Bytes("pool/a;F3"));
        for (const LogLine& line : TakeLog()) EXPECT_EQ(6U, line.level) << line.text;
        Double().ClearRules();
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    }
}

TEST_F(CDeleteTest, ANonZeroPlainResultOfTheRemovalCountsAsFailed) {
    const Handle handle = Open({"x"});
    Double().Add(OnCall("ZdvfsUnlink").Answers(1).WithErrno(EACCES));
    EXPECT_EQ(5U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CDeleteTest, NothingIsOpenedAgainAfterADeletion) {
    const Handle handle = Open({"0123456789", "tail"});
    const Handle other = Open({"hello"}, "other");
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    ClearLogs();
    DWORD count = kUntouched;
    char byte = 0;
    EXPECT_EQ(2U, m_manager->ZdReadFile(handle, 0, 1, &byte, &count));
    EXPECT_EQ(2U, m_manager->ZdReadFile(handle, 10, 1, &byte, &count));
    EXPECT_EQ(2U, m_manager->ZdWriteFile(handle, 0, 1, &byte, &count));
    EXPECT_EQ(2U, m_manager->ZdWriteFile(handle, 20, 1, &byte, &count));
    EXPECT_EQ(kUntouched, count);
    EXPECT_EQ(2U, m_manager->ZdSetFileSize(handle, 3));
    EXPECT_EQ(2U, m_manager->ZdSetFileSize(handle, 100));
    EXPECT_EQ(2U, m_manager->ZdAppendFile(handle, other, 0, 0, 2));
    EXPECT_EQ(2U, m_manager->ZdAppendFile(other, handle, 5, 0, 2));
    EXPECT_TRUE(CallsStarting(TakeCalls(), "ZdvfsOpen").empty());
    EXPECT_FALSE(Double().Exists("pool/a"));
    EXPECT_FALSE(Double().Exists("pool/a;F1"));
    EXPECT_EQ("hello", StoredWhole("other"));
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    Close(other);
}

TEST_F(CDeleteTest, SecondDeletionFindsNothing) {
    const Handle handle = Open({"x"});
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_EQ(2U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CDeleteTest, SecondDeletionLeavesANewFileOfTheNameAlone) {
    const Handle handle = Open({"x"});
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    MakeFragments({"somebody else's"});
    EXPECT_EQ(2U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_EQ("somebody else's", StoredWhole());
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CDeleteTest, AStoppedDeletionCanBeEnded) {
    const Handle handle = Open(kFour);
    Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/a;F2").OnNth(1).Fails(EBUSY));
    EXPECT_EQ(170U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_TRUE(Double().Names("pool").empty());
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CDeleteTest, DirectoryIsRemovedOnceItsStreamIsClosed) {
    Double().MakeDirectory("pool/dir");
    const Created created = Create(L"\\dir", {.isDirectory = 1, .disposition = kZdOpen});
    ASSERT_EQ(0U, created.code);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(created.handle, 1));
    EXPECT_CALLS("ZdvfsClosedir(dir*) = 0", "ZdvfsUnlink(\"pool/dir\") = 0");
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(created.handle));
}

TEST_F(CDeleteTest, DirectoryWithoutAStreamClosesAndLogsNothingBeforeTheRemoval) {
    Double().MakeDirectory("pool/dir");
    const Created created = Create(L"\\dir", {.isDirectory = 1, .disposition = kZdOpen});
    ASSERT_EQ(0U, created.code);
    EXPECT_EQ(0U, m_manager->ZdCloseFile(created.handle, 0));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(created.handle, 1));
    EXPECT_CALLS("ZdvfsUnlink(\"pool/dir\") = 0");
    EXPECT_LOG({6, "ZdCloseFile Enter*"}, {6, "ZdCloseFile:    FileName= \\dir\n"}, {6, "ZdCloseFile Exit\n"});
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(created.handle));
}

TEST_F(CDeleteTest, DirectoryThatIsNotEmptyStays) {
    Double().MakeFile("pool/dir/child", "x");
    const Created created = Create(L"\\dir", {.isDirectory = 1, .disposition = kZdOpen});
    ASSERT_EQ(0U, created.code);
    EXPECT_EQ(1117U, m_manager->ZdCloseFile(created.handle, 1)) << "the table has no row for that errno";
    EXPECT_EQ("x", Double().Bytes("pool/dir/child"));
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(created.handle));
}

TEST_F(CDeleteTest, OtherHandlesOnTheNameKeepTheirOpenFragment) {
    const Handle handle = Open({"hello"});
    const Created reader = Create(L"\\a", kOpenToRead);
    ASSERT_EQ(0U, reader.code);
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_EQ(0U, Read(reader.handle, 0, 5).code);
    EXPECT_FALSE(Double().Exists("pool/a"));
    Close(reader.handle);
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

}  // namespace
}  // namespace zd::test
