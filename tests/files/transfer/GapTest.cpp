// Bytes that were acknowledged keep their offsets, whatever stood or ended before them.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CGapTest : public CConnectedFilesTest {};

TEST_F(CGapTest, WriteBehindAShortAppendStandsAtItsOffset) {
    const Handle target = OpenSized(10, "", "a");
    const Handle source = Open({"01234"}, "b", kOpenToRead);
    EXPECT_EQ(0U, m_manager->ZdAppendFile(target, source, 0, 0, 10));
    EXPECT_EQ("01234", Double().Bytes("pool/a"));
    EXPECT_EQ(0U, Write(target, 10, "behind").code);
    EXPECT_EQ((std::vector<std::string>{std::string("01234\0\0\0\0\0", 10), "behind"}), Stored());
    EXPECT_EQ("behind", Read(target, 10, 100).data);
    Close(target);
    Close(source);
}

TEST_F(CGapTest, ReaderAddsNoFragment) {
    const Handle handle = Open({"0123456789", "abcdefghij"}, "a", kOpenToRead);
    ClearLogs();
    EXPECT_EQ(5U, Write(handle, 20, "x").code);
    EXPECT_CALLS();
    EXPECT_EQ(2U, Stored().size());
    ExpectUsableElsewhere(handle);
    Close(handle);
}

TEST_F(CGapTest, PartsOfAFileGoByItsNameWithoutSeparatorsBehindIt) {
    MakeFragments({"0123456789", "rest"});
    for (const wchar_t* const name : {L"\\a", L"\\a\\", L"\\a//"}) {
        SCOPED_TRACE(Narrow(name));
        const Created opened = Create(name, kOpenToWrite);
        ASSERT_EQ(0U, opened.code);
        EXPECT_EQ(14U, opened.information.size);
        EXPECT_EQ("9rest", Read(opened.handle, 9, 100).data);
        Close(opened.handle);
    }
    const Created opened = Create(L"\\a\\", kOpenToWrite);
    EXPECT_EQ(0U, m_manager->ZdCloseFile(opened.handle, 1));
    EXPECT_TRUE(Double().Names("pool").empty());
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(opened.handle));
}

}  // namespace
}  // namespace zd::test
