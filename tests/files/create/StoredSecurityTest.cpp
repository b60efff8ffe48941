// Reading the stored descriptor of an object that is being opened.
#include "CreateFixture.h"

namespace zd::test {
namespace {

class CStoredSecurityTest : public CCreateTest {
protected:
    void SetUp() override {
        CCreateTest::SetUp();
        Double().MakeFile("pool/a", "hello");
        Double().MakeDirectory("pool/d");
    }
};

constexpr CreateOptions kReader{.disposition = kZdOpen, .access = kRead};

TEST_F(CStoredSecurityTest, StoredTextSparesTheAlternateQuery) {
    SetSddl("pool/a", Granting("0x1"));
    OpenAndClose(L"\\a", kReader);
    EXPECT_TRUE(LinesFit(
        {"ZdvfsStat(\"pool/a\") = 0", "ZdvfsGetNTAclStr(\"pool/a\", 16384) = 0",
         "ZdvfsOpen(\"pool/a\", 0x10000, 0x0) = *", "ZdvfsStat(\"pool/a\") = 0", "ZdvfsStat(\"pool/a;F1\") = -1"},
        m_calls));
}

TEST_F(CStoredSecurityTest, UnreadableDescriptorFailsTheOpen) {
    Double().Add(OnCall("ZdvfsGetNTAclStr").Fails(EIO));
    Double().Add(OnCall("ZdvfsGetDsidNTAclStr").Fails(EBUSY));
    OpenFails(ERROR_BUSY, L"\\a", kReader);
    EXPECT_TRUE(LinesFit({"ZdvfsStat(\"pool/a\") = 0", "ZdvfsGetNTAclStr(\"pool/a\", 16384) = -1",
                          "ZdvfsGetDsidNTAclStr(\"pool/a\", 16384, 1) = -1"},
                         m_calls));
    CreateOptions directory = kReader;
    directory.isDirectory = 1;
    OpenFails(ERROR_BUSY, L"\\d", directory);
    EXPECT_TRUE(CallsOf(m_calls, "ZdvfsOpendirForList").empty());
}

TEST_F(CStoredSecurityTest, EmptyTextAndAFailedAlternateQueryFailTheOpenToo) {
    Double().Add(OnCall("ZdvfsGetDsidNTAclStr").Fails(EPERM));
    OpenFails(ERROR_ACCESS_DENIED, L"\\a", kReader);
}

TEST_F(CStoredSecurityTest, UnreadableDescriptorIsNotPassedWithBackupSemanticsEither) {
    Double().Add(OnCall("ZdvfsGetDsidNTAclStr").Fails(EIO));
    CreateOptions backup = kReader;
    backup.attributes = FILE_FLAG_BACKUP_SEMANTICS;
    OpenFails(ERROR_IO_DEVICE, L"\\a", backup);
}

TEST_F(CStoredSecurityTest, FailedPlainQueryIsMadeUpForByTheAlternateOne) {
    SetDsid("pool/a", GrantingNothing());
    Double().Add(OnCall("ZdvfsGetNTAclStr").Fails(EIO));
    OpenAndClose(L"\\a", kReader);
    const CImpersonation caller;
    OpenFails(ERROR_ACCESS_DENIED, L"\\a", kReader);
}

TEST_F(CStoredSecurityTest, PositiveResultByPathIsNoFailure) {
    Double().Add(OnCall("ZdvfsGetNTAclStr").Answers(1));
    Double().Add(OnCall("ZdvfsGetDsidNTAclStr").Answers(1));
    OpenAndClose(L"\\a", kReader);
}

TEST_F(CStoredSecurityTest, AlternateTextIsCheckedWhereTheStoredOneIsEmpty) {
    SetDsid("pool/a", GrantingNothing());
    const CImpersonation caller;
    OpenFails(ERROR_ACCESS_DENIED, L"\\a", kReader);
    SetDsid("pool/a", Granting("0x1"));
    OpenAndClose(L"\\a", kReader);
}

TEST_F(CStoredSecurityTest, TextThatIsNoDescriptorFailsTheOpenWithTheSystemsCode) {
    for (const char* const text : {"nonsense", "D:(A;;0x1", "\n"}) {
        SCOPED_TRACE(text);
        const DWORD code = RefusalOf(text);
        ASSERT_NE(0U, code);
        SetSddl("pool/a", text);
        OpenFails(code, L"\\a", kReader);
        EXPECT_TRUE(CallsOf(m_calls, "ZdvfsOpen").empty());
    }
}

TEST_F(CStoredSecurityTest, LongestTextThatFitsIsReadWhole) {
    const std::string text = LongText(16300) + "(A;;0x1;;;WD)";
    SetSddl("pool/a", text);
    const CImpersonation caller;
    OpenAndClose(L"\\a", kReader);
}

PSECURITY_DESCRIPTOR g_made = nullptr;
int g_freed = 0;
decltype(&::ConvertStringSecurityDescriptorToSecurityDescriptorA) g_convert = nullptr;
decltype(&::LocalFree) g_localFree = nullptr;
BOOL WINAPI KeepMade(LPCSTR text, DWORD revision, PSECURITY_DESCRIPTOR* descriptor, PULONG size) {
    const BOOL made = g_convert(text, revision, descriptor, size);
    g_made = *descriptor;
    return made;
}
HLOCAL WINAPI CountFreed(HLOCAL block) {
    if (block == g_made) ++g_freed;
    return g_localFree(block);
}

TEST_F(CStoredSecurityTest, DescriptorOfTheStoredTextIsFreedWhateverComesOutOfTheCheck) {
    SetSddl("pool/a", Granting("0x1"));
    const CImportPatch convert(Plugin(), "ConvertStringSecurityDescriptorToSecurityDescriptorA", &KeepMade);
    const CImportPatch free(Plugin(), "LocalFree", &CountFreed);
    g_convert = convert.Original<decltype(&::ConvertStringSecurityDescriptorToSecurityDescriptorA)>();
    g_localFree = free.Original<decltype(&::LocalFree)>();
    const CImpersonation caller;
    OpenAndClose(L"\\a", kReader);
    EXPECT_EQ(1, g_freed);
    OpenFails(ERROR_ACCESS_DENIED, L"\\a", {.disposition = kZdOpen, .access = kWrite});
    EXPECT_EQ(2, g_freed);
}

HANDLE g_failingHeap = nullptr;
decltype(&::HeapAlloc) g_heapAlloc = nullptr;
LPVOID WINAPI RefuseTextBuffers(HANDLE heap, DWORD flags, SIZE_T size) {
    if (heap == g_failingHeap && size == 16384) {
        ::SetLastError(1450);
        return nullptr;
    }
    return g_heapAlloc(heap, flags, size);
}

TEST_F(CStoredSecurityTest, BufferThatCannotBeHadIsEightWithoutALine) {
    {
        const CImportPatch patch(Plugin(), "HeapAlloc", &RefuseTextBuffers);
        g_heapAlloc = patch.Original<decltype(&::HeapAlloc)>();
        g_failingHeap = ::GetProcessHeap();
        OpenFails(ERROR_NOT_ENOUGH_MEMORY, L"\\a", kReader);
    }
    EXPECT_TRUE(LinesFit({"ZdvfsStat(\"pool/a\") = 0"}, m_calls));
    EXPECT_TRUE(LogFits({{6, "ZdCreateFile Enter*"}, {6, "ZdCreateFile Exit*"}}, m_log));
}

}  // namespace
}  // namespace zd::test
