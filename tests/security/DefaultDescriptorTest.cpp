// The default descriptor, which is built with every object of the interface.
#include "SecurityFixture.h"

namespace zd::test {
namespace {

class CDefaultDescriptorTest : public CDoubleTest {};

TEST_F(CDefaultDescriptorTest, AdministratorsOwnItAndTheSystemSharesAllRights) {
    ASSERT_EQ(0U, Connect());
    const Created created = Create(L"\\a", {.disposition = kZdCreate});
    ASSERT_EQ(0U, created.code);
    Close(created.handle);
    EXPECT_EQ("O:BAG:BAD:(A;;GA;;;BA)(A;;GA;;;SY)", Double().State("pool/a").sddl);
}

TEST_F(CDefaultDescriptorTest, ObjectWhoseDefaultCannotBeBuiltIsNotMade) {
    void* context = nullptr;
    for (const char* const function :
         {"AllocateAndInitializeSid", "InitializeAcl", "AddAccessAllowedAce", "InitializeSecurityDescriptor",
          "SetSecurityDescriptorDacl", "SetSecurityDescriptorOwner", "SetSecurityDescriptorGroup",
          "ConvertSecurityDescriptorToStringSecurityDescriptorA"}) {
        SCOPED_TRACE(function);
        const CImportPatch patch(Plugin(), function, &Refuse);
        EXPECT_EQ(nullptr, Environment().Entry()(&context, &Logger()));
    }
    IProtocolManager* const made = Environment().Entry()(&context, &Logger());
    ASSERT_NE(nullptr, made);
    made->Release();
}

int g_sids = 0;
decltype(&::AllocateAndInitializeSid) g_allocateSid = nullptr;
decltype(&::FreeSid) g_freeSid = nullptr;
BOOL WINAPI CountSid(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD a, DWORD b, DWORD c, DWORD d, DWORD e,
                     DWORD f, DWORD g, DWORD h, PSID* sid) {
    const BOOL made = g_allocateSid(authority, count, a, b, c, d, e, f, g, h, sid);
    if (made != FALSE) ++g_sids;
    return made;
}
PVOID WINAPI CountFreedSid(PSID sid) {
    --g_sids;
    return g_freeSid(sid);
}

TEST_F(CDefaultDescriptorTest, SidsAreFreedOnEveryWay) {
    const CImportPatch allocate(Plugin(), "AllocateAndInitializeSid", &CountSid);
    const CImportPatch free(Plugin(), "FreeSid", &CountFreedSid);
    g_allocateSid = allocate.Original<decltype(&::AllocateAndInitializeSid)>();
    g_freeSid = free.Original<decltype(&::FreeSid)>();
    void* context = nullptr;
    {
        const CImportPatch refuse(Plugin(), "AddAccessAllowedAce", &Refuse);
        EXPECT_EQ(nullptr, Environment().Entry()(&context, &Logger()));
        EXPECT_EQ(0, g_sids);
    }
    IProtocolManager* const made = Environment().Entry()(&context, &Logger());
    ASSERT_NE(nullptr, made);
    EXPECT_EQ(0, g_sids);
    made->Release();
}

}  // namespace
}  // namespace zd::test
