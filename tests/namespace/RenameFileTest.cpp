// Slot 10 without replacing: what is renamed, who follows the new name, what bad input gets.
#include <thread>

#include "NamespaceFixture.h"

namespace zd::test {
namespace {

class CRenameFileTest : public CNamespaceTest {
protected:
    DWORD Rename(Handle handle, const std::wstring& newName) {
        return m_manager->ZdRenameFile(handle, newName.c_str(), 0);
    }
    std::wstring NameOf(Handle handle) {
        FileInformation information{};
        EXPECT_EQ(0U, m_manager->ZdQueryFileInfo(handle, &information));
        ClearLogs();
        return information.name;
    }
    void ExpectOnlyFrameLines() { EXPECT_LOG({6, "ZdRenameFile Enter\n"}, {6, "ZdRenameFile Exit\n"}); }
};

TEST_F(CRenameFileTest, FileTakesTheNewName) {
    Double().MakeFile("pool/a", "hello");
    Double().MakeDirectory("pool/dir");
    const Handle handle = Open(L"\\a");
    TakeModified();
    ClearLogs();
    EXPECT_EQ(0U, Rename(handle, L"\\dir\\b"));
    EXPECT_CALLS("ZdvfsRename(\"pool/a\", \"pool/dir/b\") = 0");
    ExpectOnlyFrameLines();
    EXPECT_TRUE(TakeModified());
    EXPECT_EQ(L"b", NameOf(handle));
    EXPECT_EQ("hello", Double().Bytes("pool/dir/b"));
    EXPECT_FALSE(Double().Exists("pool/a"));
    ExpectUsableElsewhere(handle);
}

TEST_F(CRenameFileTest, AllFragmentsAreRenamedInAscendingOrder) {
    MakeFragments("a", {10, 10, 5});
    const Handle handle = Open(L"\\a");
    EXPECT_EQ(0U, Rename(handle, L"\\b"));
    EXPECT_CALLS("ZdvfsRename(\"pool/a\", \"pool/b\") = 0", "ZdvfsRename(\"pool/a;F1\", \"pool/b;F1\") = 0",
                 "ZdvfsRename(\"pool/a;F2\", \"pool/b;F2\") = 0");
    ExpectOnlyFrameLines();
}

TEST_F(CRenameFileTest, OnlyFragmentsThatTheHandleKnowsAreRenamed) {
    MakeFragments("a", {10, 10});
    const Handle handle = Open(L"\\a");
    Double().MakeFile("pool/a;F2", "later");
    EXPECT_EQ(0U, Rename(handle, L"\\b"));
    EXPECT_CALLS("ZdvfsRename(\"pool/a\", \"pool/b\") = 0", "ZdvfsRename(\"pool/a;F1\", \"pool/b;F1\") = 0");
    EXPECT_TRUE(Double().Exists("pool/a;F2"));
}

TEST_F(CRenameFileTest, DirectoryIsRenamedAndItsStreamGoesOn) {
    Double().MakeFile("pool/dir/x");
    const Handle handle = Open(L"\\dir", kOpenDirectory);
    EXPECT_EQ(0U, Rename(handle, L"\\other"));
    EXPECT_CALLS("ZdvfsRename(\"pool/dir\", \"pool/other\") = 0");
    EXPECT_EQ((std::vector<std::wstring>{L".", L"..", L"x"}), List(handle).names);
}

TEST_F(CRenameFileTest, LaterWorkUsesTheNewName) {
    MakeFragments("a", {3, 2});
    const Handle handle = Open(L"\\a", kOpenToWrite);
    ASSERT_EQ(0U, Rename(handle, L"\\b"));
    ClearLogs();
    ASSERT_EQ(0U, Read(handle, 3, 2).code);
    EXPECT_CALLS("ZdvfsStat(\"pool/b;F1\") = 0", "ZdvfsOpen(\"pool/b;F1\", 0x102, 0x0) = *", "ZdvfsPread(*, 2, 0) = 2");
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_FALSE(Double().Exists("pool/b"));
    EXPECT_FALSE(Double().Exists("pool/b;F1"));
}

TEST_F(CRenameFileTest, ClosedHandleIsRenamedByItsName) {
    Double().MakeFile("pool/a", "hello");
    const Handle handle = Open(L"\\a");
    ASSERT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    EXPECT_EQ(0U, Rename(handle, L"\\b"));
    EXPECT_CALLS("ZdvfsRename(\"pool/a\", \"pool/b\") = 0");
    EXPECT_EQ(L"\\b", NameOf(handle));
}

TEST_F(CRenameFileTest, OtherHandlesOnTheFileFollow) {
    Double().MakeFile("pool/a", "hello");
    const Handle first = Open(L"\\a");
    const Handle second = Open(L"\\a");
    ASSERT_EQ(0U, Rename(first, L"\\b"));
    EXPECT_EQ(L"\\b", NameOf(second));
    const Handle third = Open(L"\\b");
    ASSERT_EQ(0U, Rename(second, L"\\c"));
    EXPECT_EQ(L"\\c", NameOf(first));
    EXPECT_EQ(L"\\c", NameOf(third)) << "a handle opened by the new name shares it";
    Double().MakeFile("pool/a", "another");
    const Handle fourth = Open(L"\\a");
    ASSERT_EQ(0U, Rename(first, L"\\d"));
    EXPECT_EQ(L"\\a", NameOf(fourth)) << "the old name is free";
}

TEST_F(CRenameFileTest, NameMayChangeItsCaseOnly) {
    Double().MakeFile("pool/a", "hello");
    const Handle handle = Open(L"\\a");
    EXPECT_EQ(0U, Rename(handle, L"\\A"));
    EXPECT_CALLS("ZdvfsRename(\"pool/a\", \"pool/A\") = 0");
    EXPECT_EQ(L"\\A", NameOf(handle));
    EXPECT_EQ(0U, Rename(handle, L"\\b"));
    EXPECT_CALLS("ZdvfsRename(\"pool/A\", \"pool/b\") = 0");
}

TEST_F(CRenameFileTest, ItsOwnNameSucceedsWithoutAStorageCall) {
    Double().MakeFile("pool/dir/a", "hello");
    const Handle handle = Open(L"\\dir\\a");
    TakeModified();
    ClearLogs();
    for (const wchar_t* const name :
         {L"\\dir\\a", L"/dir/a", L"\\dir/a", L"\\dir\\.\\a", L"\\dir\\\\a", L"\\dir\\x\\..\\a", L"\\..\\dir\\a"}) {
        for (const DWORD replace : {0U, 1U}) {
            EXPECT_EQ(0U, m_manager->ZdRenameFile(handle, name, replace)) << Narrow(name);
            EXPECT_CALLS();
            ExpectOnlyFrameLines();
        }
    }
    EXPECT_FALSE(TakeModified());
    EXPECT_EQ("hello", Double().Bytes("pool/dir/a"));
    EXPECT_EQ(L"a", NameOf(handle));
}

TEST_F(CRenameFileTest, FileCannotBecomeAPartOfItself) {
    MakeFragments("a", {5, 5});
    const Handle handle = Open(L"\\a");
    for (const wchar_t* const name : {L"\\a;F1", L"\\a;F7", L"/a;F1"}) {
        for (const DWORD replace : {0U, 1U}) {
            EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, m_manager->ZdRenameFile(handle, name, replace)) << Narrow(name);
            EXPECT_CALLS();
            ClearLogs();
        }
    }
    EXPECT_TRUE(Double().Exists("pool/a;F1"));
    EXPECT_EQ(0U, Rename(handle, L"\\b;F1")) << "another file's part is a name like any other";
}

TEST_F(CRenameFileTest, ExistingTargetFailsWithTheStoragesError) {
    Double().MakeFile("pool/a", "mine");
    Double().MakeFile("pool/b", "theirs");
    const Handle handle = Open(L"\\a");
    TakeModified();
    ClearLogs();
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Rename(handle, L"\\b"));
    EXPECT_CALLS("ZdvfsRename(\"pool/a\", \"pool/b\") = -1");
    ExpectOnlyFrameLines();
    EXPECT_FALSE(TakeModified());
    EXPECT_EQ(L"\\a", NameOf(handle));
    EXPECT_EQ("theirs", Double().Bytes("pool/b"));
    ExpectUsableElsewhere(handle);
}

TEST_F(CRenameFileTest, FailuresAreTranslatedAndPositiveResultsAreFailures) {
    static constexpr struct {
        int result;
        int error;
        DWORD code;
    } kRows[] = {{-1, ENOENT, 2},  {-1, EACCES, 5}, {-1, ENOTDIR, 267}, {-1, EINVAL, 13},
                 {-1, ENOSPC, 39}, {-1, EIO, 1117}, {1, EBUSY, 170},    {1, 0, 1117}};
    Double().MakeFile("pool/a");
    const Handle handle = Open(L"\\a");
    for (const auto& row : kRows) {
        Double().ClearRules();
        Rule rule = OnCall("ZdvfsRename").Answers(row.result);
        if (row.error != 0) rule.WithErrno(row.error).WithLastError(1234);
        Double().Add(rule);
        errno = EEXIST;
        EXPECT_EQ(row.code, Rename(handle, L"\\b")) << row.result << ", " << row.error;
        ExpectOnlyFrameLines();
    }
    EXPECT_EQ(L"\\a", NameOf(handle));
}

TEST_F(CRenameFileTest, FailureAtAFragmentLeavesTheEarlierOnesRenamedAndTheHandleItsOldName) {
    MakeFragments("a", {5, 5, 5});
    const Handle handle = Open(L"\\a");
    Double().Add(OnCall("ZdvfsRename").ForPath("pool/a;F1").Fails(EACCES));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Rename(handle, L"\\b"));
    EXPECT_CALLS("ZdvfsRename(\"pool/a\", \"pool/b\") = 0", "ZdvfsRename(\"pool/a;F1\", \"pool/b;F1\") = -1");
    ExpectOnlyFrameLines();
    EXPECT_TRUE(Double().Exists("pool/b"));
    EXPECT_TRUE(Double().Exists("pool/a;F1"));
    EXPECT_TRUE(Double().Exists("pool/a;F2"));
    EXPECT_EQ(L"\\a", NameOf(handle));
}

TEST_F(CRenameFileTest, BadNamesMakeNoStorageCall) {
    Double().MakeFile("pool/a");
    const Handle handle = Open(L"\\a");
    TakeModified();
    const std::wstring unconvertible = L"\\" + std::wstring(100, L'\u4e00');
    const struct {
        const char* what;
        const wchar_t* name;
        DWORD code;
    } kRows[] = {{"null", nullptr, ERROR_INVALID_NAME},
                 {"empty", L"", ERROR_INVALID_NAME},
                 {"more than two bytes a unit", unconvertible.c_str(), ERROR_FILE_NOT_FOUND}};
    for (const auto& row : kRows) {
        for (const DWORD replace : {0U, 1U}) {
            ClearLogs();
            EXPECT_EQ(row.code, m_manager->ZdRenameFile(handle, row.name, replace)) << row.what;
            EXPECT_CALLS();
            ExpectOnlyFrameLines();
        }
    }
    EXPECT_FALSE(TakeModified());
    EXPECT_EQ(L"\\a", NameOf(handle));
    ExpectUsableElsewhere(handle);
}

TEST_F(CRenameFileTest, UnknownHandlesMakeNoStorageCall) {
    Double().MakeFile("pool/a");
    Double().MakeFile("pool/b");
    const Handle handle = Open(L"\\a");
    for (const Handle unknown : {Handle{0}, Handle{1}, handle + 1}) {
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, m_manager->ZdRenameFile(unknown, L"\\b", 1)) << unknown;
        EXPECT_CALLS();
        ExpectOnlyFrameLines();
    }
}

TEST_F(CRenameFileTest, EntryThatTheTableNoLongerHoldsDoesNotFailTheRename) {
    Double().MakeFile("pool/a", "1");
    Double().MakeFile("pool/b", "22");
    const Handle first = Open(L"\\a");
    const Handle second = Open(L"\\b");
    ASSERT_EQ(0U, Rename(first, L"\\B"));
    EXPECT_EQ(0U, Rename(second, L"\\c")) << "its entry was displaced by the first";
    EXPECT_EQ(L"\\c", NameOf(second));
    EXPECT_EQ(L"\\B", NameOf(first));
}

TEST_F(CRenameFileTest, ExceptionsOfTheStorageAreReported) {
    Double().MakeFile("pool/a");
    const Handle handle = Open(L"\\a");
    Double().Add(OnCall("ZdvfsRename").OnNth(1).Throws(EThrow::kBadAlloc));
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, Rename(handle, L"\\b"));
    EXPECT_LOG({6, "ZdRenameFile Enter\n"}, {1, "ZdRenameFile:   ERROR:  Not Enough Memory, dwError Code:    8\n"},
               {6, "ZdRenameFile Exit\n"});
    Double().Add(OnCall("ZdvfsRename").OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(31));
    EXPECT_EQ(31U, Rename(handle, L"\\b"));
    EXPECT_LOG({6, "ZdRenameFile Enter\n"},
               {1, "ZdRenameFile:   ERROR:  Unhandled exception caught, dwError Code:   31\n"},
               {6, "ZdRenameFile Exit\n"});
    EXPECT_EQ(L"\\a", NameOf(handle));
    ExpectUsableElsewhere(handle);
}

TEST_F(CRenameFileTest, NameReadThroughAnotherHandleIsNeverTorn) {
    Double().MakeFile("pool/a", "hello");
    const std::wstring longName = L"\\" + std::wstring(200, L'b');
    const Handle renamed = Open(L"\\a");
    const Handle reader = Open(L"\\a");
    constexpr int kRounds = 200;
    std::thread writer([&] {
        for (int i = 0; i < kRounds; ++i) {
            EXPECT_EQ(0U, Rename(renamed, longName));
            EXPECT_EQ(0U, Rename(renamed, L"\\a"));
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        FileInformation information{};
        EXPECT_EQ(0U, m_manager->ZdQueryFileInfo(reader, &information));
        const std::wstring name = information.name;
        EXPECT_TRUE(name == L"\\a" || name == longName) << Narrow(name);
    }
    writer.join();
    EXPECT_EQ(L"\\a", NameOf(reader));
}

}  // namespace
}  // namespace zd::test
