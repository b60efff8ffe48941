// The descriptor that the first read of an unsecured object invents and stores.
#include "SecurityFixture.h"

namespace zd::test {
namespace {

class CInventedTest : public CSecurityTest {};

std::string SidText(PSID sid) {
    char* text = nullptr;
    if (::ConvertSidToStringSidA(sid, &text) == FALSE) return "no sid";
    std::string shown = text;
    ::LocalFree(text);
    return shown;
}

TEST_F(CInventedTest, CallerOwnsItWithAllSpecificRightsAndNoOthers) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ASSERT_EQ(0U, m_manager->ZdGetSecurity(m_file, 0, &descriptor));
    PSID owner = nullptr;
    PSID group = nullptr;
    PACL acl = nullptr;
    BOOL present = FALSE;
    BOOL defaulted = TRUE;
    ASSERT_NE(FALSE, ::GetSecurityDescriptorOwner(descriptor, &owner, &defaulted));
    EXPECT_EQ(FALSE, defaulted);
    ASSERT_NE(FALSE, ::GetSecurityDescriptorGroup(descriptor, &group, &defaulted));
    EXPECT_EQ(FALSE, defaulted);
    ASSERT_NE(FALSE, ::GetSecurityDescriptorDacl(descriptor, &present, &acl, &defaulted));
    EXPECT_NE(FALSE, present);
    EXPECT_EQ(FALSE, defaulted);
    ASSERT_NE(nullptr, acl);
    EXPECT_EQ(CurrentUserSid(), SidText(owner));
    EXPECT_EQ(CurrentUserSid(), SidText(group));
    EXPECT_EQ(ACL_REVISION, acl->AclRevision);
    EXPECT_EQ(::GetLengthSid(owner) + 4112, acl->AclSize);
    ASSERT_EQ(1, acl->AceCount);
    void* entry = nullptr;
    ASSERT_NE(FALSE, ::GetAce(acl, 0, &entry));
    const auto* const allowed = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
    EXPECT_EQ(ACCESS_ALLOWED_ACE_TYPE, allowed->Header.AceType);
    EXPECT_EQ(0, allowed->Header.AceFlags);
    EXPECT_EQ(0x0000FFFFU, allowed->Mask);
    EXPECT_EQ(CurrentUserSid(), SidText(const_cast<DWORD*>(&allowed->SidStart)));
    EXPECT_GE(::HeapSize(::GetProcessHeap(), 0, descriptor), acl->AclSize + 40U + 1024U);
    EXPECT_EQ(nullptr, ::LocalFree(descriptor));
}

TEST_F(CInventedTest, IsStoredByDescriptorAndReadBackTheNextTime) {
    const Gotten first = Get(m_file);
    EXPECT_EQ(0U, first.code);
    EXPECT_TRUE(first.selfRelative);
    EXPECT_CALLS("ZdvfsFgetNTAclStr(*, 16384) = 0", "ZdvfsFgetDsidNTAclStr(*, 16384, 1) = 0",
                 "ZdvfsFsetNTAclStr(*, \"" + first.text + "\") = 0");
    EXPECT_LOG({6, "ZdGetSecurity Enter\n"}, {6, "GET SD_DACL\n" + first.text + "\n"}, {6, "ZdGetSecurity Exit\n"});
    EXPECT_EQ(first.text, Double().State("pool/f").sddl);
    const Gotten second = Get(m_file);
    EXPECT_EQ(first.text, second.text);
    EXPECT_CALLS("ZdvfsFgetNTAclStr(*, 16384) = 0");
}

TEST_F(CInventedTest, IsStoredByPathForADirectory) {
    const Gotten gotten = Get(m_directory);
    EXPECT_EQ(0U, gotten.code);
    EXPECT_CALLS("ZdvfsGetNTAclStr(\"pool/d\", 16384) = 0", "ZdvfsGetDsidNTAclStr(\"pool/d\", 16384, 1) = 0",
                 "ZdvfsSetNTAclStr(\"pool/d\", \"" + gotten.text + "\") = 0");
}

TEST_F(CInventedTest, PositiveResultsByPathAreNoFailures) {
    Double().Add(OnCall("ZdvfsGetNTAclStr").Answers(1));
    Double().Add(OnCall("ZdvfsGetDsidNTAclStr").Answers(1));
    EXPECT_EQ(0U, Get(m_directory).code);
    EXPECT_NE("", Double().State("pool/d").sddl);
}

TEST_F(CInventedTest, ImpersonatedCallerIsTheOwner) {
    const CImpersonation caller;
    const Gotten gotten = Get(m_file);
    EXPECT_EQ(0U, gotten.code);
    EXPECT_EQ(0U, gotten.text.find("O:"));
}

TEST_F(CInventedTest, FailureToStoreIsTheResult) {
    Double().Add(OnCall("ZdvfsFsetNTAclStr").Fails(ENOSPC, 1));
    Double().Add(OnCall("ZdvfsSetNTAclStr").Fails(EPERM, 1));
    GetFails(ERROR_HANDLE_DISK_FULL, m_file);
    GetFails(ERROR_ACCESS_DENIED, m_directory);
    EXPECT_EQ("", Double().State("pool/f").sddl);
}

TEST_F(CInventedTest, PositiveResultOfStoringIsNoFailure) {
    Double().Add(OnCall("ZdvfsFsetNTAclStr").Answers(1));
    EXPECT_EQ(0U, Get(m_file).code);
}

// Each function of the system that takes part, refused: its code is the result, nothing comes out.
TEST_F(CInventedTest, RefusalsOfTheSystemGiveTheirCode) {
    static constexpr struct {
        const char* function;
        bool stored;  // the text was stored before
    } kRows[] = {{"GetTokenInformation", false},        {"InitializeAcl", false},
                 {"AddAccessAllowedAce", false},        {"InitializeSecurityDescriptor", false},
                 {"SetSecurityDescriptorDacl", false},  {"SetSecurityDescriptorOwner", false},
                 {"SetSecurityDescriptorGroup", false}, {"ConvertSecurityDescriptorToStringSecurityDescriptorA", false},
                 {"OpenProcessToken", false},           {"MakeSelfRelativeSD", true}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.function);
        SetSddl("pool/d", "");
        {
            const CImportPatch patch(Plugin(), row.function, &Refuse);
            GetFails(kRefused, m_directory);
        }
        EXPECT_EQ(row.stored, !Double().State("pool/d").sddl.empty());
    }
    SetSddl("pool/d", "");
    EXPECT_EQ(0U, Get(m_directory).code);
}

decltype(&::GetTokenInformation) g_getTokenInformation = nullptr;
BOOL WINAPI RefuseBlocks(HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID block, DWORD size, PDWORD needed) {
    return block == nullptr ? g_getTokenInformation(token, kind, block, size, needed) : Refuse();
}

TEST_F(CInventedTest, RefusedSecondQueryOfTheUserGivesItsCode) {
    const CImportPatch patch(Plugin(), "GetTokenInformation", &RefuseBlocks);
    g_getTokenInformation = patch.Original<decltype(&::GetTokenInformation)>();
    GetFails(kRefused, m_directory);
}

HANDLE g_token = nullptr;
int g_tokensClosed = 0;
decltype(&::OpenProcessToken) g_openProcessToken = nullptr;
decltype(&::CloseHandle) g_closeHandle = nullptr;
BOOL WINAPI KeepToken(HANDLE process, DWORD access, PHANDLE token) {
    const BOOL opened = g_openProcessToken(process, access, token);
    g_token = *token;
    return opened;
}
BOOL WINAPI CountClosing(HANDLE handle) {
    if (handle == g_token) ++g_tokensClosed;
    return g_closeHandle(handle);
}

TEST_F(CInventedTest, TokenIsClosedAlsoWhereTheRestFails) {
    const CImportPatch open(Plugin(), "OpenProcessToken", &KeepToken);
    const CImportPatch close(Plugin(), "CloseHandle", &CountClosing);
    g_openProcessToken = open.Original<decltype(&::OpenProcessToken)>();
    g_closeHandle = close.Original<decltype(&::CloseHandle)>();
    EXPECT_EQ(0U, Get(m_file).code);
    EXPECT_EQ(1, g_tokensClosed);
    const CImportPatch refuse(Plugin(), "InitializeAcl", &Refuse);
    EXPECT_EQ(kRefused, Get(m_directory).code);
    EXPECT_EQ(2, g_tokensClosed);
}

// The handle's lock is held throughout: a descriptor set meanwhile is not overwritten by the invented one.
TEST_F(CInventedTest, SetOnTheSameHandleWaitsForTheGet) {
    const std::string given = WholeText(CDescriptor(Granting("0x1")).Raw());
    std::thread setter;
    Double().Add(OnCall("ZdvfsFgetNTAclStr").OnNth(1).Before([&](const Call&) {
        setter = std::thread([&] { EXPECT_EQ(0U, Set(m_file, Granting("0x1"))); });
    }));
    EXPECT_EQ(0U, Get(m_file).code);
    ASSERT_TRUE(setter.joinable());
    setter.join();
    EXPECT_CALLS("ZdvfsFgetNTAclStr*", "ZdvfsFgetDsidNTAclStr*", "ZdvfsFsetNTAclStr(*, \"O:*D:(A;;*)\") = 0",
                 "ZdvfsFsetNTAclStr(*, \"" + given + "\") = 0");
    EXPECT_EQ(given, Double().State("pool/f").sddl);
}

}  // namespace
}  // namespace zd::test
