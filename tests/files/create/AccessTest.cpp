// The access check of an open: who is checked, for which access, with which outcome.
#include "CreateFixture.h"

namespace zd::test {
namespace {

class CAccessTest : public CCreateTest {
protected:
    void SetUp() override {
        CCreateTest::SetUp();
        Double().MakeDirectory("pool/d");
        // Reading and emptying go together here; what the storage makes of that is not the matter of these tests.
        Double().Add(OnCall("ZdvfsFtruncate").Answers(0));
    }
};

TEST_F(CAccessTest, ImpersonatedCallerGetsWhatTheDescriptorGrants) {
    static constexpr struct {
        const char* name;
        const char* rights;
        DWORD access;
        DWORD disposition;
        DWORD code;
    } kRows[] = {
        {"read granted", "0x1", kRead, kZdOpen, 0},
        {"read not granted", "0x2", kRead, kZdOpen, 5},
        {"write granted", "0x2", kWrite, kZdOpen, 0},
        {"write not granted", "0x1", kWrite, kZdOpen, 5},
        {"both asked, one granted", "0x1", kRead | kWrite, kZdOpenIf, 5},
        {"both asked and granted", "0x3", kRead | kWrite, kZdOpenIf, 0},
        {"read-write is asked as write", "0x2", kReadWrite, kZdOpen, 0},
        {"read-write is not asked as itself", "0x4", kReadWrite, kZdOpen, 5},
        {"other rights are asked as they stand", "0x20021", 0x20020, kZdOpen, 0},
        {"other rights not granted", "0x1", 0x20020, kZdOpen, 5},
        {"no access asked, some granted", "0x80", 0, kZdOpen, 0},
        {"a reader does not overwrite", "0x1", kRead, kZdOverwrite, 5},
        {"a reader does not overwrite if", "0x1", kRead, kZdOverwriteIf, 5},
        {"a reader does not supersede", "0x1", kRead, kZdSupersede, 5},
        {"a reader without access asked does not overwrite", "0x1", 0, kZdOverwrite, 5},
        {"a reader without access asked does not supersede", "0x1", 0, kZdSupersede, 5},
        {"a reader opens if", "0x1", kRead, kZdOpenIf, 0},
        {"a writer overwrites", "0x3", kRead, kZdOverwrite, 0},
        {"a writer overwrites without access asked", "0x2", 0, kZdOverwriteIf, 0},
        {"a reader finds that the file exists", "0x1", kRead, kZdCreate, ERROR_ALREADY_EXISTS},
        {"generic rights grant nothing", "GA", kRead, kZdOpen, 5},
    };
    const CImpersonation caller;
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        Double().MakeFile("pool/a", "hello");
        SetSddl("pool/a", Granting(row.rights));
        const CreateOptions options{.disposition = row.disposition, .access = row.access};
        if (row.code == 0) {
            OpenAndClose(L"\\a", options);
        } else {
            OpenFails(row.code, L"\\a", options);
        }
        EXPECT_EQ(row.code == 5, CallsOf(m_calls, "ZdvfsOpen").empty());
        EXPECT_EQ(row.code == 5, static_cast<bool>(Logged(m_log, 6, "AccessCheck failed 5\n")));
        if (row.code != 0) {
            EXPECT_EQ("hello", Double().Bytes("pool/a"));
        }
    }
}

TEST_F(CAccessTest, CallerWithoutAnyRightIsRefusedAlsoWhereNoAccessIsAsked) {
    Double().MakeFile("pool/a");
    SetSddl("pool/a", GrantingNothing());
    const CImpersonation caller;
    OpenFails(ERROR_ACCESS_DENIED, L"\\a", {.disposition = kZdOpen, .access = 0});
}

TEST_F(CAccessTest, RightAskedForBesideAnyRightAtAllMustBeGranted) {
    constexpr DWORD kAnyRight = 0x02000000;
    Double().MakeFile("pool/read-only", "content");
    SetSddl("pool/read-only", Granting("0x1"));
    const CImpersonation caller;
    OpenAndClose(L"\\read-only", {.disposition = kZdOpen, .access = kAnyRight});
    OpenFails(ERROR_ACCESS_DENIED, L"\\read-only", {.disposition = kZdOpen, .access = kAnyRight | kWrite});
    OpenFails(ERROR_ACCESS_DENIED, L"\\read-only", {.disposition = kZdOverwrite, .access = kAnyRight});
    EXPECT_EQ("content", Double().Bytes("pool/read-only"));
}

TEST_F(CAccessTest, DirectoriesAreCheckedWithoutTheWriteBit) {
    const CImpersonation caller;
    SetSddl("pool/d", Granting("0x1"));
    OpenAndClose(L"\\d", {.isDirectory = 1, .disposition = kZdOverwriteIf, .access = kRead});
    OpenFails(5, L"\\d", {.isDirectory = 1, .disposition = kZdOpen, .access = kWrite});
    EXPECT_TRUE(CallsOf(m_calls, "ZdvfsOpendirForList").empty());
}

TEST_F(CAccessTest, CallerThatDoesNotImpersonateIsAllowed) {
    Double().MakeFile("pool/a", "hello");
    SetSddl("pool/a", GrantingNothing());
    OpenAndClose(L"\\a", {.disposition = kZdOpen, .access = kWrite});
    EXPECT_TRUE(Logged(m_log, 6, "AccessCheck failed 1309\n"));
}

TEST_F(CAccessTest, IdentificationIsEnoughToBeChecked) {
    Double().MakeFile("pool/a");
    SetSddl("pool/a", Granting("0x1"));
    const CImpersonation caller(SecurityIdentification);
    OpenAndClose(L"\\a", {.disposition = kZdOpen, .access = kRead});
    OpenFails(5, L"\\a", {.disposition = kZdOpen, .access = kWrite});
}

TEST_F(CAccessTest, BackupSemanticsSkipTheCheck) {
    Double().MakeFile("pool/a");
    SetSddl("pool/a", GrantingNothing());
    SetSddl("pool/d", GrantingNothing());
    const CImpersonation caller;
    OpenAndClose(L"\\a", {.attributes = FILE_FLAG_BACKUP_SEMANTICS, .disposition = kZdOpen, .access = kWrite});
    EXPECT_FALSE(Logged(m_log, 6, "AccessCheck*"));
    OpenAndClose(L"\\d",
                 {.isDirectory = 1, .attributes = FILE_FLAG_BACKUP_SEMANTICS, .disposition = kZdOpen, .access = kRead});
    OpenFails(5, L"\\a", {.attributes = FILE_FLAG_BACKUP_SEMANTICS >> 1, .disposition = kZdOpen, .access = kWrite});
}

TEST_F(CAccessTest, PlainOpenOfTheRootSkipsTheCheck) {
    static constexpr struct {
        const wchar_t* name;
        DWORD access;
        DWORD disposition;
        DWORD code;
    } kRows[] = {{L"\\", 0, kZdOpen, 0},        {L"/", kRead, kZdOpen, 0},    {L"\\", 0x80, kZdOpen, 0},
                 {L"\\", kFurther, kZdOpen, 5}, {L"\\", kWrite, kZdOpen, 5},  {L"/", kReadWrite, kZdOpen, 5},
                 {L"\\", kRead, kZdOpenIf, 5},  {L"\\\\", kRead, kZdOpen, 5}, {L"\\.", kRead, kZdOpen, 5},
                 {L"\\d", kRead, kZdOpen, 5}};
    SetSddl("pool", GrantingNothing());
    SetSddl("pool/d", GrantingNothing());
    Double().MakeDirectory("pool/.");
    SetSddl("pool/.", GrantingNothing());
    const CImpersonation caller;
    for (const auto& row : kRows) {
        SCOPED_TRACE(testing::Message() << Narrow(row.name) << " access " << row.access << " disposition "
                                        << row.disposition);
        const CreateOptions options{.isDirectory = 1, .disposition = row.disposition, .access = row.access};
        if (row.code == 0) {
            OpenAndClose(row.name, options);
        } else {
            OpenFails(row.code, row.name, options);
        }
    }
}

TEST_F(CAccessTest, MissingObjectIsNotChecked) {
    const CImpersonation caller;
    OpenAndClose(L"\\new", {.disposition = kZdCreate, .access = kWrite});
    EXPECT_FALSE(Logged(m_log, 6, "AccessCheck*"));
}

TEST_F(CAccessTest, UnsecuredObjectIsOpenToEverybody) {
    Double().MakeFile("pool/a");
    const CImpersonation caller;
    OpenAndClose(L"\\a", {.disposition = kZdOpen, .access = kWrite});
}

// ---- What the system is asked ----

struct Asked {
    int calls = 0;
    DWORD access = 0;
    GENERIC_MAPPING mapping{};
    DWORD privilegeBytes = 0;
    DWORD granted = 0;
    BOOL status = FALSE;
    DWORD lastError = 0;
} g_asked;
struct Answer {
    BOOL called = TRUE;
    BOOL status = TRUE;
    DWORD lastError = 0;
} g_answer;

BOOL WINAPI KeepAccessCheck(PSECURITY_DESCRIPTOR, HANDLE, DWORD access, PGENERIC_MAPPING mapping, PPRIVILEGE_SET,
                            LPDWORD privilegeBytes, LPDWORD granted, LPBOOL status) {
    g_asked = Asked{g_asked.calls + 1, access, *mapping, *privilegeBytes, *granted, *status, ::GetLastError()};
    *status = g_answer.status;
    if (g_answer.lastError != 0) ::SetLastError(g_answer.lastError);
    return g_answer.called;
}

class CAskedTest : public CAccessTest {
protected:
    void SetUp() override {
        CAccessTest::SetUp();
        Double().MakeFile("pool/a", "hello");
        SetSddl("pool/a", Granting("0x1"));
    }
    void Ask(DWORD disposition, DWORD access) {
        g_asked = Asked();
        OpenAndClose(L"\\a", {.disposition = disposition, .access = access});
    }
};

TEST_F(CAskedTest, AccessIsAskedAsItStandsAfterItsTranslation) {
    const CImportPatch patch(Plugin(), "AccessCheck", &KeepAccessCheck);
    static constexpr struct {
        DWORD disposition;
        DWORD access;
        DWORD asked;
    } kRows[] = {{kZdOpen, kRead, 0x1},         {kZdOpen, kReadWrite, 0x2},      {kZdOpen, 0x27, 0x23},
                 {kZdOpen, 0x120089, 0x120089}, {kZdOpenIf, 0, MAXIMUM_ALLOWED}, {kZdOverwrite, kRead, 0x3},
                 {kZdOverwriteIf, 0x80, 0x82},  {kZdSupersede, kReadWrite, 0x2}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(testing::Message() << "disposition " << row.disposition << " access " << row.access);
        Ask(row.disposition, row.access);
        EXPECT_EQ(1, g_asked.calls);
        EXPECT_EQ(row.asked, g_asked.access);
    }
}

TEST_F(CAskedTest, MappingIsZeroAndOutArgumentsArePreset) {
    const CImportPatch patch(Plugin(), "AccessCheck", &KeepAccessCheck);
    ::SetLastError(0);
    Ask(kZdOpen, kRead);
    EXPECT_EQ(0U, g_asked.mapping.GenericRead | g_asked.mapping.GenericWrite | g_asked.mapping.GenericExecute |
                      g_asked.mapping.GenericAll);
    EXPECT_EQ(20U, g_asked.privilegeBytes);
    EXPECT_EQ(0xFFFFU, g_asked.granted);
    EXPECT_EQ(TRUE, g_asked.status);
    EXPECT_EQ(0U, g_asked.lastError);
}

TEST_F(CAskedTest, CodeOfTheRefusalIsTheResult) {
    const CImportPatch patch(Plugin(), "AccessCheck", &KeepAccessCheck);
    static constexpr struct {
        const char* name;
        Answer answer;
        DWORD code;
    } kRows[] = {{"refused with a code", {TRUE, FALSE, 1314}, 1314},
                 {"refused without a code", {TRUE, FALSE, 0}, ERROR_ACCESS_DENIED},
                 {"failed with a code", {FALSE, TRUE, 1338}, 1338},
                 {"failed without a code", {FALSE, TRUE, 0}, ERROR_ACCESS_DENIED},
                 {"failed for a primary token", {FALSE, TRUE, 1309}, 0},
                 {"refused for a primary token", {TRUE, FALSE, 1309}, 0}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        g_answer = row.answer;
        // Must not be taken for the check's own.
        ::SetLastError(1309);
        ClearLogs();
        const Created created = Create(L"\\a", {.disposition = kZdOpen, .access = kRead});
        EXPECT_EQ(row.code, created.code);
        const DWORD shown = row.code != 0 ? row.code : 1309;
        EXPECT_TRUE(Logged(TakeLog(), 6, "AccessCheck failed " + std::to_string(shown) + "\n"));
        if (created.code == 0) Close(created.handle);
    }
}

// ---- The token ----

int g_tokensClosed = 0;
HANDLE g_token = nullptr;
decltype(&::OpenThreadToken) g_openThreadToken = nullptr;
decltype(&::CloseHandle) g_closeHandle = nullptr;
BOOL WINAPI KeepToken(HANDLE thread, DWORD access, BOOL asSelf, PHANDLE token) {
    const BOOL opened = g_openThreadToken(thread, access, asSelf, token);
    g_token = opened != FALSE ? *token : nullptr;
    return opened;
}
BOOL WINAPI CountClosing(HANDLE handle) {
    if (handle == g_token) ++g_tokensClosed;
    return g_closeHandle(handle);
}
BOOL WINAPI RefuseProcessToken(HANDLE, DWORD, PHANDLE) {
    ::SetLastError(1336);
    return FALSE;
}

TEST_F(CAskedTest, TokenIsClosedAfterTheCheckWhateverComesOutOfIt) {
    const CImportPatch open(Plugin(), "OpenThreadToken", &KeepToken);
    const CImportPatch close(Plugin(), "CloseHandle", &CountClosing);
    g_openThreadToken = open.Original<decltype(&::OpenThreadToken)>();
    g_closeHandle = close.Original<decltype(&::CloseHandle)>();
    const CImpersonation caller;
    OpenAndClose(L"\\a", {.disposition = kZdOpen, .access = kRead});
    EXPECT_EQ(1, g_tokensClosed);
    OpenFails(5, L"\\a", {.disposition = kZdOpen, .access = kWrite});
    EXPECT_EQ(2, g_tokensClosed);
}

TEST_F(CAskedTest, TokenThatCannotBeHadFailsTheOpen) {
    const CImportPatch patch(Plugin(), "OpenProcessToken", &RefuseProcessToken);
    OpenFails(1336, L"\\a", {.disposition = kZdOpen, .access = kRead});
    EXPECT_TRUE(CallsOf(m_calls, "ZdvfsOpen").empty());
}

}  // namespace
}  // namespace zd::test
