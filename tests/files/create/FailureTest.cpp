// Failures on the way: which code, what is given back, what is left.
#include "CreateFixture.h"

namespace zd::test {
namespace {

class CCreateFailureTest : public CCreateTest {};

TEST_F(CCreateFailureTest, OnlyAMissingObjectOrPathCountsAsMissing) {
    static constexpr struct {
        int error;
        DWORD code;  // of an open-if
    } kRows[] = {{ENOENT, 0},
                 {ENOTDIR, 0},
                 {EACCES, ERROR_ACCESS_DENIED},
                 {EPERM, ERROR_ACCESS_DENIED},
                 {EIO, ERROR_IO_DEVICE},
                 {ENOMEM, ERROR_INSUFFICIENT_BUFFER},
                 {EBUSY, ERROR_BUSY},
                 {0, ERROR_IO_DEVICE}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.error);
        Double().ClearRules();
        Double().Remove("pool/a");
        Double().Add(OnCall("ZdvfsStat").OnNth(1).Fails(row.error));
        if (row.code == 0) {
            OpenAndClose(L"\\a", {.disposition = kZdOpenIf});
        } else {
            OpenFails(row.code, L"\\a", {.disposition = kZdOpenIf});
            EXPECT_TRUE(LinesFit({"ZdvfsStat(\"pool/a\") = -1"}, m_calls));
        }
    }
}

TEST_F(CCreateFailureTest, FailingTruncationFailsTheOpenAndGivesTheDescriptorBack) {
    Double().MakeFile("pool/a", "hello");
    Double().Add(OnCall("ZdvfsFtruncate").Fails(EBUSY, 5));
    for (const DWORD disposition : {kZdSupersede, kZdOverwrite, kZdOverwriteIf}) {
        SCOPED_TRACE(disposition);
        OpenFails(ERROR_BUSY, L"\\a", {.disposition = disposition, .access = kWrite});
        ASSERT_FALSE(m_calls.empty());
        EXPECT_TRUE(Fits("ZdvfsClose(*) = 0", m_calls.back())) << m_calls.back();
    }
    Double().ClearRules();
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCreateFailureTest, FailingSecondStatusGivesTheDescriptorBack) {
    Double().MakeFile("pool/a", "hello");
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/a").OnNth(2).Fails(EACCES, 1));
    OpenFails(ERROR_ACCESS_DENIED, L"\\a", {.disposition = kZdOpen, .access = kWrite});
    EXPECT_TRUE(Fits("ZdvfsClose(*) = 0", m_calls.back())) << m_calls.back();
    Double().ClearRules();
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CCreateFailureTest, FailingSecondStatusGivesTheStreamBack) {
    Double().MakeDirectory("pool/d");
    Double().Add(OnCall("ZdvfsStat").OnNth(2).Fails(ENOMEM));
    OpenFails(ERROR_INSUFFICIENT_BUFFER, L"\\d", {.isDirectory = 1, .disposition = kZdOpen});
    EXPECT_TRUE(Fits("ZdvfsClosedir(*) = 0", m_calls.back())) << m_calls.back();
}

struct ThrowRow {
    const char* function;
    int nth;
    const char* path;
    DWORD isDirectory;
    DWORD disposition;
};

// Every storage call of an open, thrown through.
constexpr ThrowRow kThrowRows[] = {
    {"ZdvfsStat", 1, "pool/v/a", 0, kZdOpenIf},
    {"ZdvfsGetNTAclStr", 1, "pool/v/a", 0, kZdOpenIf},
    {"ZdvfsGetDsidNTAclStr", 1, "pool/v/a", 0, kZdOpenIf},
    {"ZdvfsOpen", 1, "pool/v/a", 0, kZdOpenIf},
    {"ZdvfsFtruncate", 1, "pool/v/a", 0, kZdSupersede},
    {"ZdvfsIoctl", 1, "pool/v/a", 0, kZdOpenIf},
    {"ZdvfsStat", 2, "pool/v/a", 0, kZdOpenIf},
    {"ZdvfsStat", 1, "pool/v/a;F1", 0, kZdOpenIf},
    {"ZdvfsUnlink", 1, "pool/v/a;F1", 0, kZdSupersede},
    {"ZdvfsStat", 1, "pool/v/a;F2", 0, kZdOpenIf},
    {"ZdvfsOpendirForList", 1, "pool/v", 1, kZdOpen},
    {"ZdvfsMkdir", 1, "pool/w", 1, kZdCreate},
    {"ZdvfsStat", 2, "pool/v", 1, kZdOpen},
    {"ZdvfsSetNTAclStr", 1, "pool/n", 0, kZdCreate},
};

TEST_F(CCreateFailureTest, ExceptionsOfTheStorageEndAtTheFrameAndLeaveNothingOpen) {
    static constexpr struct {
        const char* name;
        EThrow thrown;
        std::uint32_t lastError;
        DWORD code;
        const char* line;
    } kKinds[] = {
        {"out of memory", EThrow::kBadAlloc, 31, ERROR_NOT_ENOUGH_MEMORY,
         "ZdCreateFile:  ERROR:  Not enough memory.  DWORD value:    8 \n"},
        {"unknown", EThrow::kRuntimeError, 31, 31,
         "ZdCreateFile:  ERROR:  Unhandled exception caught, dwError Code:   31\n"},
        {"unknown without a last error", EThrow::kRuntimeError, 0, ERROR_IO_DEVICE,
         "ZdCreateFile:  ERROR:  Unhandled exception caught, dwError Code:   1117\n"},
        {"a code", EThrow::kUnsignedLong, 31, 42, nullptr},
    };
    Double().MakeFile("pool/v/a", "hello");
    for (const ThrowRow& row : kThrowRows) {
        for (const auto& kind : kKinds) {
            SCOPED_TRACE(testing::Message()
                         << row.function << " " << row.nth << " of " << row.path << ": " << kind.name);
            Double().MakeFile("pool/v/a;F1", "abc");
            Double().ClearRules();
            Double().Add(OnCall(row.function)
                             .ForPath(row.path)
                             .OnNth(row.nth)
                             .Throws(kind.thrown, 42)
                             .WithLastError(kind.lastError));
            const std::string path = std::string(row.path).substr(0, std::string(row.path).find(';'));
            OpenFails(kind.code, Widen("\\" + path.substr(5)),
                      {.isDirectory = row.isDirectory, .disposition = row.disposition, .access = kWrite});
            EXPECT_EQ(kind.line != nullptr,
                      static_cast<bool>(Logged(m_log, 1, kind.line != nullptr ? kind.line : "*")));
            EXPECT_TRUE(
                Fits("ZdCreateFile Exit       File created:   pool/*, handle: 0000000000000000\n", m_log.back().text));
        }
    }
    Double().ClearRules();
    EXPECT_EQ(0, OpenWriters());
}

// The runtime sets itself up at the first exception, which must not cost the last error.
TEST_F(CCreateFailureTest, FirstExceptionOfTheProcessKeepsItsLastError) {
    Double().Add(OnCall("ZdvfsStat").Throws(EThrow::kRuntimeError).WithLastError(31));
    OpenFails(31, L"\\a", {});
}

TEST_F(CCreateFailureTest, NameThatNeedsMoreThanTwoBytesAUnitIsNotFound) {
    const std::wstring name(100, L'\u4e00');
    OpenFails(ERROR_FILE_NOT_FOUND, name, {.disposition = kZdCreate});
    EXPECT_TRUE(m_calls.empty());
    EXPECT_EQ(2U, m_log.size());
}

TEST_F(CCreateFailureTest, NamesOfAnyUnitsEndInACode) {
    const std::wstring names[] = {std::wstring(1, L'\xd800'),
                                  L"\\\xdc00\xd800",
                                  std::wstring(40000, L'a'),
                                  std::wstring(40000, L'\uffff'),
                                  L"\\..\\..\\..",
                                  L"",
                                  L"\\",
                                  L"\x01"};
    for (const std::wstring& name : names) {
        SCOPED_TRACE(name.size());
        for (const DWORD isDirectory : {0U, 1U}) {
            const Created created = Open(name, {.isDirectory = isDirectory, .disposition = kZdOpen, .access = kRead});
            if (created.code == 0) {
                Close(created.handle);
            } else {
                EXPECT_EQ(kUntouchedHandle, created.handle);
            }
        }
    }
    EXPECT_TRUE(Double().Names("pool").empty());
}

TEST_F(CCreateFailureTest, FailuresOfTheFragmentsRemovalAreIgnored) {
    Double().MakeFile("pool/a", "hello");
    Double().MakeFile("pool/a;F1", "abc");
    Double().MakeFile("pool/a;F2", "abc");
    Double().Add(OnCall("ZdvfsUnlink").OnNth(1).Fails(EACCES));
    const Created created = OpenAndClose(L"\\a", {.disposition = kZdOverwrite, .access = kWrite});
    EXPECT_EQ(0U, created.information.size);
    EXPECT_TRUE(Double().Exists("pool/a;F1"));
    EXPECT_FALSE(Double().Exists("pool/a;F2"));
}

class CUnconnectedTest : public CDoubleTest {};

TEST_F(CUnconnectedTest, NamesStartAtTheInitialRootPrefix) {
    m_manager = NewManager();
    ClearLogs();
    const Created created = Create(L"\\dir\\file.txt", {.disposition = kZdOpen, .access = kRead});
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, created.code);
    EXPECT_CALLS("ZdvfsStat(\"//dir/file.txt\") = -1", "ZdvfsGetNTAclStr(\"//dir/file.txt\", 16384) = -1",
                 "ZdvfsGetDsidNTAclStr(\"//dir/file.txt\", 16384, 1) = -1",
                 "ZdvfsOpen(\"//dir/file.txt\", 0x10000, 0x0) = -1");
}

TEST_F(CUnconnectedTest, OneSlashOfTheRootStaysInTheStatusCall) {
    m_manager = NewManager();
    ClearLogs();
    const Created created = Create(L"\\\\", {.isDirectory = 1, .disposition = kZdOpen, .access = kRead});
    if (created.code == 0) Close(created.handle);
    const std::vector<std::string> calls = TakeCalls();
    ASSERT_FALSE(calls.empty());
    EXPECT_TRUE(Fits("ZdvfsStat(\"/\") = *", calls.front())) << calls.front();
}

// ---- The name rule ----

class CNameRuleTest : public CCreateTest {
protected:
    void SetUp() override {
        CDoubleTest::SetUp();
        Registry().SetDword(kPluginKey, L"HighestValidNameChar", 0x7F);
        ASSERT_EQ(0U, Connect());
        ClearLogs();
    }
    void Refuses(const std::wstring& name, const std::string& shown) {
        OpenFails(ERROR_INVALID_NAME, name, {.disposition = kZdOpenIf});
        EXPECT_TRUE(m_calls.empty());
        ASSERT_EQ(3U, m_log.size());
        EXPECT_EQ(1U, m_log[1].level);
        EXPECT_EQ("ZdCreateFile: FileName: " + shown + " is not a legal filename\n", m_log[1].text);
    }
};

TEST_F(CNameRuleTest, CharactersBeyondAsciiShowByTheirCode) {
    Refuses(L"\\caf\u00e9.txt", "\\caf<00e9>.txt");
    Refuses(L"\u0080\xd83d\xde00\uffff", "<0080><d83d><de00><ffff>");
}

TEST_F(CNameRuleTest, ControlCharactersShowAsTheyAre) {
    Refuses(L"\\a\tb", "\\a\tb");
}

TEST_F(CNameRuleTest, LineThatWouldOutgrowItsBufferKeepsItsEnding) {
    // 1560 bytes with the terminator, less the beginning and the ending.
    constexpr std::size_t kRoom = 1560 - 24 - 25 - 1;
    Refuses(std::wstring(kRoom - 1, L'a') + L'\x01', std::string(kRoom - 1, 'a') + '\x01');
    Refuses(std::wstring(kRoom, L'a') + L'\x01', std::string(kRoom, 'a'));
    Refuses(std::wstring(50000, L'a') + L'\x01', std::string(kRoom, 'a'));
}

TEST_F(CNameRuleTest, CodesAreNotCutInTheMiddle) {
    std::string whole;
    for (int i = 0; i < 251; ++i) whole += "<00e9>";
    Refuses(std::wstring(251, L'\u00e9'), whole);
    Refuses(std::wstring(252, L'\u00e9'), whole);
    Refuses(std::wstring(5000, L'\u00e9'), whole);
}

TEST_F(CNameRuleTest, RefusalGoesBeforeEveryOtherCheck) {
    OpenFails(ERROR_INVALID_NAME, L"\\\u00e9", {.attributes = 0x400, .disposition = 9});
}

TEST_F(CNameRuleTest, LegalNamesPass) {
    OpenAndClose(L"\\a b~\x7f", {.disposition = kZdOpenIf});
    OpenAndClose(L"\\", {.isDirectory = 1, .disposition = kZdOpen, .access = kRead});
}

}  // namespace
}  // namespace zd::test
