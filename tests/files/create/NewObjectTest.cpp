// The descriptor of a new object: given, default, refused; and what happens when it cannot be stored.
#include "CreateFixture.h"

namespace zd::test {
namespace {

class CNewObjectTest : public CCreateTest {
protected:
    // Lets the next open take an existing object for a missing one, while the queries still find it.
    void HideFromFirstStatus(const std::string& path) {
        Double().Add(OnCall("ZdvfsStat").ForPath(path).OnNth(1).Fails(ENOENT));
    }
    std::vector<std::string> Stored() { return CallsOf(m_calls, "ZdvfsSetNTAclStr"); }
};

TEST_F(CNewObjectTest, GivenDescriptorIsStoredWhole) {
    const CDescriptor given("O:SYG:BAD:(A;;0x1f01ff;;;WD)S:(AU;SA;0x2;;;WD)");
    for (const DWORD isDirectory : {0U, 1U}) {
        SCOPED_TRACE(isDirectory);
        const std::string path = isDirectory != 0 ? "pool/d" : "pool/f";
        OpenAndClose(Widen(path.substr(4)),
                     {.isDirectory = isDirectory, .disposition = kZdCreate, .descriptor = given.Raw()});
        EXPECT_TRUE(LinesFit({"ZdvfsSetNTAclStr(\"" + path + "\", \"" + WholeText(given.Raw()) + "\") = 0"}, Stored()));
        EXPECT_NE(std::string::npos, Double().State(path).sddl.find("S:(AU;SA;"));
    }
}

TEST_F(CNewObjectTest, GivenDescriptorGoesBeforeTheDefaultAndBeforeStoredText) {
    const CDescriptor given("O:SYG:SYD:(A;;0x1;;;WD)");
    Double().MakeFile("pool/a");
    SetSddl("pool/a", "O:BAG:BAD:(A;;0x1;;;BA)");
    HideFromFirstStatus("pool/a");
    OpenAndClose(L"\\a", {.disposition = kZdOpenIf, .descriptor = given.Raw()});
    EXPECT_TRUE(LinesFit({"ZdvfsSetNTAclStr(\"pool/a\", \"" + WholeText(given.Raw()) + "\") = 0"}, Stored()));
}

TEST_F(CNewObjectTest, WithoutADescriptorTheDefaultIsStored) {
    OpenAndClose(L"\\a", {.disposition = kZdCreate});
    EXPECT_EQ(kDefaultText, Double().State("pool/a").sddl);
}

TEST_F(CNewObjectTest, DescriptorForAnExistingObjectIsIgnored) {
    Double().MakeFile("pool/a");
    const CDescriptor given("O:SYG:SYD:(A;;0x1;;;WD)");
    OpenAndClose(L"\\a", {.disposition = kZdOverwriteIf, .descriptor = given.Raw()});
    EXPECT_TRUE(Stored().empty());
    EXPECT_EQ("", Double().State("pool/a").sddl);
}

TEST_F(CNewObjectTest, TextFoundForANewObjectIsLeftAsItIs) {
    Double().MakeFile("pool/a");
    SetSddl("pool/a", "O:BAG:BAD:(A;;0x1;;;BA)");
    HideFromFirstStatus("pool/a");
    OpenAndClose(L"\\a", {.disposition = kZdOpenIf});
    EXPECT_TRUE(Stored().empty());
}

TEST_F(CNewObjectTest, FlagOfTheAlternateQueryDecidesWhetherTheDefaultApplies) {
    static constexpr struct {
        const char* name;
        int flag;
        const char* text;
        bool stores;
    } kRows[] = {{"one", 1, "", true},
                 {"other than zero", -7, "", true},
                 {"zero", 0, "", false},
                 {"one, with a text", 1, "O:BAG:BAD:(A;;0x1;;;BA)", false}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        Double().ClearRules();
        Double().MakeFile("pool/a");
        SetDsid("pool/a", row.text, row.flag);
        HideFromFirstStatus("pool/a");
        OpenAndClose(L"\\a", {.disposition = kZdOpenIf});
        EXPECT_EQ(row.stores ? 1U : 0U, Stored().size());
    }
}

TEST_F(CNewObjectTest, FailedQueriesOfANewObjectCountAsEmpty) {
    Double().Add(OnCall("ZdvfsGetNTAclStr").Fails(EACCES));
    Double().Add(OnCall("ZdvfsGetDsidNTAclStr").Fails(EIO));
    OpenAndClose(L"\\a", {.disposition = kZdCreate});
    EXPECT_EQ(kDefaultText, Double().State("pool/a").sddl);
}

TEST_F(CNewObjectTest, InvalidDescriptorMakesNothing) {
    SECURITY_DESCRIPTOR garbage{};
    garbage.Revision = 77;
    for (const DWORD isDirectory : {0U, 1U}) {
        OpenFails(ERROR_INVALID_SECURITY_DESCR, L"\\a",
                  {.isDirectory = isDirectory, .disposition = kZdCreate, .descriptor = &garbage});
        EXPECT_FALSE(Double().Exists("pool/a"));
        EXPECT_TRUE(CallsOf(m_calls, "ZdvfsOpen").empty());
        EXPECT_TRUE(CallsOf(m_calls, "ZdvfsMkdir").empty());
    }
}

constexpr DWORD kRefused = 4321;
BOOL WINAPI RefuseText() {
    ::SetLastError(kRefused);
    return FALSE;
}

TEST_F(CNewObjectTest, DescriptorThatTheSystemCannotPrintMakesNothing) {
    const CDescriptor given("O:SYG:SYD:(A;;0x1;;;WD)");
    const CImportPatch patch(Plugin(), "ConvertSecurityDescriptorToStringSecurityDescriptorA", &RefuseText);
    OpenFails(kRefused, L"\\a", {.disposition = kZdCreate, .descriptor = given.Raw()});
    EXPECT_FALSE(Double().Exists("pool/a"));
    EXPECT_TRUE(CallsOf(m_calls, "ZdvfsOpen").empty());
}

TEST_F(CNewObjectTest, DescriptorTooLongToBeReadBackMakesNothing) {
    const CDescriptor given(LongText(17000));
    ASSERT_GE(WholeText(given.Raw()).size(), 16384U);
    OpenFails(ERROR_INSUFFICIENT_BUFFER, L"\\a", {.disposition = kZdCreate, .descriptor = given.Raw()});
    EXPECT_FALSE(Double().Exists("pool/a"));
}

TEST_F(CNewObjectTest, FileWhoseDescriptorCannotBeStoredIsRemovedAgain) {
    Double().Add(OnCall("ZdvfsSetNTAclStr").Fails(ENOSPC));
    OpenFails(ERROR_HANDLE_DISK_FULL, L"\\a", {.disposition = kZdCreate, .access = kWrite});
    EXPECT_TRUE(LinesFit({"ZdvfsStat(\"pool/a\") = -1", "ZdvfsGetNTAclStr*", "ZdvfsGetDsidNTAclStr*", "ZdvfsOpen*",
                          "ZdvfsSetNTAclStr(\"pool/a\", *) = -1", "ZdvfsClose(*) = 0", "ZdvfsUnlink(\"pool/a\") = 0"},
                         m_calls));
    EXPECT_FALSE(Double().Exists("pool/a"));
    Double().ClearRules();
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CNewObjectTest, DirectoryWhoseDescriptorCannotBeStoredIsRemovedAgain) {
    Double().Add(OnCall("ZdvfsSetNTAclStr").Fails(EPERM));
    OpenFails(ERROR_ACCESS_DENIED, L"\\d", {.isDirectory = 1, .disposition = kZdOpenIf});
    EXPECT_TRUE(
        LinesFit({"ZdvfsStat(\"pool/d\") = -1", "ZdvfsGetNTAclStr*", "ZdvfsGetDsidNTAclStr*",
                  "ZdvfsMkdir(\"pool/d\", 0x80) = 0", "ZdvfsOpendirForList(\"pool/d\", 0) = *",
                  "ZdvfsSetNTAclStr(\"pool/d\", *) = -1", "ZdvfsClosedir(*) = 0", "ZdvfsUnlink(\"pool/d\") = 0"},
                 m_calls));
    EXPECT_FALSE(Double().Exists("pool/d"));
}

TEST_F(CNewObjectTest, FailureToStoreIsTheResultAlsoWhereTheRemovalFails) {
    Double().Add(OnCall("ZdvfsSetNTAclStr").Fails(ENOSPC));
    Double().Add(OnCall("ZdvfsUnlink").Fails(EACCES));
    Double().Add(OnCall("ZdvfsClose").Fails(EBADF));
    OpenFails(ERROR_HANDLE_DISK_FULL, L"\\a", {.disposition = kZdCreate});
}

TEST_F(CNewObjectTest, ExceptionWhileStoringRemovesTheObjectToo) {
    Double().Add(OnCall("ZdvfsSetNTAclStr").Throws(EThrow::kRuntimeError).WithLastError(31));
    Double().Add(OnCall("ZdvfsUnlink").WithLastError(99));
    OpenFails(31, L"\\a", {.disposition = kZdCreate});
    EXPECT_FALSE(Double().Exists("pool/a"));
    EXPECT_TRUE(Logged(m_log, 1, "ZdCreateFile:  ERROR:  Unhandled exception caught, dwError Code:   31\n"));
}

}  // namespace
}  // namespace zd::test
