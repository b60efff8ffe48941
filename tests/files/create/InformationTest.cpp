// The information record, the out arguments and the name's last component.
#include "CreateFixture.h"

namespace zd::test {
namespace {

class CInformationTest : public CCreateTest {};

std::uint64_t FileTime(std::int64_t seconds) {
    return seconds == 0 ? 0 : static_cast<std::uint64_t>((seconds + 11644473600) * 10000000);
}

TEST_F(CInformationTest, EveryFieldComesFromTheStatus) {
    Double().MakeFile("pool/d/a.txt", "hello");
    NodeState state = Double().State("pool/d/a.txt");
    state.attributes = 0xA123;
    state.mode = 0x81A4;
    state.creationTime = 1600000000;
    state.accessTime = 1600000001;
    state.modificationTime = 1600000002;
    ASSERT_TRUE(Double().SetState("pool/d/a.txt", state));
    const Created created = OpenAndClose(L"\\d\\a.txt", {.disposition = kZdOpen, .access = kRead});
    EXPECT_EQ(132444736000000000U, created.information.creationTime);
    EXPECT_EQ(FileTime(1600000001), created.information.lastAccessTime);
    EXPECT_EQ(FileTime(1600000002), created.information.lastWriteTime);
    EXPECT_EQ(FileTime(1600000002), created.information.changeTime);
    EXPECT_EQ(0xA123U, created.information.attributes);
    EXPECT_EQ(5U, created.information.size);
    EXPECT_EQ(0x81A4U, created.information.mode);
    EXPECT_STREQ(L"a.txt", created.information.name);
}

TEST_F(CInformationTest, TimesOfZeroStayZeroAndEarlierOnesConvert) {
    Double().MakeFile("pool/a");
    NodeState state = Double().State("pool/a");
    state.creationTime = 0;
    state.accessTime = -1;
    state.modificationTime = 1;
    ASSERT_TRUE(Double().SetState("pool/a", state));
    const Created created = OpenAndClose(L"\\a", {.disposition = kZdOpen, .access = kRead});
    EXPECT_EQ(0U, created.information.creationTime);
    EXPECT_EQ(FileTime(-1), created.information.lastAccessTime);
    EXPECT_EQ(FileTime(1), created.information.lastWriteTime);
}

TEST_F(CInformationTest, SizeIsTheTotalOverAllFragments) {
    Double().MakeFile("pool/big", "hello");
    Double().MakeFile("pool/big;F1", "", 6'000'000'000);
    Double().MakeFile("pool/big;F2", "abc");
    Double().MakeFile("pool/big;F4", "not found behind the gap");
    EXPECT_EQ(6'000'000'008U, OpenAndClose(L"\\big", {.disposition = kZdOpen, .access = kRead}).information.size);
}

TEST_F(CInformationTest, NameIsWhatFollowsTheLastBackslash) {
    static constexpr struct {
        const wchar_t* asked;
        const wchar_t* shown;
        DWORD isDirectory;
    } kRows[] = {
        {L"\\d\\a.txt", L"a.txt", 0},
        {L"/d/a.txt", L"/d/a.txt", 0},
        {L"\\d/a.txt", L"d/a.txt", 0},
        {L"\\d\\", L"", 1},
        {L"\\", L"", 1},
        {L"/", L"/", 1},
        {L"\\d\\\u00e4\u4e00", L"\u00e4\u4e00", 0},
    };
    Double().MakeFile("pool/d/a.txt");
    Double().MakeFile("pool/d/\xc3\xa4\xe4\xb8\x80");
    for (const auto& row : kRows) {
        SCOPED_TRACE(Narrow(row.asked));
        const Created created =
            OpenAndClose(row.asked, {.isDirectory = row.isDirectory, .disposition = kZdOpen, .access = kRead});
        EXPECT_EQ(Narrow(row.shown), Narrow(created.information.name));
    }
}

TEST_F(CInformationTest, LongNameIsCutToFitAndTerminated) {
    for (const std::size_t length : {258U, 259U, 260U, 261U, 1000U}) {
        SCOPED_TRACE(length);
        const std::wstring name(length, L'n');
        const Created created = OpenAndClose(L"\\" + name, {.disposition = kZdOpenIf, .access = kRead});
        EXPECT_EQ(Narrow(name.substr(0, 259)), Narrow(created.information.name));
    }
}

TEST_F(CInformationTest, ActionAndRecordMayBeLeftOut) {
    Handle handle = 0;
    EXPECT_EQ(0U,
              m_manager->ZdCreateFile(L"\\a", 0, 0, 0x20, 0, kZdOpenIf, kWrite, 0, nullptr, &handle, nullptr, nullptr));
    EXPECT_NE(0U, handle);
    EXPECT_EQ(0U, Write(handle, 0, "hello").code);
    Close(handle);
    EXPECT_EQ("hello", Double().Bytes("pool/a"));
}

TEST_F(CInformationTest, NullNameOrHandlePointerFailsBeforeAnyStorageCall) {
    Handle handle = kUntouchedHandle;
    DWORD action = kUntouched;
    FileInformation information{};
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, m_manager->ZdCreateFile(nullptr, 0, 0, 0x20, 0, kZdOpenIf, kWrite, 0,
                                                                      nullptr, &handle, &action, &information));
    EXPECT_LOG({6, "ZdCreateFile Enter (null) FileAttributes: 32  CreateDisposition: 3\n"},
               {6, "ZdCreateFile Exit       File created:   (null), handle: 0000000000000000\n"});
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, m_manager->ZdCreateFile(L"\\a", 0, 0, 0x20, 0, kZdOpenIf, kWrite, 0,
                                                                      nullptr, nullptr, &action, &information));
    EXPECT_EQ(kUntouchedHandle, handle);
    EXPECT_CALLS();
}

TEST_F(CInformationTest, UnusedArgumentsAreNotRead) {
    Double().MakeFile("pool/a");
    Handle handle = 0;
    EXPECT_EQ(0U, m_manager->ZdCreateFile(L"\\a", 0, 0xFFFFFFFF, 0x20, 0xFFFFFFFF, kZdOpen, kRead, 0xFFFFFFFF, nullptr,
                                          &handle, nullptr, nullptr));
    EXPECT_EQ(0U, handle >> 63);
    Close(handle);
}

TEST_F(CInformationTest, TwoOpensOfOneNameGiveTwoHandles) {
    Double().MakeFile("pool/a", "hello");
    const Created first = Open(L"\\a", {.disposition = kZdOpen, .access = kRead});
    const Created second = Open(L"\\A", {.disposition = kZdOpenIf, .access = kRead});
    EXPECT_EQ(0U, first.code);
    EXPECT_EQ(0U, second.code);
    EXPECT_NE(first.handle, second.handle);
    Close(first.handle);
    EXPECT_EQ("", Read(second.handle, 0, 5).data);
    Close(second.handle);
}

}  // namespace
}  // namespace zd::test
