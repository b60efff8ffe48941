// ZdSetSecurity: who may, what is stored, what is refused.
#include "SecurityFixture.h"

namespace zd::test {
namespace {

class CSetSecurityTest : public CSecurityTest {
protected:
    void SetUp() override {
        CSecurityTest::SetUp();
        SetSddl("pool/f", kOld);
        SetSddl("pool/d", kOld);
    }
    // Expects the code, no storage call, nothing stored, and that another thread can use the handle.
    void SetFails(DWORD code, const std::string& sddl) {
        ClearLogs();
        EXPECT_EQ(code, Set(m_file, sddl));
        EXPECT_CALLS();
        EXPECT_EQ(kOld, Double().State("pool/f").sddl);
        UseFromAnotherThread(m_file);
    }

    static constexpr char kOld[] = "O:BAG:BAD:(A;;0x1;;;BA)S:(AU;SA;0x2;;;WD)";
};

TEST_F(CSetSecurityTest, OpenFileIsSetByItsDescriptor) {
    const std::string text = WholeText(CDescriptor(Granting("0x3")).Raw());
    EXPECT_EQ(0U, Set(m_file, Granting("0x3")));
    EXPECT_CALLS("ZdvfsFsetNTAclStr(*, \"" + text + "\") = 0");
    EXPECT_LOG({6, "ZdSetSecurity Enter\n"}, {6, "AccessCheck failed 1309\n"}, {6, "SET SD_DACL\n" + text + "\n"},
               {6, "ZdSetSecurity Exit\n"});
    EXPECT_EQ(text, Get(m_file).text);
}

TEST_F(CSetSecurityTest, DirectoryAndClosedFileAreSetByPath) {
    const std::string text = WholeText(CDescriptor(Granting("0x3")).Raw());
    EXPECT_EQ(0U, Set(m_directory, Granting("0x3")));
    EXPECT_CALLS("ZdvfsSetNTAclStr(\"pool/d\", \"" + text + "\") = 0");
    ASSERT_EQ(0U, m_manager->ZdCloseFile(m_file, 0));
    ClearLogs();
    EXPECT_EQ(0U, Set(m_file, Granting("0x3")));
    EXPECT_CALLS("ZdvfsSetNTAclStr(\"pool/f\", \"" + text + "\") = 0");
}

TEST_F(CSetSecurityTest, WholeTextIsReplacedWhateverPartsAreNamed) {
    for (const std::uint64_t parts : {std::uint64_t{OWNER_SECURITY_INFORMATION}, std::uint64_t{0}, ~std::uint64_t{0}}) {
        SCOPED_TRACE(parts);
        SetSddl("pool/f", kOld);
        EXPECT_EQ(0U, Set(m_file, "O:SYG:SY", parts));
        EXPECT_EQ(WholeText(CDescriptor("O:SYG:SY").Raw()), Double().State("pool/f").sddl);
        EXPECT_EQ(std::string::npos, Double().State("pool/f").sddl.find("AU;SA"));
    }
}

TEST_F(CSetSecurityTest, AuditEntriesAreStoredToo) {
    EXPECT_EQ(0U, Set(m_file, "O:SYG:SYD:(A;;0x1;;;WD)S:(AU;FA;0x1;;;WD)"));
    EXPECT_NE(std::string::npos, Double().State("pool/f").sddl.find("S:(AU;FA;"));
}

TEST_F(CSetSecurityTest, ImpersonatedCallerMustKeepSomeAccess) {
    const std::string own = "O:" + CurrentUserSid() + "G:SYD:(A;;0x1;;;S-1-5-21-11-22-33-1002)";
    const CImpersonation caller;
    SetFails(ERROR_ACCESS_DENIED, GrantingNothing());
    SetFails(ERROR_ACCESS_DENIED, std::string(kStranger) + "D:(D;;0x1;;;WD)(A;;0x1;;;WD)");
    EXPECT_EQ(0U, Set(m_file, Granting("0x1")));
    EXPECT_EQ(0U, Set(m_file, own));
    EXPECT_FALSE(Logged(TakeLog(), 6, "AccessCheck failed 1309\n"));
}

TEST_F(CSetSecurityTest, RefusalIsLoggedAndNothingElse) {
    const CImpersonation caller;
    ClearLogs();
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Set(m_file, GrantingNothing()));
    EXPECT_LOG({6, "ZdSetSecurity Enter\n"}, {6, "AccessCheck failed 5\n"}, {6, "ZdSetSecurity Exit\n"});
}

TEST_F(CSetSecurityTest, GenericRightsGrantAnImpersonatedCallerNothing) {
    const CImpersonation caller;
    SetFails(ERROR_ACCESS_DENIED, Granting("GA"));
}

TEST_F(CSetSecurityTest, CallerThatDoesNotImpersonatePasses) {
    EXPECT_EQ(0U, Set(m_file, GrantingNothing()));
    EXPECT_EQ(WholeText(CDescriptor(GrantingNothing()).Raw()), Double().State("pool/f").sddl);
}

struct CheckAnswer {
    BOOL called;
    BOOL status;
    DWORD lastError;
} g_answer;
DWORD g_asked = 0;
BOOL WINAPI AnswerCheck(PSECURITY_DESCRIPTOR, HANDLE, DWORD access, PGENERIC_MAPPING, PPRIVILEGE_SET, LPDWORD, LPDWORD,
                        LPBOOL status) {
    g_asked = access;
    *status = g_answer.status;
    if (g_answer.lastError != 0) ::SetLastError(g_answer.lastError);
    return g_answer.called;
}

TEST_F(CSetSecurityTest, CodeOfTheCheckDecides) {
    static constexpr struct {
        const char* name;
        CheckAnswer answer;
        DWORD code;
    } kRows[] = {{"allowed", {TRUE, TRUE, 0}, 0},
                 {"allowed beside a stale code", {TRUE, TRUE, 5}, 0},
                 {"refused", {TRUE, FALSE, ERROR_PRIVILEGE_NOT_HELD}, ERROR_PRIVILEGE_NOT_HELD},
                 {"refused without a code", {TRUE, FALSE, 0}, ERROR_ACCESS_DENIED},
                 {"failed", {FALSE, TRUE, ERROR_INVALID_SECURITY_DESCR}, ERROR_INVALID_SECURITY_DESCR},
                 {"failed without a code", {FALSE, FALSE, 0}, ERROR_ACCESS_DENIED},
                 {"a primary token", {FALSE, FALSE, ERROR_NO_IMPERSONATION_TOKEN}, 0}};
    const CImportPatch patch(Plugin(), "AccessCheck", &AnswerCheck);
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        g_answer = row.answer;
        ::SetLastError(ERROR_NO_IMPERSONATION_TOKEN);  // must not be taken for the check's own
        EXPECT_EQ(row.code, Set(m_file, Granting("0x1")));
        EXPECT_EQ(DWORD{MAXIMUM_ALLOWED}, g_asked);
    }
}

int g_tokens = 0;
BOOL WINAPI CountTokens() {
    ++g_tokens;
    return Refuse();
}

TEST_F(CSetSecurityTest, InvalidDescriptorFailsBeforeAnyTokenIsOpened) {
    const CImportPatch thread(Plugin(), "OpenThreadToken", &CountTokens);
    const CImportPatch process(Plugin(), "OpenProcessToken", &CountTokens);
    SECURITY_DESCRIPTOR garbage{};
    garbage.Revision = 77;
    EXPECT_EQ(DWORD{ERROR_INVALID_SECURITY_DESCR}, m_manager->ZdSetSecurity(m_file, 0, &garbage));
    EXPECT_EQ(DWORD{ERROR_INVALID_SECURITY_DESCR}, m_manager->ZdSetSecurity(m_file, 0, nullptr));
    EXPECT_EQ(0, g_tokens);
    EXPECT_CALLS();
    EXPECT_EQ(kOld, Double().State("pool/f").sddl);
    EXPECT_LOG({6, "ZdSetSecurity Enter\n"}, {6, "ZdSetSecurity Exit\n"}, {6, "ZdSetSecurity Enter\n"},
               {6, "ZdSetSecurity Exit\n"});
}

TEST_F(CSetSecurityTest, DescriptorWhosePartsAreNotWhatTheyClaimIsInvalid) {
    const CImportPatch process(Plugin(), "OpenProcessToken", &CountTokens);
    const CDescriptor descriptor(Granting("0x1"));
    const auto& head = *static_cast<const SECURITY_DESCRIPTOR_RELATIVE*>(descriptor.Raw());
    static_cast<BYTE*>(descriptor.Raw())[head.Owner] = SID_REVISION + 1;
    EXPECT_EQ(DWORD{ERROR_INVALID_SECURITY_DESCR}, m_manager->ZdSetSecurity(m_file, 0, descriptor.Raw()));
    EXPECT_EQ(0, g_tokens);
    EXPECT_CALLS();
    EXPECT_EQ(kOld, Double().State("pool/f").sddl);
}

TEST_F(CSetSecurityTest, TokenThatCannotBeHadIsTheResult) {
    const CImportPatch process(Plugin(), "OpenProcessToken", &Refuse);
    SetFails(kRefused, Granting("0x1"));
}

TEST_F(CSetSecurityTest, RefusedConversionIsTheResult) {
    const CImportPatch patch(Plugin(), "ConvertSecurityDescriptorToStringSecurityDescriptorA", &Refuse);
    SetFails(kRefused, Granting("0x1"));
}

std::vector<HLOCAL> g_freed;
decltype(&::LocalFree) g_localFree = nullptr;
char* g_converted = nullptr;
decltype(&::ConvertSecurityDescriptorToStringSecurityDescriptorA) g_convert = nullptr;
HLOCAL WINAPI KeepFreed(HLOCAL block) {
    g_freed.push_back(block);
    return g_localFree(block);
}
BOOL WINAPI KeepConverted(PSECURITY_DESCRIPTOR descriptor, DWORD revision, SECURITY_INFORMATION parts, LPSTR* text,
                          PULONG size) {
    const BOOL converted = g_convert(descriptor, revision, parts, text, size);
    g_converted = *text;
    return converted;
}

TEST_F(CSetSecurityTest, TextOfTheSystemIsFreedAlsoWhereStoringFails) {
    const CImportPatch convert(Plugin(), "ConvertSecurityDescriptorToStringSecurityDescriptorA", &KeepConverted);
    const CImportPatch free(Plugin(), "LocalFree", &KeepFreed);
    g_convert = convert.Original<decltype(&::ConvertSecurityDescriptorToStringSecurityDescriptorA)>();
    g_localFree = free.Original<decltype(&::LocalFree)>();
    for (const bool fails : {false, true}) {
        SCOPED_TRACE(fails);
        if (fails) Double().Add(OnCall("ZdvfsFsetNTAclStr").Fails(EIO));
        g_freed.clear();
        EXPECT_EQ(fails ? DWORD{ERROR_IO_DEVICE} : 0U, Set(m_file, Granting("0x1")));
        EXPECT_EQ(std::vector<HLOCAL>{g_converted}, g_freed);
    }
}

// A text whose printed form has exactly that many bytes.
std::string TextThatPrintsAs(std::size_t bytes) {
    std::string text = LongText(bytes - 300);
    std::string tail = "(A;;0x4;;;S-1-5-21-1";
    for (int digits = 0; digits < 100; ++digits) {
        const std::string whole = text + tail + ")";
        const std::size_t printed = WholeText(CDescriptor(whole).Raw()).size();
        if (printed == bytes) return whole;
        if (printed + 40 < bytes) {
            text += "(A;;0x4;;;S-1-5-21-11-22-33-1002)";
        } else {
            tail += digits % 9 == 8 ? "-1" : "1";
        }
    }
    return std::string();
}

TEST_F(CSetSecurityTest, TextThatWouldNotFitALaterReadIsRefused) {
    const std::string longest = TextThatPrintsAs(16383);
    const std::string tooLong = TextThatPrintsAs(16384);
    ASSERT_NE("", longest);
    ASSERT_NE("", tooLong);
    EXPECT_EQ(0U, Set(m_file, longest));
    EXPECT_EQ(0U, Get(m_file).code);
    SetSddl("pool/f", kOld);
    SetFails(ERROR_INSUFFICIENT_BUFFER, tooLong);
    SetFails(ERROR_INSUFFICIENT_BUFFER, LongText(40000));
    EXPECT_FALSE(Logged(TakeLog(), 6, "SET SD_DACL*"));
}

TEST_F(CSetSecurityTest, FailureToStoreIsTheResultAndNothingIsStored) {
    Double().Add(OnCall("ZdvfsFsetNTAclStr").Fails(ENOSPC, 1));
    Double().Add(OnCall("ZdvfsSetNTAclStr").Fails(EACCES, 1));
    EXPECT_EQ(DWORD{ERROR_HANDLE_DISK_FULL}, Set(m_file, Granting("0x1")));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Set(m_directory, Granting("0x1")));
    EXPECT_EQ(kOld, Double().State("pool/f").sddl);
    UseFromAnotherThread(m_file);
}

TEST_F(CSetSecurityTest, UnknownHandleIsInvalidWithoutAnErrorLine) {
    for (const Handle handle : {Handle{0}, Handle{4711}, ~Handle{0}}) {
        ClearLogs();
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, Set(handle, Granting("0x1")));
        EXPECT_CALLS();
        EXPECT_LOG({6, "ZdSetSecurity Enter\n"}, {6, "ZdSetSecurity Exit\n"});
    }
}

TEST_F(CSetSecurityTest, ExceptionsOfTheStorageEndAtTheFrame) {
    Double().Add(OnCall("ZdvfsFsetNTAclStr").Throws(EThrow::kBadAlloc));
    Double().Add(OnCall("ZdvfsSetNTAclStr").Throws(EThrow::kRuntimeError).WithLastError(31));
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, Set(m_file, Granting("0x1")));
    EXPECT_TRUE(Logged(TakeLog(), 1, "ZdSetSecurity: ERROR:  Not Enough Memory, dwError Code:    8\n"));
    EXPECT_EQ(31U, Set(m_directory, Granting("0x1")));
    EXPECT_TRUE(Logged(TakeLog(), 1, "ZdSetSecurity: ERROR:  Unhandled exception caught, dwError Code:   31\n"));
    UseFromAnotherThread(m_file);
}

class CLocalSecurityTest : public CConnectedLocalTest {};

TEST_F(CLocalSecurityTest, DescriptorSurvivesAReconnect) {
    const CDescriptor given(Granting("0x3"));
    Created created = Create(L"\\f", {.disposition = kZdCreate});
    ASSERT_EQ(0U, created.code);
    EXPECT_EQ(0U, m_manager->ZdSetSecurity(created.handle, 0, given.Raw()));
    Close(created.handle);
    ASSERT_EQ(0U, m_manager->ZdDisconnect());
    ASSERT_EQ(0U, Connect());
    created = Create(L"\\f", {.disposition = kZdOpen, .access = 0x1});
    PSECURITY_DESCRIPTOR read = nullptr;
    ASSERT_EQ(0U, m_manager->ZdGetSecurity(created.handle, 0, &read));
    EXPECT_EQ(WholeText(given.Raw()), WholeText(read));
    ::LocalFree(read);
    Close(created.handle);
}

}  // namespace
}  // namespace zd::test
