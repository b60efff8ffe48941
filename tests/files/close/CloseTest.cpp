// Closing a handle: what is closed, in which order, with which lines; the handle stays valid.
#include <thread>

#include "files/FilesFixture.h"

namespace zd::test {
namespace {

const std::vector<std::string> kThree = {"0123456789", "abcdefghij", "tail"};

class CCloseTest : public CConnectedFilesTest {
protected:
    Handle OpenDirectory() {
        Double().MakeDirectory("pool/dir");
        const Created created = Create(L"\\dir", {.isDirectory = 1, .disposition = kZdOpen});
        EXPECT_EQ(0U, created.code);
        ClearLogs();
        return created.handle;
    }
};

TEST_F(CCloseTest, ClosesTheOpenFragmentAndTellsEachStep) {
    const Handle handle = Open({"hello"});
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_CALLS("ZdvfsClose(10) = 0");
    EXPECT_LOG({6, "ZdCloseFile Enter - handle: " + Pointer(handle) + "\n"}, {6, "ZdCloseFile:    FileName= \\a\n"},
               {6, "CloseFileHandle Enter Fragment: 0, Handle Value: 10\n"}, {6, "CloseFileHandle: closeCount: 1\n"},
               {6,
                "CloseFileHandle: found direct-io/write-only/read-write file - m_OpenFlags:2, "
                "m_OpenDirectIOorWriteFiles: 0\n"},
               {6, "ZdCloseFile Exit\n"});
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CCloseTest, ClosesOpenFragmentsInTheirOrderAndSkipsTheOthers) {
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDEFGHIJ", "tail"}, "a", kOpenToRead);
    EXPECT_EQ(1U, Read(handle, 30, 1).count);
    EXPECT_EQ(1U, Read(handle, 10, 1).count);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_CALLS("ZdvfsClose(10) = 0", "ZdvfsClose(12) = 0", "ZdvfsClose(11) = 0");
    EXPECT_LOG({6, "ZdCloseFile Enter*"}, {6, "ZdCloseFile:    FileName= \\a\n"},
               {6, "CloseFileHandle Enter Fragment: 0, Handle Value: 10\n"},
               {6, "CloseFileHandle Enter Fragment: 1, Handle Value: 12\n"},
               {6, "CloseFileHandle Enter Fragment: 3, Handle Value: 11\n"}, {6, "CloseFileHandle: closeCount: 3\n"},
               {6, "ZdCloseFile Exit\n"});
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CCloseTest, SecondCloseClosesNothingAndCountsZero) {
    const Handle handle = Open({"hello"});
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdCloseFile Enter - handle: " + Pointer(handle) + "\n"}, {6, "ZdCloseFile:    FileName= \\a\n"},
               {6, "CloseFileHandle: closeCount: 0\n"}, {6, "ZdCloseFile Exit\n"});
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CCloseTest, ClosedHandleStaysValidForEveryDataOperation) {
    const Handle handle = Open(kThree);
    const auto close = [&] { EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0)); };
    close();
    EXPECT_EQ("89ab", Read(handle, 8, 4).data);
    close();
    EXPECT_EQ(0U, Write(handle, 9, "XYZ").code);
    close();
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 22));
    close();
    EXPECT_EQ(0U, m_manager->ZdAppendFile(handle, handle, 22, 0, 2));
    close();
    EXPECT_EQ("012345678XYZcdefghijta01", StoredWhole());
    EXPECT_TRUE(Double().OpenDescriptors().empty());
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CCloseTest, CloseOfHandleZeroDoesNothing) {
    EXPECT_EQ(0U, m_manager->ZdCloseFile(0, 0));
    EXPECT_EQ(0U, m_manager->ZdCloseFile(0, 1));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdCloseFile Enter - handle: 0000000000000000\n"}, {6, "ZdCloseFile Exit\n"},
               {6, "ZdCloseFile Enter - handle: 0000000000000000\n"}, {6, "ZdCloseFile Exit\n"});
}

TEST_F(CCloseTest, UnknownHandleWritesEntryAndExitOnly) {
    EXPECT_EQ(6U, m_manager->ZdCloseFile(0x4711, 0));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdCloseFile Enter - handle: 0000000000004711\n"}, {6, "ZdCloseFile Exit\n"});
}

TEST_F(CCloseTest, FailingStorageCloseIsNotTheResultAndTheOthersAreClosed) {
    const Handle handle = Open(kThree);
    EXPECT_EQ(24U, Read(handle, 0, 24).count);
    Double().Add(OnCall("ZdvfsClose").OnNth(2).Fails(EIO));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_CALLS("ZdvfsClose(10) = 0", "ZdvfsClose(11) = -1", "ZdvfsClose(12) = 0");
    EXPECT_TRUE(Logged(TakeLog(), 6, "CloseFileHandle: closeCount: 3\n"));
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_CALLS();
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_CALLS();
}

TEST_F(CCloseTest, DirectoryClosesItsStreamOnce) {
    const Handle handle = OpenDirectory();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_CALLS("ZdvfsClosedir(dir*) = 0");
    EXPECT_LOG({6, "ZdCloseFile Enter - handle: " + Pointer(handle) + "\n"}, {6, "ZdCloseFile:    FileName= \\dir\n"},
               {6, "CloseFileHandle:    handleInfo->m_isDir and m_DirPtr returned true\n"}, {6, "ZdCloseFile Exit\n"});
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdCloseFile Enter*"}, {6, "ZdCloseFile:    FileName= \\dir\n"}, {6, "ZdCloseFile Exit\n"});
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_CALLS();
}

TEST_F(CCloseTest, FailingCloseOfAStreamIsNotTheResult) {
    const Handle handle = OpenDirectory();
    Double().Add(OnCall("ZdvfsClosedir").Fails(EIO));
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    Double().ClearRules();
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    EXPECT_CALLS();
}

TEST_F(CCloseTest, NameIsLoggedInUtf8AndCannotForgeLines) {
    const Handle handle = Open({"x"},
                               "gr\xc3\xb6\xc3\x9f"
                               "e\xf0\x9f\x98\x80 %s%n\nZdCloseFile Exit");
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    EXPECT_TRUE(Logged(TakeLog(), 6,
                       "ZdCloseFile:    FileName= \\gr\xc3\xb6\xc3\x9f"
                       "e\xf0\x9f\x98\x80 %s%n<000a>ZdCloseFile Exit\n"));
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CCloseTest, NameOfAnUnpairedSurrogateShowsTheReplacement) {
    // How the storage sees such a name is another matter; the handle is opened under whatever it is there.
    const Created created = Create(L"\\x\xd800y");
    ASSERT_EQ(0U, created.code);
    EXPECT_EQ(0U, m_manager->ZdCloseFile(created.handle, 0));
    EXPECT_TRUE(Logged(TakeLog(), 6, "ZdCloseFile:    FileName= \\x\xef\xbf\xbdy\n"));
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(created.handle));
}

TEST_F(CCloseTest, NameThatOutgrowsTheBufferCannotBeClosedButReleased) {
    static constexpr struct {
        std::size_t bytes;  // of the name without its leading backslash
        const char* letter;
        DWORD code;
    } kRows[] = {{1022, "n", 0}, {1023, "n", 2}, {2000, "n", 2}, {1022, "\xc3\xa4", 0}, {1024, "\xc3\xa4", 2}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(std::to_string(row.bytes) + " of " + row.letter);
        std::string name;
        while (name.size() < row.bytes) name += row.letter;
        const Handle handle = Open({"hello"}, name);
        EXPECT_EQ(row.code, m_manager->ZdCloseFile(handle, 0));
        EXPECT_EQ(row.code == 0 ? 0U : 1U, Double().OpenDescriptors().size());
        const auto lines = TakeLog();
        EXPECT_EQ(row.code == 0 ? 1U : 0U, LinesStarting(lines, "ZdCloseFile:    FileName= ").size());
        EXPECT_EQ("ZdCloseFile Exit\n", lines.back().text);
        ExpectUsableElsewhere(handle);
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
        EXPECT_TRUE(Double().OpenDescriptors().empty());
    }
}

TEST_F(CCloseTest, ExhaustedMemoryInACloseIsEightWithItsLine) {
    const Handle handle = Open({"hello"});
    Double().Add(OnCall("ZdvfsClose").OnNth(1).Throws(EThrow::kBadAlloc));
    EXPECT_EQ(8U, m_manager->ZdCloseFile(handle, 0));
    const auto lines = TakeLog();
    EXPECT_TRUE(Logged(lines, 1, "ZdCloseFile:   ERROR:  Not Enough Memory, dwError Code:    8\n"));
    EXPECT_EQ("ZdCloseFile Exit\n", lines.back().text);
    ExpectUsableElsewhere(handle);
    Close(handle);
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCloseTest, ACodeThrownByTheStorageIsTheResultWithoutALine) {
    const Handle handle = Open({"hello"});
    Double().Add(OnCall("ZdvfsClose").OnNth(1).Throws(EThrow::kUnsignedLong, 4711));
    EXPECT_EQ(4711U, m_manager->ZdCloseFile(handle, 0));
    for (const LogLine& line : TakeLog()) EXPECT_EQ(6U, line.level) << line.text;
    ExpectUsableElsewhere(handle);
    Close(handle);
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCloseTest, ThreadsClosingOneHandleCloseItOnce) {
    const Handle handle = Open(kThree);
    EXPECT_EQ(24U, Read(handle, 0, 24).count);
    ClearLogs();
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&] { EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0)); });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_CALLS("ZdvfsClose(10) = 0", "ZdvfsClose(11) = 0", "ZdvfsClose(12) = 0");
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

}  // namespace
}  // namespace zd::test
