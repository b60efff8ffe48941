// Slot 20: the walk along a control path, its calls and its answer.
#include <thread>

#include "harness/PluginFixture.h"

using namespace zd::test;

namespace {

// Fits a call that finds its object, and one that does not.
std::string Found(const std::string& path) {
    return "ZdvfsStat(\"" + path + "\") = 0";
}
std::string Missing(const std::string& path) {
    return "ZdvfsStat(\"" + path + "\") = -1";
}
std::string Listed(const std::string& path) {
    return "ZdvfsOpendirForList(\"" + path + "\", 1) = dir*";
}
const std::string kClosed = "ZdvfsClosedir(dir*) = 0";

class CControlPathTest : public CConnectedTest {
protected:
    void SetUp() override {
        CConnectedTest::SetUp();
        Double().MakeFile("pool/a/.refresh");
        Double().MakeFile("pool/a/b/.refresh");
        Double().MakeFile("pool/a/b/c/.refresh");
    }
};

TEST_F(CControlPathTest, EachLevelDownToTheLastDirectoryIsRefreshed) {
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\b\\file"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), Listed("/pool/a/"), kClosed, Found("/pool/a/b/.refresh"),
                 Listed("/pool/a/b/"), kClosed, Missing("/pool/a/b/.refresh_all"));
    EXPECT_LOG();
}

TEST_F(CControlPathTest, PathsWithoutThePrefixAnswerZeroAndMakeNoCall) {
    static const wchar_t* const kRows[] = {
        L"",
        L"\\",
        L"\\\\",
        L"\\\\.zdvfs",
        L"\\\\.ZDVFS\\pool\\a\\b\\file",
        L"\\\\.Zdvfs\\pool\\a\\b\\file",
        L"\\\\.zdvfs/pool\\a\\b\\file",
        L"//.zdvfs\\pool\\a\\b\\file",
        L"\\\\zdvfs\\pool\\a\\b\\file",
        L"\\.zdvfs\\pool\\a\\b\\file",
        L" \\\\.zdvfs\\pool\\a\\b\\file",
        L"\\pool\\a\\b\\file",
    };
    for (const wchar_t* const path : kRows) {
        EXPECT_EQ(0U, m_manager->ZdControlPath(path)) << Narrow(path);
        EXPECT_ALL_CALLS();
    }
    EXPECT_LOG();
}

TEST_F(CControlPathTest, NullPathAnswersZeroAndMakesNoCall) {
    EXPECT_EQ(0U, m_manager->ZdControlPath(nullptr));
    EXPECT_ALL_CALLS();
    EXPECT_LOG();
}

TEST_F(CControlPathTest, PathWithoutAMarkerAtItsFirstLevelAnswersZeroAfterOneStatusAndTheProbe) {
    Double().Remove("pool/a/.refresh");
    EXPECT_EQ(0U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\b\\file"));
    EXPECT_CALLS(Missing("/pool/a/.refresh"), Missing("/pool/a/b/.refresh_all"));
}

TEST_F(CControlPathTest, WalkEndsAtTheFirstLevelWithoutAMarker) {
    Double().Remove("pool/a/b/.refresh");
    EXPECT_EQ(0U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\b\\c\\file"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), Listed("/pool/a/"), kClosed, Missing("/pool/a/b/.refresh"),
                 Missing("/pool/a/b/c/.refresh_all"));
}

TEST_F(CControlPathTest, ShortPathsWalkNoLevelAndAnswerOne) {
    static const struct {
        const wchar_t* path;
        const char* probe;
    } kRows[] = {
        {L"\\\\.zdvfs\\pool", "/.refresh_all"},
        {L"\\\\.zdvfs\\", "/.refresh_all"},
        {L"\\\\.zdvfs\\x", "/.refresh_all"},
        {L"\\\\.zdvfs\\pool\\", "/pool/.refresh_all"},
        {L"\\\\.zdvfs\\pool\\file", "/pool/.refresh_all"},
        {L"\\\\.zdvfs\\\\", "//.refresh_all"},
        {L"\\\\.zdvfs\\pool/file", "/pool/.refresh_all"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(1U, m_manager->ZdControlPath(row.path)) << Narrow(row.path);
        EXPECT_CALLS(Missing(row.probe));
    }
}

TEST_F(CControlPathTest, TrailingSeparatorMakesTheLastComponentADirectory) {
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\b\\"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), Listed("/pool/a/"), kClosed, Found("/pool/a/b/.refresh"),
                 Listed("/pool/a/b/"), kClosed, Missing("/pool/a/b/.refresh_all"));
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), Listed("/pool/a/"), kClosed, Missing("/pool/a/.refresh_all"));
}

TEST_F(CControlPathTest, SlashesAndBackslashesSeparateAlike) {
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool/a\\b/c\\file"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), Listed("/pool/a/"), kClosed, Found("/pool/a/b/.refresh"),
                 Listed("/pool/a/b/"), kClosed, Found("/pool/a/b/c/.refresh"), Listed("/pool/a/b/c/"), kClosed,
                 Missing("/pool/a/b/c/.refresh_all"));
}

TEST_F(CControlPathTest, SeparatorsInARowStandForOneBetweenLevels) {
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\\\b\\file"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), Listed("/pool/a/"), kClosed, Found("/pool/a/b/.refresh"),
                 Listed("/pool/a/b/"), kClosed, Missing("/pool/a//b/.refresh_all"));
}

TEST_F(CControlPathTest, SeparatorsInARowAtTheEndAreNoLevel) {
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\\\\\"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), Listed("/pool/a/"), kClosed, Missing("/pool/a///.refresh_all"));
}

TEST_F(CControlPathTest, NamesBeyondAsciiAreConverted) {
    Double().MakeFile("pool/\xc3\xa4\xe5\x9c\x9c/.refresh");
    Double().MakeFile("pool/\xc3\xa4\xe5\x9c\x9c/\xf0\x9f\x98\x80/.refresh");
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\\u00E4\u571C\\\U0001F600\\x"));
    EXPECT_CALLS(Found("/pool/\xc3\xa4\xe5\x9c\x9c/.refresh"), Listed("/pool/\xc3\xa4\xe5\x9c\x9c/"), kClosed,
                 Found("/pool/\xc3\xa4\xe5\x9c\x9c/\xf0\x9f\x98\x80/.refresh"),
                 Listed("/pool/\xc3\xa4\xe5\x9c\x9c/\xf0\x9f\x98\x80/"), kClosed,
                 Missing("/pool/\xc3\xa4\xe5\x9c\x9c/\xf0\x9f\x98\x80/.refresh_all"));
}

TEST_F(CControlPathTest, ConvertsFromThePrefixsLastBackslashAndFreesTheBlock) {
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\x"));
    EXPECT_ALL_CALLS("wcstoutf8_malloced(\"\\pool\\x\") = block*", "_HulFree(block*)", Missing("/pool/.refresh_all"));
    EXPECT_EQ(0, Hul().LiveBlocks());
}

TEST_F(CControlPathTest, PathThatDoesNotConvertAnswersZeroWithoutAStorageCall) {
    Double().Add(OnCall("wcstoutf8_malloced").Answers(0));
    EXPECT_EQ(0U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\b\\file"));
    EXPECT_CALLS();
    EXPECT_LOG();
}

TEST_F(CControlPathTest, RootOfTheConnectionIsNotPutInFront) {
    IProtocolManager* const other = NewManager();
    ClearLogs();
    EXPECT_EQ(1U, other->ZdControlPath(L"\\\\.zdvfs\\elsewhere\\x")) << "no connection is needed";
    EXPECT_CALLS(Missing("/elsewhere/.refresh_all"));
}

TEST_F(CControlPathTest, ListThatCannotBeOpenedDoesNotEndTheWalk) {
    Double().Add(OnCall("ZdvfsOpendirForList").ForPath("pool/a").Fails(EACCES));
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\b\\file"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), "ZdvfsOpendirForList(\"/pool/a/\", 1) = null", Found("/pool/a/b/.refresh"),
                 Listed("/pool/a/b/"), kClosed, Missing("/pool/a/b/.refresh_all"));
}

TEST_F(CControlPathTest, AnyFailingStatusCountsAsAMissingMarker) {
    for (const int error : {ENOENT, EACCES, EIO, ENOMEM}) {
        Double().ClearRules();
        Double().Add(OnCall("ZdvfsStat").ForPath("pool/a/.refresh").Fails(error));
        EXPECT_EQ(0U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\file")) << error;
        EXPECT_CALLS(Missing("/pool/a/.refresh"), Missing("/pool/a/.refresh_all"));
    }
}

TEST_F(CControlPathTest, OnlyANegativeStatusIsAFailure) {
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/a/.refresh").Answers(1));
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\file"));
    EXPECT_CALLS("ZdvfsStat(\"/pool/a/.refresh\") = 1", Listed("/pool/a/"), kClosed, Missing("/pool/a/.refresh_all"));
}

TEST_F(CControlPathTest, ResultOfTheProbeIsNotUsed) {
    Double().MakeFile("pool/a/.refresh_all");
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\file"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), Listed("/pool/a/"), kClosed, Found("/pool/a/.refresh_all"));
    Double().Remove("pool/a/.refresh");
    EXPECT_EQ(0U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\file"));
    EXPECT_CALLS(Missing("/pool/a/.refresh"), Found("/pool/a/.refresh_all"));
}

TEST_F(CControlPathTest, FailingCloseOfTheListChangesNothing) {
    AllowLeaks();
    Double().Add(OnCall("ZdvfsClosedir").Fails(EIO));
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\file"));
    EXPECT_CALLS(Found("/pool/a/.refresh"), Listed("/pool/a/"), "ZdvfsClosedir(dir*) = -1",
                 Missing("/pool/a/.refresh_all"));
}

TEST_F(CControlPathTest, NoExceptionLeavesAndEachAnswersZero) {
    static const struct {
        const char* function;
        EThrow thrown;
    } kRows[] = {
        {"wcstoutf8_malloced", EThrow::kBadAlloc},
        {"wcstoutf8_malloced", EThrow::kRuntimeError},
        {"ZdvfsStat", EThrow::kBadAlloc},
        {"ZdvfsStat", EThrow::kRuntimeError},
        {"ZdvfsStat", EThrow::kUnsignedLong},
        {"ZdvfsOpendirForList", EThrow::kBadAlloc},
        {"ZdvfsOpendirForList", EThrow::kRuntimeError},
    };
    for (const auto& row : kRows) {
        Double().ClearRules();
        Double().Add(OnCall(row.function).Throws(row.thrown, 5));
        DWORD code = kUntouched;
        EXPECT_NO_THROW(code = m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\b\\file")) << row.function;
        EXPECT_EQ(0U, code) << row.function;
    }
    EXPECT_LOG();
    EXPECT_EQ(0, Hul().LiveBlocks());
}

TEST_F(CControlPathTest, LongPathsAreWalkedWhole) {
    const std::wstring name(300, L'n');
    std::wstring path = L"\\\\.zdvfs\\pool";
    for (int level = 0; level < 150; ++level) path += L"\\" + name;
    Double().Add(OnCall("ZdvfsStat").Answers(0));
    EXPECT_EQ(1U, m_manager->ZdControlPath(path.c_str()));
    EXPECT_EQ(149U, Double().Count("ZdvfsOpendirForList")) << "every component between the pool and the last";
    EXPECT_EQ(150U, Double().Count("ZdvfsStat"));
}

TEST_F(CControlPathTest, UnpairedSurrogatesAreNoReasonToFail) {
    const wchar_t path[] = {L'\\', L'\\', L'.',  L'z',   L'd',  L'v', L'f', L's',
                            L'\\', L'p',  L'\\', 0xD800, L'\\', L'x', 0};
    EXPECT_EQ(0U, m_manager->ZdControlPath(path));
    EXPECT_CALLS("ZdvfsStat(\"/p/*/.refresh\") = -1", "ZdvfsStat(\"/p/*/.refresh_all\") = -1");
}

TEST_F(CControlPathTest, NoLockIsHeldDuringTheStorageCalls) {
    DWORD inner = kUntouched;
    Double().Add(OnCall("ZdvfsOpendirForList").OnNth(1).Before([&](const Call&) {
        std::thread([&] {
            const Created file = Create(L"\\a\\new");
            inner = file.code;
            if (file.code == 0) Close(file.handle);
            m_manager->ZdRefreshSettings(0, false);
        }).join();
    }));
    EXPECT_EQ(1U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\file"));
    EXPECT_EQ(0U, inner);
}

TEST_F(CControlPathTest, ExceptionsOfClosingCallsGiveZero) {
    for (const char* const call : {"_HulFree", "ZdvfsClosedir"}) {
        Double().ClearRules();
        Double().Add(OnCall(call).OnNth(1).Throws(EThrow::kRuntimeError));
        EXPECT_EQ(0U, m_manager->ZdControlPath(L"\\\\.zdvfs\\pool\\a\\b\\file")) << call;
    }
    AllowLeaks();  // what threw was not closed
}

}  // namespace
