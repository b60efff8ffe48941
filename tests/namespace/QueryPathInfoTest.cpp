// Slot 6: the information of a path that nobody need have opened.
#include <thread>

#include "NamespaceFixture.h"

namespace zd::test {
namespace {

class CQueryPathInfoTest : public CNamespaceTest {
protected:
    DWORD Query(const wchar_t* path) {
        m_information = Untouched<FileInformation>();
        return m_manager->ZdQueryPathInfo(path, &m_information);
    }

    FileInformation m_information{};
};

TEST_F(CQueryPathInfoTest, FieldsAreThoseOfTheStatusRecordAndTheNameIsLeftAlone) {
    Double().MakeFile("pool/dir/a", "hello");
    NodeState state;
    state.attributes = 0x8021;
    state.mode = 0x81A4;
    state.creationTime = 1;
    state.accessTime = 0;
    state.modificationTime = 3000;
    ASSERT_TRUE(Double().SetState("pool/dir/a", state));
    EXPECT_EQ(0U, Query(L"\\dir\\a"));
    EXPECT_CALLS("ZdvfsStat(\"pool/dir/a\") = 0", "ZdvfsStat(\"pool/dir/a;F1\") = -1");
    EXPECT_LOG();
    EXPECT_EQ(116444736010000000U, m_information.creationTime);
    EXPECT_EQ(0U, m_information.lastAccessTime);
    EXPECT_EQ(FileTime(3000), m_information.lastWriteTime);
    EXPECT_EQ(FileTime(3000), m_information.changeTime);
    EXPECT_EQ(0x8021U, m_information.attributes);
    EXPECT_EQ(5U, m_information.size);
    EXPECT_EQ(0x81A4U, m_information.mode);
    for (const wchar_t unit : m_information.name) ASSERT_EQ(0xCDCD, unit);
}

TEST_F(CQueryPathInfoTest, SizeIsTheSumOverAllFragments) {
    constexpr std::int64_t kMegabyte = 1 << 20;
    MakeFragments("big", {100 * kMegabyte, 100 * kMegabyte, 50 * kMegabyte});
    EXPECT_EQ(0U, Query(L"\\big"));
    EXPECT_EQ(250U * kMegabyte, m_information.size);
    EXPECT_CALLS("ZdvfsStat(\"pool/big\") = 0", "ZdvfsStat(\"pool/big;F1\") = 0", "ZdvfsStat(\"pool/big;F2\") = 0",
                 "ZdvfsStat(\"pool/big;F3\") = -1");
}

TEST_F(CQueryPathInfoTest, OtherFieldsAreThoseOfTheFileNotOfItsFragments) {
    MakeFragments("big", {10, 10});
    SetTimes("pool/big", 1, 2, 3);
    SetTimes("pool/big;F1", 11, 12, 13);
    EXPECT_EQ(0U, Query(L"\\big"));
    EXPECT_EQ(FileTime(1), m_information.creationTime);
    EXPECT_EQ(FileTime(2), m_information.lastAccessTime);
    EXPECT_EQ(FileTime(3), m_information.lastWriteTime);
}

TEST_F(CQueryPathInfoTest, StopsAtTheFirstMissingFragment) {
    Double().MakeFile("pool/a", "", 7);
    Double().MakeFile("pool/a;F1", "", 20);
    Double().MakeFile("pool/a;F3", "", 100);
    EXPECT_EQ(0U, Query(L"\\a"));
    EXPECT_EQ(27U, m_information.size);
    EXPECT_CALLS("ZdvfsStat(\"pool/a\") = 0", "ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsStat(\"pool/a;F2\") = -1");
}

TEST_F(CQueryPathInfoTest, FragmentWhoseStatusFailsOrIsPositiveEndsTheProbe) {
    MakeFragments("a", {1, 10, 100});
    for (const Rule& rule : {OnCall("ZdvfsStat").Fails(EIO), OnCall("ZdvfsStat").Answers(1)}) {
        Double().ClearRules();
        Double().Add(Rule(rule).ForPath("pool/a;F1"));
        EXPECT_EQ(0U, Query(L"\\a"));
        EXPECT_EQ(1U, m_information.size);
    }
}

TEST_F(CQueryPathInfoTest, NumbersOfSeveralDigitsReplaceEachOther) {
    MakeFragments("a", std::vector<std::int64_t>(12, 1));
    EXPECT_EQ(0U, Query(L"\\a"));
    EXPECT_EQ(12U, m_information.size);
    const std::vector<std::string> calls = TakeCalls();
    ASSERT_EQ(13U, calls.size());
    EXPECT_EQ("ZdvfsStat(\"pool/a;F9\") = 0", calls[9]);
    EXPECT_EQ("ZdvfsStat(\"pool/a;F10\") = 0", calls[10]);
    EXPECT_EQ("ZdvfsStat(\"pool/a;F12\") = -1", calls[12]);
}

TEST_F(CQueryPathInfoTest, DirectoryAndRootAreAskedTheSameWay) {
    Double().MakeDirectory("pool/dir");
    EXPECT_EQ(0U, Query(L"\\dir"));
    EXPECT_EQ(0x10U, m_information.attributes);
    EXPECT_EQ(0x4000U, m_information.mode & 0x4000);
    EXPECT_CALLS("ZdvfsStat(\"pool/dir\") = 0", "ZdvfsStat(\"pool/dir;F1\") = -1");
    EXPECT_EQ(0U, Query(L""));
    EXPECT_CALLS("ZdvfsStat(\"pool\") = 0", "ZdvfsStat(\"pool;F1\") = -1");
    EXPECT_EQ(0U, Query(L"\\"));
    EXPECT_CALLS("ZdvfsStat(\"pool/\") = 0", "ZdvfsStat(\"pool/;F1\") = -1");
}

TEST_F(CQueryPathInfoTest, EveryFailureIsAMissingFile) {
    Double().MakeFile("pool/a");
    const Rule kRules[] = {OnCall("ZdvfsStat").Fails(ENOENT),
                           OnCall("ZdvfsStat").Fails(EACCES),
                           OnCall("ZdvfsStat").Fails(EIO, 1234),
                           OnCall("ZdvfsStat").FailsSilently(),
                           OnCall("ZdvfsStat").Answers(1),
                           OnCall("ZdvfsStat").Throws(EThrow::kBadAlloc),
                           OnCall("ZdvfsStat").Throws(EThrow::kRuntimeError).WithLastError(31),
                           OnCall("ZdvfsStat").Throws(EThrow::kUnsignedLong, 5)};
    int row = 0;
    for (const Rule& rule : kRules) {
        Double().ClearRules();
        Double().Add(rule);
        ClearLogs();
        EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Query(L"\\a")) << row;
        EXPECT_TRUE(IsUntouched(m_information)) << row;
        EXPECT_EQ(1U, Double().Count("ZdvfsStat")) << row;
        EXPECT_LOG();
        ++row;
    }
}

TEST_F(CQueryPathInfoTest, ExceptionAtAFragmentIsAMissingFileAndLeavesTheRecord) {
    MakeFragments("a", {1, 2});
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/a;F1").Throws(EThrow::kBadAlloc));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Query(L"\\a"));
    EXPECT_TRUE(IsUntouched(m_information));
}

TEST_F(CQueryPathInfoTest, NullArgumentsAndPathsThatDoNotConvertMakeNoStorageCall) {
    Double().MakeFile("pool/a");
    ClearLogs();
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Query(nullptr));
    EXPECT_TRUE(IsUntouched(m_information));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdQueryPathInfo(L"\\a", nullptr));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdQueryPathInfo(nullptr, nullptr));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Query((L"\\" + std::wstring(100, L'\u4e00')).c_str()));
    EXPECT_TRUE(IsUntouched(m_information));
    EXPECT_CALLS();
    EXPECT_LOG();
}

TEST_F(CQueryPathInfoTest, TakesNoLockOfAHandle) {
    Double().MakeFile("pool/a", "hello");
    const Handle handle = Open(L"\\a");
    CGate entered;
    CGate proceed;
    Double().Add(OnCall("ZdvfsFstat").Before([&](const Call&) {
        entered.Set();
        proceed.Wait();
    }));
    FileInformation blocked{};
    std::thread other([&] { m_manager->ZdQueryFileInfo(handle, &blocked); });
    EXPECT_TRUE(entered.Wait());
    EXPECT_EQ(0U, Query(L"\\a"));
    EXPECT_EQ(5U, m_information.size);
    proceed.Set();
    other.join();
    EXPECT_EQ(5U, blocked.size);
}

}  // namespace
}  // namespace zd::test
