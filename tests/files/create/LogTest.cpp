// The lines of ZdCreateFile: which, in which order, and that no name can forge one.
#include "CreateFixture.h"

namespace zd::test {
namespace {

class CCreateLogTest : public CCreateTest {};

TEST_F(CCreateLogTest, NewFileInADirectoryWritesTheseLines) {
    Double().MakeDirectory("pool/vm1");
    const Created created = Open(L"\\vm1\\a", {.attributes = 0x20, .disposition = kZdCreate, .access = kWrite});
    const std::string handle = FormatHandle(created.handle);
    EXPECT_LOG({6, "ZdCreateFile Enter \\vm1\\a FileAttributes: 32  CreateDisposition: 2\n"},
               {6, "ZdCreateFile:  locality: vm1\n"},
               {6,
                "ZdCreateFile: found direct-io/write-only/read-write file - zdvfsCacheFlags:0, Flags:502, "
                "m_OpenDirectIOorWriteFiles: 1\n"},
               {6, "ZdCreateFile Exit       File created:   pool/vm1/a, handle: " + handle + "\n"});
    Close(created.handle);
}

TEST_F(CCreateLogTest, ReadOnlyOpenWritesEntryAndExitAlone) {
    Double().MakeFile("pool/a");
    OpenAndClose(L"\\a", {.attributes = 0, .disposition = kZdOpen, .access = kRead});
    EXPECT_TRUE(LogFits({{6, "ZdCreateFile Enter \\a FileAttributes: 0  CreateDisposition: 1\n"},
                         {6, "ZdCreateFile Exit       File created:   pool/a, handle: *\n"}},
                        m_log));
}

TEST_F(CCreateLogTest, NumbersOfTheEntryLineAreSigned) {
    OpenFails(ERROR_INVALID_PARAMETER, L"\\a", {.attributes = 0x80000000, .disposition = 0xFFFFFFFF});
    EXPECT_TRUE(Logged(m_log, 6, "ZdCreateFile Enter \\a FileAttributes: -2147483648  CreateDisposition: -1\n"));
}

TEST_F(CCreateLogTest, FailureHasAnExitLineWithHandleZero) {
    OpenFails(ERROR_FILE_NOT_FOUND, L"\\a", {.attributes = 0, .disposition = kZdOpen, .access = kRead});
    EXPECT_TRUE(LogFits({{6, "ZdCreateFile Enter \\a FileAttributes: 0  CreateDisposition: 1\n"},
                         {6, "ZdCreateFile Exit       File created:   pool/a, handle: 0000000000000000\n"}},
                        m_log));
}

TEST_F(CCreateLogTest, RootLevelObjectHasAnEmptyLocalityLineAndNoControl) {
    OpenAndClose(L"\\a", {.disposition = kZdCreate, .access = kWrite});
    EXPECT_TRUE(Logged(m_log, 6, "ZdCreateFile:  locality: \n"));
    EXPECT_TRUE(CallsOf(m_calls, "ZdvfsIoctl").empty());
}

TEST_F(CCreateLogTest, RefusedLocalityIsLoggedAndTheCallSucceeds) {
    Double().MakeDirectory("pool/vm1");
    Double().Add(OnCall("ZdvfsIoctl").Fails(ENOTSUP));
    OpenAndClose(L"\\vm1\\a", {.disposition = kZdCreate, .access = kWrite});
    EXPECT_TRUE(LinesFit({"ZdvfsIoctl(*, 46, null, 0, \"vm1\", 0, 32) = -1"}, CallsOf(m_calls, "ZdvfsIoctl")));
    EXPECT_TRUE(Logged(
        m_log, 1, "ZdCreateFile: ERROR returned by ZdvfsIoctl(..,ZDVFS_IOCTL_SET_STG_LOCALITY,...).  err: 129 \n"));
}

TEST_F(CCreateLogTest, StaleLastErrorBehindASuccessfulStatusIsReported) {
    Double().MakeFile("pool/a");
    Double().Add(OnCall("ZdvfsStat").OnNth(1).WithLastError(1234));
    OpenAndClose(L"\\a", {.disposition = kZdOpen, .access = kRead});
    EXPECT_TRUE(Logged(m_log, 6, "ZdCreateFile:ZdvfsStat:Access to file pool/a failed with Error code: 1234 \n"));
}

TEST_F(CCreateLogTest, StaleLastErrorOfTheCallerIsReportedToo) {
    Double().MakeFile("pool/a");
    ::SetLastError(77);
    const Created created = Create(L"\\a", {.disposition = kZdOpen, .access = kRead});
    EXPECT_TRUE(Logged(TakeLog(), 6, "ZdCreateFile:ZdvfsStat:Access to file pool/a failed with Error code: 77 \n"));
    Close(created.handle);
}

TEST_F(CCreateLogTest, LastErrorOfAMissingObjectIsNotReported) {
    OpenAndClose(L"\\a", {.disposition = kZdOpenIf, .access = kRead});
    EXPECT_FALSE(Logged(m_log, 6, "ZdCreateFile:ZdvfsStat*"));
}

TEST_F(CCreateLogTest, OverwriteIfLogsTheErrnoOfItsFailedOpen) {
    Double().MakeFile("pool/a");
    Double().Add(OnCall("ZdvfsOpen").Fails(EBUSY, 32));
    OpenFails(ERROR_BUSY, L"\\a", {.disposition = kZdOverwriteIf, .access = kWrite});
    EXPECT_TRUE(Logged(m_log, 6, "ZdCreateFile:   ZDVFS errno value:      16 \n"));
}

TEST_F(CCreateLogTest, OtherDispositionsAnswerTheLastErrorOfTheirFailedOpenWithoutALine) {
    Double().MakeFile("pool/a");
    Double().Add(OnCall("ZdvfsOpen").Fails(EBUSY, 32));
    for (const DWORD disposition : {kZdSupersede, kZdOpen, kZdCreate, kZdOpenIf, kZdOverwrite}) {
        SCOPED_TRACE(disposition);
        OpenFails(32, L"\\a", {.disposition = disposition, .access = kWrite});
        EXPECT_FALSE(Logged(m_log, 6, "*errno value*"));
        EXPECT_EQ(1U, CallsOf(m_calls, "ZdvfsOpen").size());
        EXPECT_TRUE(CallsOf(m_calls, "ZdvfsFtruncate").empty());
        EXPECT_TRUE(CallsOf(m_calls, "ZdvfsIoctl").empty());
    }
}

TEST_F(CCreateLogTest, FailedOpenWithoutALastErrorAnswersTheTranslatedErrno) {
    Double().MakeFile("pool/a");
    Double().Add(OnCall("ZdvfsOpen").Fails(EBUSY, 0));
    OpenFails(ERROR_BUSY, L"\\a", {.disposition = kZdOpen, .access = kRead});
    Double().Add(OnCall("ZdvfsOpen").Fails(0, 0));
    OpenFails(ERROR_IO_DEVICE, L"\\a", {.disposition = kZdOpen, .access = kRead});
}

// A control character of a name never reaches a line as it is, but for the end that each line has.
TEST_F(CCreateLogTest, NamesCannotForgeLines) {
    static constexpr struct {
        const char* name;
        DWORD isDirectory;
        DWORD attributes;
        DWORD disposition;
    } kRows[] = {{"success", 0, 0x20, kZdCreate},          {"bad disposition", 0, 0x20, 6},
                 {"reparse point", 0, 0x400, kZdOpen},     {"ignored attribute", 0, 0x800, kZdOpenIf},
                 {"directory exists", 1, 0x20, kZdCreate}, {"file missing", 0, 0x20, kZdOpen}};
    const std::wstring directory = L"\\x\n\r\t\x01\x7f%s%n";
    Double().MakeDirectory("pool/" + Narrow(directory.substr(1)) + "/d");
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        ClearLogs();
        const Created created = Create(directory + (row.isDirectory != 0 ? L"\\d" : L"\\") + Widen(row.name),
                                       {.isDirectory = row.isDirectory,
                                        .attributes = row.attributes,
                                        .disposition = row.disposition,
                                        .access = kWrite});
        if (created.code == 0) Close(created.handle);
        for (const LogLine& line : TakeLog()) {
            EXPECT_EQ(std::string::npos, line.text.substr(0, line.text.size() - 1).find_first_of("\n\r\t\x01\x7f"))
                << line.text;
            EXPECT_EQ('\n', line.text.back());
            if (line.text.find("%s%n") != std::string::npos) {
                EXPECT_NE(std::string::npos, line.text.find("x<000a><000d><0009><0001><007f>%s%n")) << line.text;
            }
        }
    }
}

TEST_F(CCreateLogTest, StaleStatusLineAndLocalityShowControlCharactersByCode) {
    Double().MakeFile("pool/x\ny/a");
    Double().Add(OnCall("ZdvfsStat").OnNth(1).WithLastError(99));
    const Created created = Create(L"\\x\ny\\a", {.disposition = kZdOpenIf, .access = kWrite});
    const std::vector<LogLine> lines = TakeLog();
    EXPECT_TRUE(
        Logged(lines, 6, "ZdCreateFile:ZdvfsStat:Access to file pool/x<000a>y/a failed with Error code: 99 \n"));
    EXPECT_TRUE(Logged(lines, 6, "ZdCreateFile:  locality: x<000a>y\n"));
    EXPECT_TRUE(Logged(lines, 6, "ZdCreateFile Exit       File created:   pool/x<000a>y/a, handle: *\n"));
    Close(created.handle);
}

TEST_F(CCreateLogTest, WideNamesAppearInUtf8) {
    OpenFails(ERROR_FILE_NOT_FOUND, L"\\\u00e4\xd800", {.attributes = 0, .disposition = kZdOpen, .access = kRead});
    EXPECT_TRUE(
        LogFits({{6, "ZdCreateFile Enter \\\xc3\xa4\xef\xbf\xbd FileAttributes: 0  CreateDisposition: 1\n"},
                 {6, "ZdCreateFile Exit       File created:   pool/\xc3\xa4\xef\xbf\xbd, handle: 0000000000000000\n"}},
                m_log));
}

TEST_F(CCreateLogTest, NothingIsWrittenAboveTheLevel) {
    Registry().SetDword(kPluginKey, L"DebugLevel", 1);
    m_manager->ZdRefreshSettings(0, false);
    OpenAndClose(L"\\a", {.attributes = 0x800, .disposition = kZdOpenIf, .access = kWrite});
    EXPECT_TRUE(m_log.empty());
}

}  // namespace
}  // namespace zd::test
