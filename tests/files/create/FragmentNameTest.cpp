// Names of fragment shape: parts of a file stand under the file's own descriptor.
#include "CreateFixture.h"

namespace zd::test {
namespace {

class CFragmentNameTest : public CCreateTest {
protected:
    void SetUp() override {
        CCreateTest::SetUp();
        Double().MakeFile("pool/a", "hello");
        SetSddl("pool/a", GrantingNothing());
    }
};

constexpr CreateOptions kReader{.disposition = kZdOpen, .access = kRead};
constexpr CreateOptions kMaker{.disposition = kZdOpenIf, .access = kWrite};

TEST_F(CFragmentNameTest, PartIsGuardedByItsFilesDescriptorOnOpen) {
    Double().MakeFile("pool/a;F1", "abc");
    SetSddl("pool/a;F1", Granting("0x3"));
    const CImpersonation caller;
    OpenFails(ERROR_ACCESS_DENIED, L"\\a;F1", kReader);
    EXPECT_TRUE(LinesFit(
        {"ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsStat(\"pool/a\") = 0", "ZdvfsGetNTAclStr(\"pool/a\", 16384) = 0"},
        m_calls));
    SetSddl("pool/a", Granting("0x1"));
    SetSddl("pool/a;F1", GrantingNothing());
    OpenAndClose(L"\\a;F1", kReader);
}

TEST_F(CFragmentNameTest, PartIsGuardedByItsFilesDescriptorOnCreate) {
    const CImpersonation caller;
    for (const DWORD disposition : {kZdSupersede, kZdCreate, kZdOpenIf, kZdOverwriteIf}) {
        SCOPED_TRACE(disposition);
        OpenFails(ERROR_ACCESS_DENIED, L"\\a;F1", {.disposition = disposition, .access = kWrite});
        EXPECT_FALSE(Double().Exists("pool/a;F1"));
    }
}

TEST_F(CFragmentNameTest, WhoMayOnlyReadAFileAddsNoPartToIt) {
    SetSddl("pool/a", Granting("0x1"));
    const CImpersonation caller;
    for (const DWORD access : {DWORD{0}, kRead}) {
        for (const DWORD disposition : {kZdCreate, kZdOpenIf}) {
            OpenFails(ERROR_ACCESS_DENIED, L"\\a;F1", {.disposition = disposition, .access = access});
            EXPECT_FALSE(Double().Exists("pool/a;F1"));
        }
    }
}

TEST_F(CFragmentNameTest, DirectoryOfAPartsNameIsGuardedToo) {
    const CImpersonation caller;
    OpenFails(ERROR_ACCESS_DENIED, L"\\a;F1", {.isDirectory = 1, .disposition = kZdCreate, .access = kWrite});
    EXPECT_FALSE(Double().Exists("pool/a;F1"));
}

TEST_F(CFragmentNameTest, PartOfAPartIsGuardedByTheFile) {
    Double().MakeFile("pool/a;F1");
    SetSddl("pool/a;F1", Granting("0x3"));
    const CImpersonation caller;
    OpenFails(ERROR_ACCESS_DENIED, L"\\a;F1;F2", kMaker);
}

TEST_F(CFragmentNameTest, OtherSpellingsOfThePathLeadToTheSameGuard) {
    Double().MakeFile("pool/a;F1", "abc");
    SetSddl("pool/a;F1", Granting("0x3"));
    const CImpersonation caller;
    for (const wchar_t* const name :
         {L"/a;F1", L"\\\\a;F1", L"\\a;F1\\", L"\\a;F1//", L"\\a;F1\\.", L"\\x\\..\\a;F1"}) {
        SCOPED_TRACE(Narrow(name));
        OpenFails(ERROR_ACCESS_DENIED, name, kReader);
    }
}

TEST_F(CFragmentNameTest, UnreadableDescriptorOfTheFileFailsTheCreateOfAPart) {
    Double().Add(OnCall("ZdvfsGetNTAclStr").ForPath("pool/a").Fails(EIO));
    Double().Add(OnCall("ZdvfsGetDsidNTAclStr").ForPath("pool/a").Fails(EACCES));
    OpenFails(ERROR_ACCESS_DENIED, L"\\a;F1", kMaker);
    EXPECT_FALSE(Double().Exists("pool/a;F1"));
}

TEST_F(CFragmentNameTest, FileThatCannotBeLookedAtFailsTheOpenOfItsPart) {
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/a").Fails(EIO));
    OpenFails(ERROR_IO_DEVICE, L"\\a;F1", kMaker);
    EXPECT_FALSE(Double().Exists("pool/a;F1"));
}

TEST_F(CFragmentNameTest, FileThatCertainlyIsNotThereGuardsNothing) {
    const CImpersonation caller;
    for (const int error : {ENOENT, ENOTDIR}) {
        SCOPED_TRACE(error);
        Double().Add(OnCall("ZdvfsStat").ForPath("pool/a").Fails(error));
        OpenAndClose(L"\\a;F1", kMaker);
        EXPECT_EQ(kDefaultText, Double().State("pool/a;F1").sddl);
        Double().ClearRules();
        Double().Remove("pool/a;F1");
    }
}

TEST_F(CFragmentNameTest, NameOfTheShapeBehindNoFileIsAFileOfItsOwn) {
    Double().MakeDirectory("pool/d");
    SetSddl("pool/d", GrantingNothing());
    const CImpersonation caller;
    OpenAndClose(L"\\none;F1", kMaker);
    EXPECT_EQ(kDefaultText, Double().State("pool/none;F1").sddl);
    OpenAndClose(L"\\d;F1", kMaker);
    EXPECT_EQ(kDefaultText, Double().State("pool/d;F1").sddl);
}

// Only what the numbering of fragments can give is a part; anything else has its own descriptor and no other.
TEST_F(CFragmentNameTest, OtherNamesAreNotParts) {
    const CImpersonation caller;
    for (const char* const name : {"a;F", "a;F0", "a;F-1", "a;F1x", "a;f1", "a;G1", "aF1", "a;F 1", "a;F+1", "a;F01",
                                   "a;F0x1", "a;F1 ", "a;F4294967297", "a;F99999999999999999999"}) {
        SCOPED_TRACE(name);
        const std::string path = std::string("pool/") + name;
        Double().MakeFile(path);
        SetSddl(path, Granting("0x1"));
        OpenAndClose(Widen(std::string("\\") + name), kReader);
        SetSddl(path, GrantingNothing());
        OpenFails(ERROR_ACCESS_DENIED, Widen(std::string("\\") + name), kReader);
    }
}

TEST_F(CFragmentNameTest, HighestFragmentNumberIsAPart) {
    Double().MakeFile("pool/a;F2147483647");
    const CImpersonation caller;
    OpenFails(ERROR_ACCESS_DENIED, L"\\a;F2147483647", kReader);
    OpenFails(ERROR_ACCESS_DENIED, L"\\a;F10", kMaker);
}

class CLocalFragmentNameTest : public CConnectedLocalTest {};

// The engine follows "." and "..": no way of writing a path may lead past the guard.
TEST_F(CLocalFragmentNameTest, NoPathLeadsToAPartPastItsGuard) {
    const CDescriptor closed(GrantingNothing());
    const CDescriptor open(Granting("0x3"));
    Close(Create(L"\\a;F1", {.disposition = kZdCreate, .descriptor = open.Raw()}).handle);
    Close(Create(L"\\a", {.disposition = kZdCreate, .descriptor = closed.Raw()}).handle);
    const CImpersonation caller;
    for (const wchar_t* const name :
         {L"\\a;F1", L"\\a;F1\\", L"\\a;F1\\.", L"\\.\\a;F1", L"\\a;F1\\x\\..", L"\\..\\a;F1", L"\\x;F1\\..\\a;F1"}) {
        SCOPED_TRACE(Narrow(name));
        const Created created = Create(name, {.disposition = kZdOpen, .access = kRead});
        EXPECT_NE(0U, created.code);
        if (created.code == 0) Close(created.handle);
    }
}

}  // namespace
}  // namespace zd::test
