// What each disposition does to a file, existing or missing.
#include "CreateFixture.h"

namespace zd::test {
namespace {

struct FileRow {
    const char* name;
    DWORD disposition;
    const char* flags;  // with which it is opened for access 0x2
    const char* mode;   // for attributes 0x20
    bool truncates;
    bool removesFragments;
    DWORD action;
    DWORD codeWhereMissing;
    DWORD codeWhereExisting;
    bool setsLocality;
};

constexpr FileRow kRows[] = {
    {"supersede", kZdSupersede, "0x302", "0x20", true, true, 0, 0, 0, true},
    {"open", kZdOpen, "0x2", "0x0", false, false, 1, ERROR_FILE_NOT_FOUND, 0, false},
    {"create", kZdCreate, "0x502", "0x20", false, true, 2, 0, ERROR_ALREADY_EXISTS, true},
    {"open if", kZdOpenIf, "0x102", "0x20", false, false, 1, 0, 0, true},
    {"overwrite", kZdOverwrite, "0x202", "0x0", true, true, 3, ERROR_FILE_NOT_FOUND, 0, true},
    {"overwrite if", kZdOverwriteIf, "0x302", "0x20", true, true, 3, 0, 0, true},
};

constexpr char kLocalityCall[] = "ZdvfsIoctl(*, 46, null, 0, \"d\", 0, 32) = 0";

std::string OpenLine(const FileRow& row, const std::string& path, const std::string& result) {
    return "ZdvfsOpen(\"" + path + "\", " + row.flags + ", " + row.mode + ") = " + result;
}

class CDispositionTest : public CCreateTest {
protected:
    void ExpectExisting(const FileRow& row);
    void ExpectMissing(const FileRow& row);
    Created OpenRow(const FileRow& row, const std::wstring& name);
};

Created CDispositionTest::OpenRow(const FileRow& row, const std::wstring& name) {
    const CreateOptions options{.attributes = FILE_ATTRIBUTE_ARCHIVE, .disposition = row.disposition, .access = kWrite};
    ClearLogs();
    const Created created = Open(name, options);
    m_calls = TakeCalls();
    return created;
}

void CDispositionTest::ExpectExisting(const FileRow& row) {
    const std::string path = "pool/d/existing " + std::to_string(row.disposition);
    Double().MakeFile(path, "hello");
    Double().MakeFile(path + ";F1", "abc");
    Double().MakeFile(path + ";F2", "de");
    const Created created = OpenRow(row, Widen(path.substr(4)));
    EXPECT_EQ(row.codeWhereExisting, created.code);

    const std::string quoted = "\"" + path + "\"";
    const bool opens = row.codeWhereExisting == 0;
    std::vector<std::string> calls = {"ZdvfsStat(" + quoted + ") = 0", "ZdvfsGetNTAclStr(" + quoted + ", 16384) = 0",
                                      "ZdvfsGetDsidNTAclStr(" + quoted + ", 16384, 1) = 0",
                                      OpenLine(row, path, opens ? "*" : "-1")};
    if (opens) {
        if (row.truncates) calls.emplace_back("ZdvfsFtruncate(*, 0) = 0");
        if (row.setsLocality) calls.emplace_back(kLocalityCall);
        calls.push_back("ZdvfsStat(" + quoted + ") = 0");
        for (const char* part : {";F1", ";F2"}) {
            calls.push_back("ZdvfsStat(\"" + path + part + "\") = 0");
            if (row.removesFragments) calls.push_back("ZdvfsUnlink(\"" + path + part + "\") = 0");
        }
        calls.push_back("ZdvfsStat(\"" + path + ";F3\") = -1");
        EXPECT_EQ(row.action, created.action);
        EXPECT_EQ(row.truncates ? 0U : 10U, created.information.size);
        Close(created.handle);
    }
    EXPECT_TRUE(LinesFit(calls, m_calls));
    EXPECT_EQ(opens && row.truncates ? "" : "hello", Double().Bytes(path));
    EXPECT_EQ(!(opens && row.removesFragments), Double().Exists(path + ";F1"));
    EXPECT_EQ(!(opens && row.removesFragments), Double().Exists(path + ";F2"));
}

void CDispositionTest::ExpectMissing(const FileRow& row) {
    const std::string path = "pool/d/missing " + std::to_string(row.disposition);
    const Created created = OpenRow(row, Widen(path.substr(4)));
    EXPECT_EQ(row.codeWhereMissing, created.code);

    const std::string quoted = "\"" + path + "\"";
    const bool opens = row.codeWhereMissing == 0;
    std::vector<std::string> calls = {"ZdvfsStat(" + quoted + ") = -1", "ZdvfsGetNTAclStr(" + quoted + ", 16384) = -1",
                                      "ZdvfsGetDsidNTAclStr(" + quoted + ", 16384, 1) = -1",
                                      OpenLine(row, path, opens ? "*" : "-1")};
    if (opens) {
        if (row.truncates) calls.emplace_back("ZdvfsFtruncate(*, 0) = 0");
        if (row.setsLocality) calls.emplace_back(kLocalityCall);
        calls.push_back("ZdvfsSetNTAclStr(" + quoted + ", \"" + kDefaultText + "\") = 0");
        calls.push_back("ZdvfsStat(" + quoted + ") = 0");
        calls.push_back("ZdvfsStat(\"" + path + ";F1\") = -1");
        EXPECT_EQ(row.action, created.action);
        EXPECT_EQ(0U, created.information.size);
        Close(created.handle);
    } else {
        EXPECT_EQ(kUntouchedHandle, created.handle);
    }
    EXPECT_TRUE(LinesFit(calls, m_calls));
    EXPECT_EQ(opens, Double().Exists(path));
}

TEST_F(CDispositionTest, EachDoesWithAnExistingFileWhatItsRowSays) {
    for (const FileRow& row : kRows) {
        SCOPED_TRACE(row.name);
        ExpectExisting(row);
    }
}

TEST_F(CDispositionTest, EachDoesWithAMissingFileWhatItsRowSays) {
    Double().MakeDirectory("pool/d");
    for (const FileRow& row : kRows) {
        SCOPED_TRACE(row.name);
        ExpectMissing(row);
    }
}

TEST_F(CDispositionTest, OpenIfOfAnExistingFileReportsOneAndKeepsItsFragments) {
    Double().MakeFile("pool/a", "hello");
    Double().MakeFile("pool/a;F1", "abc");
    const Created created = OpenAndClose(L"\\a", {.disposition = kZdOpenIf, .access = kWrite});
    EXPECT_EQ(1U, created.action);
    EXPECT_EQ(8U, created.information.size);
    EXPECT_TRUE(Double().Exists("pool/a;F1"));
}

TEST_F(CDispositionTest, OverwriteIfOfAnExistingFileReportsThreeAndRemovesItsFragments) {
    Double().MakeFile("pool/a", "hello");
    Double().MakeFile("pool/a;F1", "abc");
    const Created created = OpenAndClose(L"\\a", {.disposition = kZdOverwriteIf, .access = kWrite});
    EXPECT_EQ(3U, created.action);
    EXPECT_EQ(0U, created.information.size);
    EXPECT_FALSE(Double().Exists("pool/a;F1"));
}

TEST_F(CDispositionTest, SixAndAboveFailBeforeAnyStorageCall) {
    for (const DWORD disposition : {6U, 7U, 0x80000000U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(disposition);
        OpenFails(ERROR_INVALID_PARAMETER, L"\\a", {.disposition = disposition});
        EXPECT_TRUE(m_calls.empty());
        EXPECT_TRUE(Logged(m_log, 1,
                           "ZdCreateFile:   FileName:   \\a  ERROR:  Invalid Parameter:      dwCreateDisposition "
                           "value = " +
                               std::to_string(static_cast<std::int32_t>(disposition)) + " \n"));
    }
}

// The locality is set where the disposition may create or empty and the access writes.
TEST_F(CDispositionTest, LocalityIsSetForWritersOnly) {
    static constexpr struct {
        DWORD disposition;
        DWORD access;
        bool sets;
    } kLocalityRows[] = {{kZdOpenIf, 0, false},          {kZdOpenIf, kRead, false},
                         {kZdOpenIf, kFurther, false},   {kZdOpenIf, kWrite, true},
                         {kZdOpen, kWrite, false},       {kZdOpen, kReadWrite, false},
                         {kZdOpenIf, kReadWrite, true},  {kZdOpenIf, kRead | kWrite, true},
                         {kZdOverwriteIf, kWrite, true}, {kZdSupersede, kReadWrite, true}};
    Double().MakeFile("pool/d/a");
    for (const auto& row : kLocalityRows) {
        SCOPED_TRACE(testing::Message() << "disposition " << row.disposition << " access " << row.access);
        OpenAndClose(L"\\d\\a", {.disposition = row.disposition, .access = row.access});
        EXPECT_EQ(row.sets ? 1U : 0U, CallsOf(m_calls, "ZdvfsIoctl").size());
        EXPECT_EQ(row.sets, static_cast<bool>(Logged(m_log, 6, "ZdCreateFile:  locality: d\n")));
    }
}

}  // namespace
}  // namespace zd::test
