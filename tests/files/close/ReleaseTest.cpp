// Releasing a handle.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CReleaseTest : public CConnectedFilesTest {};

TEST_F(CReleaseTest, ReleaseAfterCloseClosesNothingMore) {
    const Handle handle = Open({"hello"});
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdReleaseFile Enter\n"}, {6, "CloseFileHandle: closeCount: 0\n"}, {6, "ZdReleaseFile Exit\n"});
}

TEST_F(CReleaseTest, ReleaseWithoutCloseClosesEverything) {
    const Handle handle = Open({"0123456789", "tail"});
    EXPECT_EQ(14U, Read(handle, 0, 14).count);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_CALLS("ZdvfsClose(10) = 0", "ZdvfsClose(11) = 0");
    EXPECT_LOG({6, "ZdReleaseFile Enter\n"}, {6, "CloseFileHandle Enter Fragment: 0, Handle Value: 10\n"},
               {6, "CloseFileHandle Enter Fragment: 1, Handle Value: 11\n"}, {6, "CloseFileHandle: closeCount: 2\n"},
               {6,
                "CloseFileHandle: found direct-io/write-only/read-write file - m_OpenFlags:2, "
                "m_OpenDirectIOorWriteFiles: 0\n"},
               {6, "ZdReleaseFile Exit\n"});
    EXPECT_TRUE(Double().Exists("pool/a")) << "a release never deletes";
}

TEST_F(CReleaseTest, ReleaseOfADirectoryClosesItsStream) {
    Double().MakeDirectory("pool/dir");
    const Created created = Create(L"\\dir", {.isDirectory = 1, .disposition = kZdOpen});
    ASSERT_EQ(0U, created.code);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(created.handle));
    EXPECT_CALLS("ZdvfsClosedir(dir*) = 0");
    EXPECT_LOG({6, "ZdReleaseFile Enter\n"},
               {6, "CloseFileHandle:    handleInfo->m_isDir and m_DirPtr returned true\n"},
               {6, "ZdReleaseFile Exit\n"});
}

TEST_F(CReleaseTest, ReleaseOfHandleZeroDoesNothing) {
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(0));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdReleaseFile Enter\n"}, {6, "ZdReleaseFile Exit\n"});
}

TEST_F(CReleaseTest, FailingStorageCloseIsNotTheResult) {
    const Handle handle = Open({"0123456789", "tail"});
    EXPECT_EQ(14U, Read(handle, 0, 14).count);
    Double().Add(OnCall("ZdvfsClose").Fails(EIO));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_CALLS("ZdvfsClose(10) = -1", "ZdvfsClose(11) = -1");
    EXPECT_EQ(6U, Read(handle, 0, 1).code);
}

TEST_F(CReleaseTest, AThrowInsideTheCloseStillEndsTheHandleAndItsDescriptors) {
    static constexpr struct {
        EThrow thrown;
        DWORD code;
        std::size_t errorLines;
    } kRows[] = {{EThrow::kBadAlloc, 8, 1}, {EThrow::kUnsignedLong, 4711, 0}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.code);
        const Handle handle = Open({"0123456789", "tail"});
        EXPECT_EQ(14U, Read(handle, 0, 14).count);
        Double().Add(OnCall("ZdvfsClose").OnNth(1).Throws(row.thrown, 4711));
        ClearLogs();
        EXPECT_EQ(row.code, m_manager->ZdReleaseFile(handle));
        const auto lines = TakeLog();
        EXPECT_EQ(row.errorLines,
                  LinesStarting(lines, "ZdReleaseFile: ERROR:  Not Enough Memory, dwError Code:    8\n").size());
        EXPECT_EQ("ZdReleaseFile Exit\n", lines.back().text);
        EXPECT_TRUE(Double().OpenDescriptors().empty()) << "the record closes what is left when it dies";
        EXPECT_EQ(6U, Read(handle, 0, 1).code);
        EXPECT_EQ(0, OpenWriters());
        Double().ClearRules();
    }
}

}  // namespace
}  // namespace zd::test
