// Directories: which exist, which are made, which fail.
#include "CreateFixture.h"

namespace zd::test {
namespace {

enum class EThere { kNothing, kFile, kDirectory };

struct DirectoryRow {
    const char* name;
    DWORD disposition;
    EThere there;
    DWORD code;
    DWORD action;
    bool makes;  // ZdvfsMkdir is called
    bool lists;  // ZdvfsOpendirForList is called
};

constexpr DirectoryRow kRows[] = {
    {"supersede, missing", kZdSupersede, EThere::kNothing, ERROR_PATH_NOT_FOUND, 0, false, false},
    {"supersede, a file", kZdSupersede, EThere::kFile, ERROR_DIRECTORY, 0, false, true},
    {"supersede, a directory", kZdSupersede, EThere::kDirectory, 0, 0, false, true},
    {"open, missing", kZdOpen, EThere::kNothing, ERROR_PATH_NOT_FOUND, 0, false, false},
    {"open, a file", kZdOpen, EThere::kFile, ERROR_DIRECTORY, 0, false, true},
    {"open, a directory", kZdOpen, EThere::kDirectory, 0, 1, false, true},
    {"create, missing", kZdCreate, EThere::kNothing, 0, 2, true, true},
    {"create, a file", kZdCreate, EThere::kFile, ERROR_ALREADY_EXISTS, 0, true, false},
    {"create, a directory", kZdCreate, EThere::kDirectory, ERROR_ALREADY_EXISTS, 0, false, false},
    {"open if, missing", kZdOpenIf, EThere::kNothing, 0, 1, true, true},
    {"open if, a file", kZdOpenIf, EThere::kFile, ERROR_DIRECTORY, 0, false, false},
    {"open if, a directory", kZdOpenIf, EThere::kDirectory, 0, 1, false, true},
    {"overwrite, missing", kZdOverwrite, EThere::kNothing, ERROR_PATH_NOT_FOUND, 0, false, false},
    {"overwrite, a file", kZdOverwrite, EThere::kFile, ERROR_DIRECTORY, 0, false, true},
    {"overwrite, a directory", kZdOverwrite, EThere::kDirectory, 0, 3, false, true},
    {"overwrite if, missing", kZdOverwriteIf, EThere::kNothing, ERROR_PATH_NOT_FOUND, 0, false, false},
    {"overwrite if, a file", kZdOverwriteIf, EThere::kFile, ERROR_DIRECTORY, 0, false, true},
    {"overwrite if, a directory", kZdOverwriteIf, EThere::kDirectory, 0, 3, false, true},
};

class CDirectoryTest : public CCreateTest {
protected:
    void ExpectRow(const DirectoryRow& row, int number);
};

void CDirectoryTest::ExpectRow(const DirectoryRow& row, int number) {
    const std::string path = "pool/d" + std::to_string(number);
    if (row.there == EThere::kFile) Double().MakeFile(path, "hello");
    if (row.there == EThere::kDirectory) Double().MakeDirectory(path);
    ClearLogs();
    const Created created = Open(
        Widen(path.substr(4)), {.isDirectory = 1, .attributes = 0x12, .disposition = row.disposition, .access = kRead});
    EXPECT_EQ(row.code, created.code);

    const bool exists = row.there != EThere::kNothing;
    const std::string quoted = "\"" + path + "\"";
    std::vector<std::string> calls = {"ZdvfsStat(" + quoted + (exists ? ") = 0" : ") = -1"),
                                      "ZdvfsGetNTAclStr(" + quoted + ", 16384) = *",
                                      "ZdvfsGetDsidNTAclStr(" + quoted + ", 16384, 1) = *"};
    if (row.makes) calls.push_back("ZdvfsMkdir(" + quoted + ", 0x12) = " + (exists ? "-1" : "0"));
    if (row.lists) calls.push_back("ZdvfsOpendirForList(" + quoted + ", 0) = *");
    if (row.code == 0) {
        if (row.makes) calls.push_back("ZdvfsSetNTAclStr(" + quoted + ", \"" + kDefaultText + "\") = 0");
        calls.push_back("ZdvfsStat(" + quoted + ") = 0");
        EXPECT_EQ(row.action, created.action);
        EXPECT_EQ(0x4000U, created.information.mode & 0xF000U);
    }
    EXPECT_TRUE(LinesFit(calls, TakeCalls()));
    EXPECT_EQ(exists || row.makes, Double().Exists(path));
    EXPECT_EQ(row.there == EThere::kFile ? "hello" : "", Double().Bytes(path));
    if (created.code == 0) Close(created.handle);
    EXPECT_TRUE(Double().OpenStreams().empty());
}

TEST_F(CDirectoryTest, EachDispositionDoesWhatItsRowSays) {
    int number = 0;
    for (const DirectoryRow& row : kRows) {
        SCOPED_TRACE(row.name);
        ExpectRow(row, ++number);
    }
}

TEST_F(CDirectoryTest, CreateOfAnExistingDirectoryIsLoggedWithTheHostsName) {
    Double().MakeDirectory("pool/d/e");
    OpenFails(ERROR_ALREADY_EXISTS, L"\\d\\e", {.isDirectory = 1, .disposition = kZdCreate});
    EXPECT_TRUE(Logged(m_log, 1, "ZdCreateFile:  FileName:   \\d\\e  ERROR:  directory already exists\n"));
}

TEST_F(CDirectoryTest, FailingMkdirIsTheResult) {
    for (const DWORD disposition : {kZdCreate, kZdOpenIf}) {
        SCOPED_TRACE(disposition);
        Double().ClearRules();
        Double().Add(OnCall("ZdvfsMkdir").Fails(ENOSPC));
        OpenFails(ERROR_HANDLE_DISK_FULL, L"\\d", {.isDirectory = 1, .disposition = disposition});
        EXPECT_TRUE(CallsOf(m_calls, "ZdvfsOpendirForList").empty());
    }
}

TEST_F(CDirectoryTest, NullStreamIsTheResult) {
    Double().MakeDirectory("pool/d");
    Double().Add(OnCall("ZdvfsOpendirForList").Fails(EMFILE));
    OpenFails(ERROR_TOO_MANY_OPEN_FILES, L"\\d", {.isDirectory = 1, .disposition = kZdOpen});
}

TEST_F(CDirectoryTest, MkdirWithoutAnErrnoIsAnIoError) {
    Double().Add(OnCall("ZdvfsMkdir").Fails(0, 0));
    OpenFails(ERROR_IO_DEVICE, L"\\d", {.isDirectory = 1, .disposition = kZdCreate});
}

TEST_F(CDirectoryTest, AttributesOfANewDirectoryAreSixteenBits) {
    OpenAndClose(L"\\d", {.isDirectory = 1, .attributes = 0x80000021, .disposition = kZdCreate});
    EXPECT_TRUE(LinesFit({"ZdvfsMkdir(\"pool/d\", 0x21) = 0"}, CallsOf(m_calls, "ZdvfsMkdir")));
}

TEST_F(CDirectoryTest, DirectIoDirectoryIsCountedWithFlagsZero) {
    Double().MakeDirectory("pool/d");
    OpenAndClose(L"\\d",
                 {.isDirectory = 1, .attributes = FILE_FLAG_SEQUENTIAL_SCAN, .disposition = kZdOpen, .access = kWrite});
    EXPECT_TRUE(Logged(m_log, 6,
                       "ZdCreateFile: found direct-io/write-only/read-write file - zdvfsCacheFlags:4000, Flags:0, "
                       "m_OpenDirectIOorWriteFiles: 1\n"));
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CDirectoryTest, OrdinaryDirectoryIsNotCounted) {
    Double().MakeDirectory("pool/d");
    OpenAndClose(L"\\d", {.isDirectory = 1, .disposition = kZdOpen, .access = kWrite});
    EXPECT_FALSE(Logged(m_log, 6, "ZdCreateFile: found*"));
}

// A directory has neither fragments nor a locality.
TEST_F(CDirectoryTest, NothingIsLookedForBehindADirectory) {
    Double().MakeDirectory("pool/d");
    Double().MakeFile("pool/d;F1", "abc");
    const Created created = OpenAndClose(L"\\d", {.isDirectory = 1, .disposition = kZdOverwriteIf, .access = kWrite});
    EXPECT_EQ(0U, created.information.size);
    EXPECT_TRUE(Double().Exists("pool/d;F1"));
    EXPECT_TRUE(CallsOf(m_calls, "ZdvfsIoctl").empty());
    EXPECT_EQ(2U, CallsOf(m_calls, "ZdvfsStat").size());
}

TEST_F(CDirectoryTest, StatusCallsLeaveTrailingSlashesOut) {
    Double().MakeDirectory("pool/d");
    OpenAndClose(L"\\d\\/\\", {.isDirectory = 1, .disposition = kZdOpen, .access = kRead});
    EXPECT_TRUE(LinesFit({"ZdvfsStat(\"pool/d\") = 0", "ZdvfsGetNTAclStr(\"pool/d///\", 16384) = 0",
                          "ZdvfsGetDsidNTAclStr(\"pool/d///\", 16384, 1) = 0",
                          "ZdvfsOpendirForList(\"pool/d///\", 0) = *", "ZdvfsStat(\"pool/d\") = 0"},
                         m_calls));
}

TEST_F(CDirectoryTest, FileOpenedAsADirectoryLeavesNoStream) {
    Double().MakeFile("pool/f", "hello");
    OpenFails(ERROR_DIRECTORY, L"\\f", {.isDirectory = 1, .disposition = kZdOpenIf});
    EXPECT_TRUE(CallsOf(m_calls, "ZdvfsMkdir").empty());
    EXPECT_EQ("hello", Double().Bytes("pool/f"));
}

TEST_F(CDirectoryTest, DirectoryOpenedAsAFileIsRefusedAndKept) {
    Double().MakeDirectory("pool/d");
    for (const DWORD disposition : {kZdSupersede, kZdOpen, kZdCreate, kZdOpenIf, kZdOverwrite, kZdOverwriteIf}) {
        SCOPED_TRACE(disposition);
        const DWORD code = disposition == kZdCreate ? ERROR_ALREADY_EXISTS : ERROR_ACCESS_DENIED;
        OpenFails(code, L"\\d", {.disposition = disposition, .access = kWrite});
        EXPECT_TRUE(Double().State("pool/d").directory);
    }
}

}  // namespace
}  // namespace zd::test
