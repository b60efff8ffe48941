// Attributes, file flags and access: the flags that the storage is asked with.
#include "CreateFixture.h"

namespace zd::test {
namespace {

constexpr DWORD kTemporary = FILE_ATTRIBUTE_TEMPORARY;
constexpr DWORD kSequential = FILE_FLAG_SEQUENTIAL_SCAN;
constexpr DWORD kDeleteOnClose = FILE_FLAG_DELETE_ON_CLOSE;

class CAttributeTest : public CCreateTest {
protected:
    // Answers "flags, mode" of the one ZdvfsOpen.
    std::string AskedWith(const std::wstring& name, const CreateOptions& options) {
        Double().MakeFile("pool/" + Narrow(name.substr(1)));
        OpenAndClose(name, options);
        const std::vector<std::string> opens = CallsOf(m_calls, "ZdvfsOpen");
        if (opens.size() != 1) return "opened " + std::to_string(opens.size()) + " times";
        const std::size_t begin = opens[0].find("\", ") + 3;
        return opens[0].substr(begin, opens[0].find(')') - begin);
    }
    bool WasCounted() {
        return static_cast<bool>(Logged(m_log, 6, "ZdCreateFile: found direct-io/write-only/read-write file*"));
    }
};

TEST_F(CAttributeTest, FlagsAccessAndNameDecideHowAFileIsOpened) {
    static constexpr struct {
        const char* name;
        const wchar_t* file;
        DWORD attributes;
        DWORD disposition;
        DWORD access;
        const char* asked;
        bool counted;
    } kRows[] = {
        {"read-only open of an existing file", L"\\a", 0, kZdOpen, kRead, "0x10000, 0x0", false},
        {"open without any access", L"\\a", 0, kZdOpen, 0, "0x10000, 0x0", false},
        {"open with further access", L"\\a", 0, kZdOpen, kFurther, "0x10000, 0x0", false},
        {"open for writing", L"\\a", 0, kZdOpen, kWrite, "0x2, 0x0", true},
        {"open for reading and writing", L"\\a", 0, kZdOpen, kReadWrite, "0x2, 0x0", true},
        {"open with every access bit", L"\\a", 0, kZdOpen, 0x27, "0x2, 0x0", true},
        {"read-only open-if", L"\\a", 0, kZdOpenIf, kRead, "0x100, 0x0", false},
        {"sequential, read only", L"\\a", kSequential, kZdOpen, kRead, "0x4000, 0x0", true},
        {"sequential, writing", L"\\a", kSequential, kZdOpen, kWrite, "0x4002, 0x0", true},
        {"delete on close, read only", L"\\a", kDeleteOnClose, kZdOpen, kRead, "0x10000, 0x0", false},
        {"delete on close, writing", L"\\a", kDeleteOnClose, kZdOpenIf, kWrite, "0x10102, 0x0", true},
        {"sequential goes before delete on close", L"\\a", kSequential | kDeleteOnClose, kZdOpen, kRead, "0x4000, 0x0",
         true},
        {"temporary", L"\\a", kTemporary, kZdOpenIf, kWrite, "0x8102, 0x100", true},
        {"temporary, read-only open", L"\\a", kTemporary, kZdOpen, kRead, "0x18000, 0x0", false},
        {"database written", L"\\x.edb", 0, kZdOpen, kWrite, "0x4001, 0x0", true},
        {"database written, upper case", L"\\X.EDB", 0, kZdOpenIf, kWrite, "0x4101, 0x0", true},
        {"database, access of both kinds", L"\\x.edb", 0, kZdOpen, kReadWrite, "0x4001, 0x0", true},
        {"database written, delete on close", L"\\x.edb", kDeleteOnClose, kZdOpen, kWrite, "0x10001, 0x0", true},
        {"database read", L"\\x.edb", 0, kZdOpen, kRead, "0x10000, 0x0", false},
        {"a component of only the ending", L"/.edb", 0, kZdOpen, kWrite, "0x4001, 0x0", true},
        {"the ending without its dot", L"\\xedb", 0, kZdOpen, kWrite, "0x2, 0x0", true},
        {"the ending inside the name", L"\\x.edb.log", 0, kZdOpen, kWrite, "0x2, 0x0", true},
        {"upper bits are not part of the mode", L"\\a", 0x80000021, kZdOpenIf, kRead, "0x100, 0x21", false},
        {"the mode is 16 bits", L"\\a", 0x00ff01a7, kZdOverwriteIf, kWrite, "0x8302, 0x1a7", true},
        {"no mode where nothing is created", L"\\a", 0x21, kZdOverwrite, kWrite, "0x202, 0x0", true},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(
            row.asked,
            AskedWith(row.file, {.attributes = row.attributes, .disposition = row.disposition, .access = row.access}));
        EXPECT_EQ(row.counted, WasCounted());
    }
}

TEST_F(CAttributeTest, WriteOnlyOpenOfADatabaseIsCountedWithDirectIo) {
    Double().MakeFile("pool/Mail.edb");
    OpenAndClose(L"\\Mail.edb", {.disposition = kZdOpen, .access = kWrite});
    EXPECT_TRUE(Logged(m_log, 6,
                       "ZdCreateFile: found direct-io/write-only/read-write file - zdvfsCacheFlags:4000, Flags:1, "
                       "m_OpenDirectIOorWriteFiles: 1\n"));
}

TEST_F(CAttributeTest, CountingLineShowsFlagsAndRisingCount) {
    Double().MakeFile("pool/a");
    const Created first = Open(L"\\a", {.disposition = kZdOpenIf, .access = kWrite});
    ClearLogs();
    const Created second = Open(L"\\a", {.attributes = kSequential, .disposition = kZdOverwriteIf, .access = kWrite});
    EXPECT_TRUE(Logged(TakeLog(), 6,
                       "ZdCreateFile: found direct-io/write-only/read-write file - zdvfsCacheFlags:4000, Flags:302, "
                       "m_OpenDirectIOorWriteFiles: 2\n"));
    Close(first.handle);
    Close(second.handle);
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CAttributeTest, DirectIoValueDecidesHowADatabaseIsWritten) {
    struct Row {
        DWORD value;
        const char* asked;
    };
    for (const Row row : {Row{0, "0x2, 0x0"}, Row{1, "0x4001, 0x0"}, Row{0x80000000, "0x4001, 0x0"}}) {
        SCOPED_TRACE(row.value);
        Registry().SetDword(kPluginKey, L"EDB DIRECT IO", row.value);
        m_manager->ZdRefreshSettings(0, false);
        EXPECT_EQ(row.asked, AskedWith(L"\\x.EDB", {.disposition = kZdOpen, .access = kWrite}));
        EXPECT_EQ("0x2, 0x0", AskedWith(L"\\x.txt", {.disposition = kZdOpen, .access = kWrite}));
        EXPECT_EQ("0x10000, 0x0", AskedWith(L"\\x.edb", {.disposition = kZdOpen, .access = kRead}));
    }
    Registry().SetText(kPluginKey, L"EDB DIRECT IO", L"0");
    m_manager->ZdRefreshSettings(0, false);
    EXPECT_EQ("0x4001, 0x0", AskedWith(L"\\x.edb", {.disposition = kZdOpen, .access = kWrite}));
}

class CNoLocalCacheTest : public CAttributeTest {
protected:
    void SetUp() override {
        CDoubleTest::SetUp();
        Registry().SetDword(kPluginKey, L"LocalCacheOff", 1);
        ASSERT_EQ(0U, Connect());
        ClearLogs();
    }
};

TEST_F(CNoLocalCacheTest, FilesWithoutAnotherChoiceAreOpenedForDirectIo) {
    EXPECT_EQ("0x4002, 0x0", AskedWith(L"\\a", {.attributes = 0, .disposition = kZdOpen, .access = kWrite}));
    EXPECT_EQ("0x10000, 0x0", AskedWith(L"\\a", {.attributes = 0, .disposition = kZdOpen, .access = kRead}));
    EXPECT_EQ("0x4100, 0x0", AskedWith(L"\\a", {.attributes = 0, .disposition = kZdOpenIf, .access = kRead}));
    EXPECT_TRUE(Logged(m_log, 6,
                       "ZdCreateFile: found direct-io/write-only/read-write file - zdvfsCacheFlags:4000, Flags:100, "
                       "m_OpenDirectIOorWriteFiles: 1\n"));
    EXPECT_EQ("0x10102, 0x0",
              AskedWith(L"\\a", {.attributes = kDeleteOnClose, .disposition = kZdOpenIf, .access = kWrite}));
}

TEST_F(CNoLocalCacheTest, DirectoriesAreNotCounted) {
    Double().MakeDirectory("pool/d");
    OpenAndClose(L"\\d", {.isDirectory = 1, .disposition = kZdOpen, .access = kRead});
    EXPECT_FALSE(WasCounted());
}

TEST_F(CAttributeTest, ReparsePointsAreRefusedBeforeAnyStorageCall) {
    for (const DWORD attributes : {0x400U, 0x420U, 0x02000400U}) {
        SCOPED_TRACE(attributes);
        OpenFails(ERROR_INVALID_PARAMETER, L"\\a", {.attributes = attributes});
        EXPECT_TRUE(m_calls.empty());
        EXPECT_TRUE(
            Logged(m_log, 1,
                   "ZdCreateFile:   FileName:   \\a  ERROR:  Invalid Parameter:      dwFileAttributes value = " +
                       std::to_string(attributes) + " \n"));
    }
}

TEST_F(CAttributeTest, CompressedIsLoggedAsIgnoredAndTheCallSucceeds) {
    OpenAndClose(L"\\a", {.attributes = FILE_ATTRIBUTE_COMPRESSED, .disposition = kZdCreate, .access = kWrite});
    EXPECT_TRUE(Logged(
        m_log, 2,
        "ZdCreateFile:   FileName:   \\a  ERROR:  ignored file attributes:        dwFileAttributes value = 2048 \n"));
}

TEST_F(CAttributeTest, EachBitIsIgnoredWithALineOrTakenSilently) {
    constexpr DWORD kIgnored = 0xde48;
    Double().MakeFile("pool/a");
    for (DWORD bit = 1; bit != 0; bit <<= 1) {
        if (bit == FILE_ATTRIBUTE_REPARSE_POINT) continue;
        SCOPED_TRACE(testing::Message() << "attribute bit " << bit);
        OpenAndClose(L"\\a", {.attributes = bit, .disposition = kZdOpen, .access = kRead});
        const std::string shown = std::to_string(static_cast<std::int32_t>(bit));
        EXPECT_EQ((bit & kIgnored) != 0,
                  static_cast<bool>(Logged(m_log, 2,
                                           "ZdCreateFile:   FileName:   \\a  ERROR:  ignored file attributes:        "
                                           "dwFileAttributes value = " +
                                               shown + " \n")));
    }
}

TEST_F(CAttributeTest, IgnoredAttributesArePrintedWhole) {
    Double().MakeFile("pool/a");
    OpenAndClose(L"\\a", {.attributes = 0x88000800, .disposition = kZdOpen, .access = kRead});
    EXPECT_TRUE(Logged(m_log, 2, "*dwFileAttributes value = -2013263872 \n"));
}

}  // namespace
}  // namespace zd::test
