// Slot 5: the information of an open handle.
#include "NamespaceFixture.h"

namespace zd::test {
namespace {

class CQueryFileInfoTest : public CNamespaceTest {
protected:
    DWORD Query(Handle handle) {
        m_information = Untouched<FileInformation>();
        return m_manager->ZdQueryFileInfo(handle, &m_information);
    }
    std::wstring ShownName() const { return m_information.name; }

    FileInformation m_information{};
};

TEST_F(CQueryFileInfoTest, EntryAndExitLinesAreTheSame) {
    Double().MakeFile("pool/a", "hello");
    const Handle handle = Open(L"\\a");
    EXPECT_EQ(0U, Query(handle));
    EXPECT_CALLS("ZdvfsFstat(10) = 0");
    EXPECT_LOG({6, "ZdQueryFileInfo Exit\n"}, {6, "ZdQueryFileInfo Exit\n"});
}

TEST_F(CQueryFileInfoTest, FieldsAreThoseOfTheStatusRecord) {
    Double().MakeFile("pool/a", "hello");
    NodeState state;
    state.attributes = 0xA5F7;
    state.mode = 0xFFFF81A4;
    state.creationTime = 1000;
    state.accessTime = 2000;
    state.modificationTime = 3000;
    ASSERT_TRUE(Double().SetState("pool/a", state));
    const Handle handle = Open(L"\\a");
    ASSERT_EQ(0U, Query(handle));
    EXPECT_EQ(FileTime(1000), m_information.creationTime);
    EXPECT_EQ(FileTime(2000), m_information.lastAccessTime);
    EXPECT_EQ(FileTime(3000), m_information.lastWriteTime);
    EXPECT_EQ(FileTime(3000), m_information.changeTime) << "the change time is the last write time";
    EXPECT_EQ(0xA5F7U, m_information.attributes) << "16 bits, no sign";
    EXPECT_EQ(5U, m_information.size);
    EXPECT_EQ(0xFFFF81A4U, m_information.mode);
}

TEST_F(CQueryFileInfoTest, TimesConvertEachByItself) {
    static constexpr struct {
        std::int64_t seconds;
        std::uint64_t fileTime;
    } kRows[] = {
        {0, 0}, {1, 116444736010000000}, {-1, 116444735990000000}, {-11644473600, 0}, {1700000000, 133444736000000000}};
    Double().MakeFile("pool/a");
    const Handle handle = Open(L"\\a");
    for (const auto& row : kRows) {
        SetTimes("pool/a", row.seconds, 0, 5);
        ASSERT_EQ(0U, Query(handle));
        EXPECT_EQ(row.fileTime, m_information.creationTime) << row.seconds;
        EXPECT_EQ(0U, m_information.lastAccessTime) << row.seconds;
        EXPECT_EQ(FileTime(5), m_information.lastWriteTime) << row.seconds;
        SetTimes("pool/a", 5, row.seconds, 0);
        ASSERT_EQ(0U, Query(handle));
        EXPECT_EQ(FileTime(5), m_information.creationTime) << row.seconds;
        EXPECT_EQ(row.fileTime, m_information.lastAccessTime) << row.seconds;
        EXPECT_EQ(0U, m_information.lastWriteTime) << row.seconds;
        EXPECT_EQ(0U, m_information.changeTime) << row.seconds;
    }
}

TEST_F(CQueryFileInfoTest, NameIsWholeAtTheTopAndTheLastComponentBelow) {
    Double().MakeFile("pool/dir/sub/deep.doc");
    Double().MakeFile("pool/dir/report.doc");
    Double().MakeFile("pool/report.doc");
    static constexpr struct {
        const wchar_t* name;
        const wchar_t* shown;
        CreateOptions options;
    } kRows[] = {{L"\\report.doc", L"\\report.doc", kOpenToRead},
                 {L"\\dir\\report.doc", L"report.doc", kOpenToRead},
                 {L"\\dir\\sub\\deep.doc", L"deep.doc", kOpenToRead},
                 {L"/dir/report.doc", L"/dir/report.doc", kOpenToRead},
                 {L"/dir\\report.doc", L"report.doc", kOpenToRead},
                 {L"\\", L"\\", kOpenDirectory},
                 {L"\\dir", L"\\dir", kOpenDirectory},
                 {L"\\dir\\sub", L"sub", kOpenDirectory},
                 {L"\\dir\\", L"", kOpenDirectory}};
    for (const auto& row : kRows) {
        const Handle handle = Open(row.name, row.options);
        ASSERT_EQ(0U, Query(handle)) << Narrow(row.name);
        EXPECT_EQ(row.shown, ShownName()) << Narrow(row.name);
    }
}

TEST_F(CQueryFileInfoTest, LongNameIsCutToFit) {
    const std::wstring name(300, L'x');
    Double().MakeFile("pool/dir/" + std::string(300, 'x'));
    const Handle deep = Open(L"\\dir\\" + name);
    ASSERT_EQ(0U, Query(deep));
    EXPECT_EQ(std::wstring(259, L'x'), ShownName());
    Double().MakeFile("pool/" + std::string(300, 'x'));
    const Handle top = Open(L"\\" + name);
    ASSERT_EQ(0U, Query(top));
    EXPECT_EQ(L"\\" + std::wstring(258, L'x'), ShownName());
}

TEST_F(CQueryFileInfoTest, SizeIsTheSumOverAllFragments) {
    constexpr std::int64_t kMegabyte = 1 << 20;
    MakeFragments("big", {100 * kMegabyte, 100 * kMegabyte, 50 * kMegabyte});
    const Handle handle = Open(L"\\big");
    ASSERT_EQ(0U, Query(handle));
    EXPECT_EQ(250U * kMegabyte, m_information.size);
    EXPECT_CALLS("ZdvfsFstat(10) = 0",  //
                 "ZdvfsStat(\"pool/big;F1\") = 0", "ZdvfsOpen(\"pool/big;F1\", 0x10100, 0x0) = 11",
                 "ZdvfsFstat(11) = 0",  //
                 "ZdvfsStat(\"pool/big;F2\") = 0", "ZdvfsOpen(\"pool/big;F2\", 0x10100, 0x0) = 12",
                 "ZdvfsFstat(12) = 0");
    ASSERT_EQ(0U, Query(handle));
    EXPECT_EQ(250U * kMegabyte, m_information.size);
    EXPECT_CALLS("ZdvfsFstat(10) = 0", "ZdvfsFstat(11) = 0", "ZdvfsFstat(12) = 0");
}

TEST_F(CQueryFileInfoTest, SizesAreThoseOfTheMomentNotOfTheOpening) {
    MakeFragments("big", {10, 10});
    const Handle handle = Open(L"\\big", kOpenToWrite);
    EXPECT_EQ(0U, Write(handle, 10, std::string(7, 'x')).code);
    EXPECT_EQ(0U, Write(handle, 17, std::string(3, 'x')).code);
    EXPECT_EQ(0U, Write(handle, 20, std::string(3, 'x')).code);
    ASSERT_EQ(0U, Query(handle));
    EXPECT_EQ(23U, m_information.size);
}

TEST_F(CQueryFileInfoTest, FragmentWhoseStatusFailsIsSkipped) {
    MakeFragments("big", {10, 10, 5});
    const Handle handle = Open(L"\\big");
    for (const int error : {EIO, ENOENT}) {
        Double().Add(OnCall("ZdvfsFstat").ForPath("pool/big;F1").Fails(error));
        ClearLogs();
        ASSERT_EQ(0U, Query(handle));
        EXPECT_EQ(15U, m_information.size);
        for (const LogLine& line : TakeLog()) EXPECT_LT(1U, line.level) << line.text;
    }
}

TEST_F(CQueryFileInfoTest, FragmentWhoseStatusIsPositiveIsSkipped) {
    MakeFragments("big", {10, 10, 5});
    const Handle handle = Open(L"\\big");
    Double().Add(OnCall("ZdvfsFstat").ForPath("pool/big;F2").Answers(1));
    ASSERT_EQ(0U, Query(handle));
    EXPECT_EQ(20U, m_information.size);
}

TEST_F(CQueryFileInfoTest, FragmentThatCannotBeOpenedIsSkippedWithoutAStatusCall) {
    MakeFragments("big", {10, 10, 5});
    const Handle handle = Open(L"\\big");
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/big;F1").Fails(EACCES));
    ASSERT_EQ(0U, Query(handle));
    EXPECT_EQ(15U, m_information.size);
    EXPECT_CALLS("ZdvfsFstat(10) = 0",  //
                 "ZdvfsStat(\"pool/big;F1\") = 0", "ZdvfsOpen(\"pool/big;F1\", 0x10100, 0x0) = -1",
                 "ZdvfsStat(\"pool/big;F2\") = 0", "ZdvfsOpen(\"pool/big;F2\", 0x10100, 0x0) = 11",
                 "ZdvfsFstat(11) = 0");
}

TEST_F(CQueryFileInfoTest, KeepsToTheMaximumOfOpenFragments) {
    ConnectWithMaximum(2);
    MakeFragments("big", {10, 10, 5});
    const Handle handle = Open(L"\\big");
    ASSERT_EQ(0U, Query(handle));
    EXPECT_EQ(25U, m_information.size);
    EXPECT_CALLS("ZdvfsFstat(10) = 0",  //
                 "ZdvfsStat(\"pool/big;F1\") = 0", "ZdvfsOpen(\"pool/big;F1\", 0x10100, 0x0) = 11",
                 "ZdvfsFstat(11) = 0",  //
                 "ZdvfsClose(10) = 0", "ZdvfsStat(\"pool/big;F2\") = 0",
                 "ZdvfsOpen(\"pool/big;F2\", 0x10100, 0x0) = 12", "ZdvfsFstat(12) = 0");
    EXPECT_TRUE(Logged(TakeLog(), 3, "Closed fragment 0 to open pool/big;F2\n"));
}

TEST_F(CQueryFileInfoTest, EvictedFragmentThatCannotBeClosedFailsTheQuery) {
    ConnectWithMaximum(1);
    MakeFragments("big", {10, 10});
    const Handle handle = Open(L"\\big");
    Double().Add(OnCall("ZdvfsClose").ForPath("pool/big").OnNth(1).Fails(EBUSY));
    EXPECT_EQ(DWORD{ERROR_BUSY}, Query(handle));
    EXPECT_TRUE(IsUntouched(m_information));
    ExpectUsableElsewhere(handle);
    AllowLeaks();  // the record keeps the descriptor, which is gone in the double
}

TEST_F(CQueryFileInfoTest, ClosedHandleOpensItsFirstFragmentAnew) {
    Double().MakeFile("pool/a", "hello");
    const Handle handle = Open(L"\\a");
    ASSERT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    ASSERT_EQ(0U, Query(handle));
    EXPECT_EQ(5U, m_information.size);
    EXPECT_CALLS("ZdvfsStat(\"pool/a\") = 0", "ZdvfsOpen(\"pool/a\", 0x10100, 0x0) = 11", "ZdvfsFstat(11) = 0");
}

TEST_F(CQueryFileInfoTest, FirstFragmentThatCannotBeReopenedGivesTheOpensOwnError) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{EACCES, ERROR_ACCESS_DENIED}, {ENOSPC, ERROR_HANDLE_DISK_FULL}, {EIO, ERROR_IO_DEVICE}};
    MakeFragments("a", {5, 5});
    const Handle handle = Open(L"\\a");
    ASSERT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    for (const auto& row : kRows) {
        Double().Add(OnCall("ZdvfsOpen").ForPath("pool/a").OnNth(1).Fails(row.error, 1234));
        ClearLogs();
        EXPECT_EQ(row.code, Query(handle)) << row.error;
        EXPECT_TRUE(IsUntouched(m_information)) << row.error;
        EXPECT_CALLS("ZdvfsStat(\"pool/a\") = 0", "ZdvfsOpen(\"pool/a\", 0x10100, 0x0) = -1");
        for (const LogLine& line : TakeLog()) EXPECT_LT(1U, line.level) << line.text;
    }
    ExpectUsableElsewhere(handle);
}

TEST_F(CQueryFileInfoTest, FileDeletedThroughTheHandleIsNotFoundAndNotBroughtBack) {
    Double().MakeFile("pool/a", "hello");
    const Handle handle = Open(L"\\a");
    ASSERT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    ClearLogs();
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Query(handle));
    EXPECT_CALLS();
    EXPECT_FALSE(Double().Exists("pool/a"));
    EXPECT_TRUE(IsUntouched(m_information));
}

TEST_F(CQueryFileInfoTest, DirectoryIsAskedByItsPath) {
    Double().MakeDirectory("pool/dir/sub");
    SetTimes("pool/dir/sub", 0, 2, 3);
    const Handle handle = Open(L"\\dir\\sub", kOpenDirectory);
    ASSERT_EQ(0U, Query(handle));
    EXPECT_CALLS("ZdvfsStat(\"pool/dir/sub\") = 0");
    EXPECT_LOG({6, "ZdQueryFileInfo Exit\n"}, {6, "ZdQueryFileInfo Exit\n"});
    EXPECT_EQ(0U, m_information.creationTime);
    EXPECT_EQ(FileTime(2), m_information.lastAccessTime);
    EXPECT_EQ(FileTime(3), m_information.changeTime);
    EXPECT_EQ(0x10U, m_information.attributes);
    EXPECT_EQ(0x4000U, m_information.mode & 0x4000);
    EXPECT_EQ(L"sub", ShownName());
}

TEST_F(CQueryFileInfoTest, ClosedDirectoryIsStillAskedByItsPath) {
    Double().MakeDirectory("pool/dir");
    const Handle handle = Open(L"\\dir", kOpenDirectory);
    ASSERT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    EXPECT_EQ(0U, Query(handle));
    EXPECT_CALLS("ZdvfsStat(\"pool/dir\") = 0");
}

TEST_F(CQueryFileInfoTest, FailedStatusIsTranslated) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{ENOENT, 2}, {EACCES, 5}, {ENOMEM, 122}, {EINVAL, 13}, {ENOTDIR, 267}, {129, 87}, {EIO, 1117}};
    Double().MakeFile("pool/a");
    Double().MakeDirectory("pool/dir");
    const Handle file = Open(L"\\a");
    const Handle directory = Open(L"\\dir", kOpenDirectory);
    for (const auto& row : kRows) {
        Double().Add(OnCall("ZdvfsFstat").ForPath("pool/a").OnNth(1).Fails(row.error, 1234));
        Double().Add(OnCall("ZdvfsStat").ForPath("pool/dir").OnNth(1).Fails(row.error, 1234));
        for (const Handle handle : {file, directory}) {
            ClearLogs();
            EXPECT_EQ(row.code, Query(handle)) << row.error;
            EXPECT_TRUE(IsUntouched(m_information)) << row.error;
            EXPECT_LOG({6, "ZdQueryFileInfo Exit\n"}, {6, "ZdQueryFileInfo Exit\n"});
        }
    }
    ExpectUsableElsewhere(file);
    ExpectUsableElsewhere(directory);
}

TEST_F(CQueryFileInfoTest, UnknownHandlesAndNullRecordsMakeNoStorageCall) {
    Double().MakeFile("pool/a");
    const Handle handle = Open(L"\\a");
    for (const Handle unknown : {Handle{0}, Handle{1}, handle + 1, ~Handle{0}}) {
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, Query(unknown)) << unknown;
        EXPECT_TRUE(IsUntouched(m_information));
        EXPECT_LOG({6, "ZdQueryFileInfo Exit\n"}, {6, "ZdQueryFileInfo Exit\n"});
    }
    for (const Handle any : {handle, Handle{1}}) {
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, m_manager->ZdQueryFileInfo(any, nullptr));
        EXPECT_LOG({6, "ZdQueryFileInfo Exit\n"}, {6, "ZdQueryFileInfo Exit\n"});
    }
    EXPECT_CALLS();
    ExpectUsableElsewhere(handle);
}

TEST_F(CQueryFileInfoTest, ExceptionsOfTheStorageAreReported) {
    Double().MakeFile("pool/a");
    const Handle handle = Open(L"\\a");
    Double().Add(OnCall("ZdvfsFstat").OnNth(1).Throws(EThrow::kBadAlloc));
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, Query(handle));
    EXPECT_LOG({6, "ZdQueryFileInfo Exit\n"}, {1, "ZdQueryFileInfo:   ERROR:  Not Enough Memory, dwError Code:    8\n"},
               {6, "ZdQueryFileInfo Exit\n"});
    Double().Add(OnCall("ZdvfsFstat").OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(31));
    EXPECT_EQ(31U, Query(handle));
    EXPECT_LOG({6, "ZdQueryFileInfo Exit\n"},
               {1, "ZdQueryFileInfo:   ERROR:  Unhandled exception caught, dwError Code:   31\n"},
               {6, "ZdQueryFileInfo Exit\n"});
    EXPECT_TRUE(IsUntouched(m_information));
    ExpectUsableElsewhere(handle);
}

TEST_F(CQueryFileInfoTest, ChangesNothing) {
    MakeFragments("big", {10, 10});
    const Handle handle = Open(L"\\big");
    TakeModified();
    EXPECT_EQ(0U, Query(handle));
    EXPECT_FALSE(TakeModified());
}

}  // namespace
}  // namespace zd::test
