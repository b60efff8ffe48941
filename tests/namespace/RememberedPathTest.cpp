// What handles keep of their names: storage paths, the order of the table, and the name while fragments are looked for.
#include <algorithm>
#include <atomic>
#include <thread>

#include "NamespaceFixture.h"

namespace zd::test {
namespace {

class CRememberedPathTest : public CNamespaceTest {
protected:
    std::vector<std::string> Called(const std::string& function) {
        std::vector<std::string> lines;
        for (std::string& line : TakeCalls()) {
            if (line.starts_with(function)) lines.push_back(std::move(line));
        }
        return lines;
    }
};

TEST_F(CRememberedPathTest, RenameThroughAnotherHandleWaitsUntilTheFragmentsAreFound) {
    MakeFragments("big", {10, 10, 10, 10, 10, 4});
    const Handle holder = Open(L"\\big", kOpenToWrite);
    std::thread rename;
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/big;F2").OnNth(1).After([&](const Call&) {
        rename = std::thread([&] { EXPECT_EQ(0U, m_manager->ZdRenameFile(holder, L"\\moved", 0)); });
        // Long enough for a rename that does not wait; one that does is not hurried.
        ::Sleep(100);
    }));
    const Created opened = Create(L"\\big", kOpenToWrite);
    ASSERT_TRUE(rename.joinable());
    rename.join();
    EXPECT_EQ(0U, opened.code);
    EXPECT_EQ(54U, opened.information.size);
    EXPECT_EQ(54U, Read(opened.handle, 0, 100).count);
    Close(opened.handle);
    Close(holder);
}

TEST_F(CRememberedPathTest, FileThatIsReplacedWhileItIsOpenedTakesNoFragmentsOfItsSuccessor) {
    MakeFragments("new", {10, 10, 4});
    MakeFragments("old", {10, 10, 10});
    const Handle source = Open(L"\\new", kOpenToWrite);
    const Handle holder = Open(L"\\old");
    DWORD code = 0;
    std::thread opening;
    std::atomic<int> looks{0};
    Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/old").OnNth(1).Before([&](const Call&) {
        Double().Add(OnCall("ZdvfsStat").ForPath("pool/old").After([&](const Call&) { ++looks; }));
        opening = std::thread([&] { code = Create(L"\\old", {.disposition = kZdOverwriteIf, .access = 3}).code; });
        // It is looked at before and after it is opened; what follows waits for the rename.
        while (looks < 2) ::Sleep(1);
        ::Sleep(200);
    }));
    EXPECT_EQ(0U, m_manager->ZdRenameFile(source, L"\\old", 1));
    ASSERT_TRUE(opening.joinable());
    opening.join();
    Double().ClearRules();
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, code);
    EXPECT_EQ(24U, Read(source, 0, 100).count);
    const Created renamed = Create(L"\\old", kOpenToRead);
    EXPECT_EQ(24U, renamed.information.size);
    for (const Handle handle : {source, holder, renamed.handle}) Close(handle);
}

TEST_F(CRememberedPathTest, NewNameIsTheOneThatFragmentsAreReopenedBy) {
    MakeFragments("big", {10, 10, 4});
    const Handle handle = Open(L"\\big", kOpenToWrite);
    EXPECT_EQ(24U, Read(handle, 0, 100).count);
    ASSERT_EQ(0U, m_manager->ZdRenameFile(handle, L"\\moved", 0));
    ASSERT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    EXPECT_EQ(24U, Read(handle, 0, 100).count);
    EXPECT_TRUE(
        LinesFit({"ZdvfsOpen(\"pool/moved\",*", "ZdvfsOpen(\"pool/moved;F1\",*", "ZdvfsOpen(\"pool/moved;F2\",*"},
                 Called("ZdvfsOpen")));
    Close(handle);
}

// Each unit makes room for two bytes: five of three bytes fit with the separator behind them, and not without.
TEST_F(CRememberedPathTest, NameThatFitsOnlyWithItsTrailingSeparatorIsOpened) {
    const Created file = Create(L"\\\u65e5\u65e5\u65e5\u65e5\u65e5\\");
    EXPECT_EQ(0U, file.code);
    EXPECT_EQ(0U, Write(file.handle, 0, "hello").code);
    EXPECT_EQ("hello", Read(file.handle, 0, 9).data);
    Close(file.handle);
}

TEST_F(CRememberedPathTest, PathsFollowTheRootOfALaterConnect) {
    IProtocolManager* const other = NewManager();
    Double().MakeFile("pool/u", "x");
    const Created file = Create(L"\\pool\\u", kOpenToWrite, other);
    ASSERT_EQ(0U, file.code);
    const ConnectParameters parameters = Parameters(L"pool");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    ClearLogs();
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, other->ZdSetFileBasicInfo(file.handle, 0, 0, 0, 0, 0x20));
    EXPECT_TRUE(LinesFit({"ZdvfsChmod(\"pool/pool/u\",*"}, Called("ZdvfsChmod")));
    Close(file.handle, other);
}

TEST_F(CRememberedPathTest, DisconnectClosesHandlesInTheirOrder) {
    std::vector<std::pair<Handle, int>> handles;
    for (int i = 0; i < 40; ++i) {
        Double().SetNextDescriptor(100 + i);
        handles.emplace_back(Create(L"\\f" + std::to_wstring(i)).handle, 100 + i);
    }
    std::sort(handles.begin(), handles.end());
    ClearLogs();
    ASSERT_EQ(0U, m_manager->ZdDisconnect());
    std::vector<std::string> expected;
    for (const auto& [handle, descriptor] : handles)
        expected.push_back("ZdvfsClose(" + std::to_string(descriptor) + ") = 0");
    EXPECT_EQ(expected, Called("ZdvfsClose("));
}

}  // namespace
}  // namespace zd::test
