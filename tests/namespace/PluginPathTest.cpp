// Path translation and the name rule as a host meets them.
#include "harness/PluginFixture.h"

namespace zd::test {
namespace {

constexpr CreateOptions kReader{.disposition = kZdOpen, .access = 0x1};

class CPluginPathTest : public CDoubleTest {
protected:
    DWORD Opens(const std::wstring& name) {
        ::SetLastError(0);
        const Created created = Create(name, kReader);
        if (created.code == 0) Close(created.handle);
        return created.code;
    }
};

TEST_F(CPluginPathTest, EveryCallOfAHandleCarriesTheConnectionsPrefix) {
    ASSERT_EQ(0U, Connect(L"/share"));
    Double().MakeFile("share/dir/file.txt", "hello");
    ClearLogs();
    EXPECT_EQ(0U, Opens(L"\\dir\\file.txt"));
    for (const std::string& line : TakeCalls()) {
        if (line.starts_with("ZdvfsClose(")) continue;
        EXPECT_NE(std::string::npos, line.find("(\"/share/dir/file.txt")) << line;
    }
}

TEST_F(CPluginPathTest, EachConnectionHasAPrefixOfItsOwn) {
    ASSERT_EQ(0U, Connect(L"one"));
    IProtocolManager* const other = NewManager();
    const ConnectParameters parameters = Parameters(L"two");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    Double().MakeFile("two/a");
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Opens(L"\\a"));
    const Created created = Create(L"\\a", kReader, other);
    EXPECT_EQ(0U, created.code);
    Close(created.handle, other);
}

TEST_F(CPluginPathTest, PrefixFollowsTheNextConnect) {
    ASSERT_EQ(0U, Connect(L"one"));
    ASSERT_EQ(0U, Connect(L"two"));
    Double().MakeFile("two/a");
    EXPECT_EQ(0U, Opens(L"\\a"));
}

TEST_F(CPluginPathTest, HundredCharactersOfThreeBytesAreNotFound) {
    ASSERT_EQ(0U, Connect());
    ClearLogs();
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Opens(std::wstring(100, L'\u4e00')));
    EXPECT_CALLS();
    const Created created = Create(L"\\" + std::wstring(100, L'a'), {.disposition = kZdCreate});
    EXPECT_EQ(0U, created.code);
    Close(created.handle);
}

TEST_F(CPluginPathTest, RuleIsReadAtConnectAndAtEveryRefresh) {
    const std::wstring tab = L"\\a\tb";
    const std::wstring accent = L"\\\u00e9";
    Registry().SetDword(kPluginKey, L"HighestValidNameChar", 0x7F);
    ASSERT_EQ(0U, Connect());
    EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, Opens(accent));
    EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, Opens(tab));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Opens(L"\\abc"));

    Registry().SetDword(kPluginKey, L"HighestValidNameChar", 0xFFFF);
    m_manager->ZdRefreshSettings(0, false);
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Opens(accent));
    EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, Opens(tab));

    Registry().DeleteValue(kPluginKey, L"HighestValidNameChar");
    m_manager->ZdRefreshSettings(0, false);
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Opens(tab));
}

TEST_F(CPluginPathTest, RuleIsCutToSixteenBits) {
    Registry().SetDword(kPluginKey, L"HighestValidNameChar", 0x1007F);
    ASSERT_EQ(0U, Connect());
    EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, Opens(L"\\\u00e9"));
    Registry().SetDword(kPluginKey, L"HighestValidNameChar", 0x10000);
    m_manager->ZdRefreshSettings(0, false);
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Opens(L"\\a\tb"));
}

TEST_F(CPluginPathTest, RuleOfAnotherTypeIsAbsent) {
    Registry().SetText(kPluginKey, L"HighestValidNameChar", L"127");
    ASSERT_EQ(0U, Connect());
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Opens(L"\\\u00e9"));
}

}  // namespace
}  // namespace zd::test
