// Handles on one name share the record of the name. It shows in the spelling that their fragments are opened under.
#include <clocale>

#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CNameTest : public CConnectedFilesTest {
protected:
    // The spelling that a closed handle's file is reopened with.
    std::string Spelling(Handle handle) {
        EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
        ClearLogs();
        EXPECT_EQ(0U, Read(handle, 0, 1).code);
        const auto opens = CallsStarting(TakeCalls(), "ZdvfsOpen(\"");
        if (opens.size() != 1) return std::to_string(opens.size()) + " opens";
        const std::size_t from = opens[0].find('"') + 1;
        return opens[0].substr(from, opens[0].find('"', from) - from);
    }

    Handle OpenNamed(const std::wstring& name) {
        const Created created = Create(name, kOpenToWrite);
        EXPECT_EQ(0U, created.code);
        return created.handle;
    }
};

TEST_F(CNameTest, NamesThatDifferInCaseShareOneRecord) {
    Double().MakeFile("pool/A.TXT", "upper");
    Double().MakeFile("pool/a.txt", "lower");
    const Handle first = OpenNamed(L"\\A.TXT");
    const Handle second = OpenNamed(L"\\a.txt");
    EXPECT_NE(first, second);
    EXPECT_EQ("pool/A.TXT", Spelling(first));
    EXPECT_EQ("pool/A.TXT", Spelling(second));
    Close(first);
    Close(second);
}

TEST_F(CNameTest, NameLeavesTheTableOnlyWhenTheLastHandleIsReleased) {
    Double().MakeFile("pool/A.TXT", "upper");
    Double().MakeFile("pool/a.txt", "lower");
    const Handle first = OpenNamed(L"\\A.TXT");
    const Handle second = OpenNamed(L"\\a.txt");
    Close(first);
    const Handle third = OpenNamed(L"\\a.txt");
    EXPECT_EQ("pool/A.TXT", Spelling(third)) << "the second handle still holds the name";
    EXPECT_EQ(0U, m_manager->ZdCloseFile(second, 0));
    EXPECT_EQ("pool/A.TXT", Spelling(third)) << "closing does not give the name up";
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(second));
    Close(third);
    const Handle fourth = OpenNamed(L"\\a.txt");
    EXPECT_EQ("pool/a.txt", Spelling(fourth)) << "all handles were released, so the name begins anew";
    Close(fourth);
}

TEST_F(CNameTest, LettersBeyondAsciiDoNotFoldInTheTable) {
    // The C locale's rule folds the 26 letters only.
    Double().MakeFile("pool/\xc3\x84", "upper");
    Double().MakeFile("pool/\xc3\xa4", "lower");
    const Handle first = OpenNamed(L"\\\u00c4");
    const Handle second = OpenNamed(L"\\\u00e4");
    EXPECT_EQ("pool/\xc3\x84", Spelling(first));
    EXPECT_EQ("pool/\xc3\xa4", Spelling(second));
    Close(first);
    Close(second);
}

TEST_F(CNameTest, HostLocaleDoesNotChangeWhichNamesAreOne) {
    Double().MakeFile("pool/\xc3\x84x", "upper");
    Double().MakeFile("pool/\xc3\xa4x", "lower");
    const Handle first = OpenNamed(L"\\\u00c4x");
    ASSERT_NE(nullptr, std::setlocale(LC_ALL, "en-US"));
    ASSERT_EQ(0, ::_wcsicmp(L"\u00c4x", L"\u00e4x")) << "this locale tells nothing";
    const Handle second = OpenNamed(L"\\\u00e4x");
    EXPECT_EQ("pool/\xc3\xa4x", Spelling(second));
    EXPECT_EQ("pool/\xc3\x84x", Spelling(first));
    Close(first);
    Close(second);
}

TEST_F(CNameTest, ConnectionsDoNotShareNames) {
    Double().MakeFile("pool/A", "upper");
    Double().MakeFile("pool/a", "lower");
    IProtocolManager* const other = NewManager();
    const ConnectParameters parameters = Parameters(L"pool");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    const Handle first = OpenNamed(L"\\A");
    const Created second = Create(L"\\a", kOpenToWrite, other);
    ASSERT_EQ(0U, second.code);
    EXPECT_EQ(0U, other->ZdCloseFile(second.handle, 0));
    EXPECT_EQ("lower", Read(second.handle, 0, 5, other).data);
    Close(second.handle, other);
    Close(first);
}

}  // namespace
}  // namespace zd::test
