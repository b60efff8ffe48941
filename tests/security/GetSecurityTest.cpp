// ZdGetSecurity of objects with a stored descriptor.
#include <algorithm>

#include "SecurityFixture.h"

namespace zd::test {
namespace {

class CGetSecurityTest : public CSecurityTest {};

TEST_F(CGetSecurityTest, OpenFileIsReadByItsDescriptor) {
    SetSddl("pool/f", Granting("0x1"));
    const Gotten gotten = Get(m_file);
    EXPECT_EQ(0U, gotten.code);
    EXPECT_EQ(WholeText(CDescriptor(Granting("0x1")).Raw()), gotten.text);
    EXPECT_TRUE(gotten.selfRelative);
    EXPECT_CALLS("ZdvfsFgetNTAclStr(*, 16384) = 0");
    EXPECT_LOG({6, "ZdGetSecurity Enter\n"}, {6, "GET SD_DACL\n" + Granting("0x1") + "\n"},
               {6, "ZdGetSecurity Exit\n"});
}

TEST_F(CGetSecurityTest, DirectoryIsReadByItsPath) {
    SetSddl("pool/d", Granting("0x1"));
    EXPECT_EQ(0U, Get(m_directory).code);
    EXPECT_CALLS("ZdvfsGetNTAclStr(\"pool/d\", 16384) = 0");
}

TEST_F(CGetSecurityTest, ClosedFileIsReadByItsPath) {
    SetSddl("pool/f", Granting("0x1"));
    ASSERT_EQ(0U, m_manager->ZdCloseFile(m_file, 0));
    ClearLogs();
    EXPECT_EQ(0U, Get(m_file).code);
    EXPECT_CALLS("ZdvfsGetNTAclStr(\"pool/f\", 16384) = 0");
}

TEST_F(CGetSecurityTest, RequestedPartsAreIgnored) {
    const std::string stored = "O:BAG:SYD:(A;;0x1f01ff;;;WD)S:(AU;SA;0x2;;;WD)";
    SetSddl("pool/f", stored);
    const std::string whole = WholeText(CDescriptor(stored).Raw());
    for (const std::uint64_t parts : {std::uint64_t{0}, std::uint64_t{1}, ~std::uint64_t{0}}) {
        EXPECT_EQ(whole, Get(m_file, parts).text) << parts;
    }
}

TEST_F(CGetSecurityTest, AlternateTextIsTakenWhereThePlainQueryAnswersNothing) {
    const std::string alternate = Granting("0x3");
    SetDsid("pool/f", alternate);
    SetDsid("pool/d", alternate);
    EXPECT_EQ(WholeText(CDescriptor(alternate).Raw()), Get(m_file).text);
    EXPECT_CALLS("ZdvfsFgetNTAclStr(*, 16384) = 0", "ZdvfsFgetDsidNTAclStr(*, 16384, 1) = 0");
    EXPECT_EQ(WholeText(CDescriptor(alternate).Raw()), Get(m_directory).text);
    EXPECT_CALLS("ZdvfsGetNTAclStr(\"pool/d\", 16384) = 0", "ZdvfsGetDsidNTAclStr(\"pool/d\", 16384, 1) = 0");
}

TEST_F(CGetSecurityTest, AlternateTextIsTakenWhereThePlainQueryFails) {
    SetDsid("pool/f", Granting("0x3"));
    SetDsid("pool/d", Granting("0x3"));
    Double().Add(OnCall("ZdvfsFgetNTAclStr").Fails(EIO));
    Double().Add(OnCall("ZdvfsGetNTAclStr").Fails(EIO));
    EXPECT_EQ(0U, Get(m_file).code);
    EXPECT_EQ(0U, Get(m_directory).code);
}

TEST_F(CGetSecurityTest, FailedQueriesGiveTheirTranslatedError) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{EACCES, ERROR_ACCESS_DENIED},     {EBUSY, ERROR_BUSY},  {ENOENT, ERROR_FILE_NOT_FOUND},
                 {EINVAL, ERROR_INVALID_DATA},      {0, ERROR_IO_DEVICE}, {ERANGE, ERROR_IO_DEVICE},
                 {ENOTSUP, ERROR_INVALID_PARAMETER}};
    ASSERT_EQ(0U, m_manager->ZdCloseFile(m_directory, 0));
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.error);
        Double().ClearRules();
        Double().Add(OnCall("ZdvfsGetNTAclStr").Fails(EIO));
        Double().Add(OnCall("ZdvfsGetDsidNTAclStr").Fails(row.error, 1));
        GetFails(row.code, m_directory);
        EXPECT_FALSE(Logged(TakeLog(), 6, "GET SD_DACL*"));
    }
}

TEST_F(CGetSecurityTest, FailedQueryByDescriptorGivesItsTranslatedError) {
    Double().Add(OnCall("ZdvfsFgetNTAclStr").Fails(EIO));
    Double().Add(OnCall("ZdvfsFgetDsidNTAclStr").Fails(EACCES, 1));
    GetFails(ERROR_ACCESS_DENIED, m_file);
}

TEST_F(CGetSecurityTest, AnyResultButZeroIsAFailureByDescriptor) {
    SetDsid("pool/f", Granting("0x3"));
    Double().Add(OnCall("ZdvfsFgetNTAclStr").Answers(1));
    EXPECT_EQ(0U, Get(m_file).code);
    EXPECT_CALLS("ZdvfsFgetNTAclStr(*, 16384) = 1", "ZdvfsFgetDsidNTAclStr(*, 16384, 1) = 0");
    Double().Add(OnCall("ZdvfsFgetDsidNTAclStr").Answers(1));
    errno = EACCES;  // must not be taken for the call's own
    GetFails(ERROR_IO_DEVICE, m_file);
}

TEST_F(CGetSecurityTest, PositiveResultWithAnErrnoGivesItByDescriptor) {
    Double().Add(OnCall("ZdvfsFgetNTAclStr").Answers(1).WithErrno(EIO));
    Double().Add(OnCall("ZdvfsFgetDsidNTAclStr").Answers(1).WithErrno(EBUSY));
    GetFails(ERROR_BUSY, m_file);
}

TEST_F(CGetSecurityTest, TextThatIsNoDescriptorGivesTheSystemsCode) {
    for (const char* const text : {"nonsense", "D:(A;;0x1", "\n"}) {
        SCOPED_TRACE(text);
        const DWORD code = RefusalOf(text);
        ASSERT_NE(0U, code);
        SetSddl("pool/d", text);
        GetFails(code, m_directory);
        EXPECT_EQ(text, Double().State("pool/d").sddl);
    }
}

TEST_F(CGetSecurityTest, TextThatTheSystemWouldStumbleOverIsNotGivenToIt) {
    const CImportPatch patch(Plugin(), "ConvertStringSecurityDescriptorToSecurityDescriptorA", &Refuse);
    for (const char* const text : {"O::", "D:(A;;0x1;;;S-1-1-0)::", "O:S--1"}) {
        SCOPED_TRACE(text);
        SetSddl("pool/d", text);
        GetFails(ERROR_INVALID_SECURITY_DESCR, m_directory);
    }
}

TEST_F(CGetSecurityTest, RefusedConversionGivesItsCode) {
    SetSddl("pool/f", Granting("0x1"));
    const CImportPatch patch(Plugin(), "ConvertStringSecurityDescriptorToSecurityDescriptorA", &Refuse);
    GetFails(kRefused, m_file);
}

std::vector<HLOCAL> g_freed;
decltype(&::LocalFree) g_localFree = nullptr;
HLOCAL WINAPI KeepFreed(HLOCAL block) {
    g_freed.push_back(block);
    return g_localFree(block);
}
PSECURITY_DESCRIPTOR g_judged = nullptr;
BOOL WINAPI JudgeInvalid(PSECURITY_DESCRIPTOR descriptor) {
    g_judged = descriptor;
    return FALSE;
}

TEST_F(CGetSecurityTest, DescriptorThatTurnsOutInvalidIsFreedAndRefused) {
    for (const char* const stored : {"O:BAG:SYD:(A;;0x1;;;WD)", ""}) {
        SCOPED_TRACE(stored);
        SetSddl("pool/d", stored);
        g_freed.clear();
        {
            const CImportPatch judge(Plugin(), "IsValidSecurityDescriptor", &JudgeInvalid);
            const CImportPatch free(Plugin(), "LocalFree", &KeepFreed);
            g_localFree = free.Original<decltype(&::LocalFree)>();
            GetFails(ERROR_INVALID_SECURITY_DESCR, m_directory);
        }
        EXPECT_EQ(1, std::count(g_freed.begin(), g_freed.end(), g_judged));
    }
}

TEST_F(CGetSecurityTest, ResultIsProcessHeapMemory) {
    for (const char* const stored : {"O:BAG:SYD:(A;;0x1;;;WD)", ""}) {
        SCOPED_TRACE(stored);
        SetSddl("pool/f", stored);
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        ASSERT_EQ(0U, m_manager->ZdGetSecurity(m_file, 0, &descriptor));
        EXPECT_GE(::HeapSize(::GetProcessHeap(), 0, descriptor), ::GetSecurityDescriptorLength(descriptor));
        EXPECT_NE(FALSE, ::HeapFree(::GetProcessHeap(), 0, descriptor));
    }
}

TEST_F(CGetSecurityTest, NullOutPointerFailsBeforeAnyStorageCall) {
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, m_manager->ZdGetSecurity(m_file, 0, nullptr));
    EXPECT_CALLS();
    UseFromAnotherThread(m_file);
}

TEST_F(CGetSecurityTest, UnknownHandleIsInvalidWithoutAnErrorLine) {
    for (const Handle handle : {Handle{0}, Handle{4711}, ~Handle{0}}) {
        ClearLogs();
        const Gotten gotten = Get(handle);
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, gotten.code);
        EXPECT_FALSE(gotten.touched);
        EXPECT_CALLS();
        EXPECT_LOG({6, "ZdGetSecurity Enter\n"}, {6, "ZdGetSecurity Exit\n"});
    }
}

TEST_F(CGetSecurityTest, ReleasedHandleIsUnknown) {
    Close(m_file);
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, Get(m_file).code);
    m_file = kUntouchedHandle;
}

HANDLE g_heap = nullptr;
decltype(&::HeapAlloc) g_heapAlloc = nullptr;
LPVOID WINAPI RefuseTextBuffers(HANDLE heap, DWORD flags, SIZE_T size) {
    return heap == g_heap && size == 16384 ? nullptr : g_heapAlloc(heap, flags, size);
}

TEST_F(CGetSecurityTest, BufferThatCannotBeHadIsOutOfMemory) {
    {
        const CImportPatch patch(Plugin(), "HeapAlloc", &RefuseTextBuffers);
        g_heapAlloc = patch.Original<decltype(&::HeapAlloc)>();
        g_heap = ::GetProcessHeap();
        const Gotten gotten = Get(m_file);
        EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, gotten.code);
        EXPECT_FALSE(gotten.touched);
    }
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdGetSecurity Enter\n"}, {1, "ZdGetSecurity: ERROR:  Not Enough Memory, dwError Code:    8\n"},
               {6, "ZdGetSecurity Exit\n"});
}

TEST_F(CGetSecurityTest, ExceptionsOfTheStorageEndAtTheFrame) {
    Double().Add(OnCall("ZdvfsFgetNTAclStr").Throws(EThrow::kRuntimeError).WithLastError(31));
    EXPECT_EQ(31U, Get(m_file).code);
    EXPECT_LOG({6, "ZdGetSecurity Enter\n"},
               {1, "ZdGetSecurity: ERROR:  Unhandled exception caught, dwError Code:   31\n"},
               {6, "ZdGetSecurity Exit\n"});
    Double().ClearRules();
    Double().Add(OnCall("ZdvfsGetDsidNTAclStr").Throws(EThrow::kBadAlloc));
    GetFails(ERROR_NOT_ENOUGH_MEMORY, m_directory);
    EXPECT_TRUE(Logged(TakeLog(), 1, "ZdGetSecurity: ERROR:  Not Enough Memory, dwError Code:    8\n"));
}

}  // namespace
}  // namespace zd::test
