// The search for a pool's top-level directory.
#include "ProtocolFixture.h"

using namespace zd::test;

namespace {

class CMarkerTest : public CProtocolTest {
protected:
    void SetUp() override {
        CProtocolTest::SetUp();
        m_manager = NewManager();
    }

    // Connects and answers the calls from the opening of the root to its closing.
    std::vector<std::string> Search(const std::wstring& pool = L"pool") {
        ClearLogs();
        EXPECT_EQ(0U, Connect(pool));
        std::vector<std::string> calls = TakeCalls();
        const auto begin = std::find_if(calls.begin(), calls.end(),
                                        [](const std::string& line) { return line.starts_with("ZdvfsOpendir("); });
        const auto end =
            std::find_if(begin, calls.end(), [](const std::string& line) { return line.starts_with("ZdvfsOpen("); });
        return {begin, end};
    }

    std::string TopLevelDirectory(const std::wstring& pool = L"pool") {
        const auto value = Registry().Get(PoolKey(pool), L"TopLevelDirectory");
        if (!value) return "(none)";
        EXPECT_EQ(DWORD{REG_SZ}, value->type);
        return Narrow(value->Text());
    }
};

TEST_F(CMarkerTest, FirstEntryWithAMarkerIsTheTopLevelDirectory) {
    Registry().CreateKey(PoolKey(L"pool"));
    Double().MakeFile("pool/plain.txt");
    Double().MakeDirectory("pool/without");
    Double().MakeFile("pool/top/QBX_ZD_MARKER");
    Double().MakeFile("pool/second/QBX_ZD_MARKER");
    EXPECT_TRUE(LinesFit(
        {"ZdvfsOpendir(\"pool\") = dir*", "ZdvfsReaddir(dir*) = \".\"", "ZdvfsReaddir(dir*) = \"..\"",
         "ZdvfsReaddir(dir*) = \"plain.txt\"", "ZdvfsStat(\"pool/plain.txt/QBX_ZD_MARKER\") = -1",
         "ZdvfsReaddir(dir*) = \"without\"", "ZdvfsStat(\"pool/without/QBX_ZD_MARKER\") = -1",
         "ZdvfsReaddir(dir*) = \"top\"", "ZdvfsStat(\"pool/top/QBX_ZD_MARKER\") = 0", "ZdvfsClosedir(dir*) = 0"},
        Search()));
    EXPECT_EQ("top", TopLevelDirectory());
}

TEST_F(CMarkerTest, RootWithDotEntriesOnlyWritesNothing) {
    Registry().CreateKey(PoolKey(L"pool"));
    EXPECT_TRUE(LinesFit({"ZdvfsOpendir(\"pool\") = dir*", "ZdvfsReaddir(dir*) = \".\"", "ZdvfsReaddir(dir*) = \"..\"",
                          "ZdvfsReaddir(dir*) = null", "ZdvfsClosedir(dir*) = 0"},
                         Search()));
    EXPECT_EQ("(none)", TopLevelDirectory());
}

TEST_F(CMarkerTest, PoolWithoutAMarkerWritesNothing) {
    Registry().CreateKey(PoolKey(L"pool"));
    Double().MakeFile("pool/dir/QBX_ZD_MARKER.txt");
    Search();
    EXPECT_EQ("(none)", TopLevelDirectory());
    Registry().SetText(PoolKey(L"pool"), L"TopLevelDirectory", L"from before");
    Search();
    EXPECT_EQ("from before", TopLevelDirectory());
}

TEST_F(CMarkerTest, NamesThatOnlyBeginWithDotsAreSearched) {
    Registry().CreateKey(PoolKey(L"pool"));
    Double().MakeFile("pool/...");
    Double().MakeFile("pool/.top/QBX_ZD_MARKER");
    Search();
    EXPECT_EQ(".top", TopLevelDirectory());
}

TEST_F(CMarkerTest, NameComesOutOfUtf8) {
    Registry().CreateKey(PoolKey(L"p\u00f6l"));
    Double().MakeFile("p\xc3\xb6l/t\xc3\xb6p\xe4\xb8\xad/QBX_ZD_MARKER");
    Search(L"p\u00f6l");
    EXPECT_EQ("t\xc3\xb6p\xe4\xb8\xad", TopLevelDirectory(L"p\u00f6l"));
}

TEST_F(CMarkerTest, LaterConnectReplacesTheName) {
    Registry().SetText(PoolKey(L"pool"), L"TopLevelDirectory", L"old", REG_EXPAND_SZ);
    Double().MakeFile("pool/top/QBX_ZD_MARKER");
    Search();
    EXPECT_EQ("top", TopLevelDirectory());
}

TEST_F(CMarkerTest, MissingPoolKeyIsSkippedAndNotMade) {
    Double().MakeFile("pool/top/QBX_ZD_MARKER");
    EXPECT_FALSE(Search().empty());
    EXPECT_FALSE(Registry().KeyExists(PoolKey(L"pool")));
}

TEST_F(CMarkerTest, StatusThatFailsForAnyReasonIsNoMarker) {
    Registry().CreateKey(PoolKey(L"pool"));
    Double().MakeFile("pool/a/QBX_ZD_MARKER");
    Double().MakeFile("pool/b/QBX_ZD_MARKER");
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/a/QBX_ZD_MARKER").Fails(EACCES));
    Search();
    EXPECT_EQ("b", TopLevelDirectory());
}

TEST_F(CMarkerTest, RootThatCannotBeListedSkipsTheSearch) {
    Registry().CreateKey(PoolKey(L"pool"));
    Double().MakeFile("pool/top/QBX_ZD_MARKER");
    Double().Add(OnCall("ZdvfsOpendir").Fails(EACCES));
    EXPECT_TRUE(LinesFit({"ZdvfsOpendir(\"pool\") = null"}, Search()));
    EXPECT_EQ("(none)", TopLevelDirectory());
}

TEST_F(CMarkerTest, RootNameOfMoreThan260BytesSkipsTheSearch) {
    // 87 characters of three bytes are 261 bytes, 86 and two more 260.
    const std::wstring tooLong(87, L'\u4e2d');
    const std::wstring longest = std::wstring(86, L'\u4e2d') + L"ab";
    for (const std::wstring& pool : {tooLong, longest}) {
        Registry().CreateKey(PoolKey(pool));
        Double().MakeFile(Narrow(pool) + "/top/QBX_ZD_MARKER");
        Search(pool);
    }
    EXPECT_EQ("(none)", TopLevelDirectory(tooLong));
    EXPECT_EQ("top", TopLevelDirectory(longest));
}

TEST_F(CMarkerTest, LongEntryNamesAreNotCut) {
    Registry().CreateKey(PoolKey(L"pool"));
    const std::string name(1000, 'n');
    Double().MakeFile("pool/" + name + "/QBX_ZD_MARKER");
    Search();
    EXPECT_EQ(name, TopLevelDirectory());
}

TEST_F(CMarkerTest, StreamIsClosedWhateverTheClosingAnswers) {
    Double().Add(OnCall("ZdvfsClosedir").Fails(EIO));
    EXPECT_EQ("ZdvfsClosedir(dir1) = -1", Search().back());
}

}  // namespace
