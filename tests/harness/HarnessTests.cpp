// The harness itself, without the plug-in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <stdexcept>
#include <thread>

#include "harness/Child.h"
#include "harness/Environment.h"
#include "harness/Gate.h"
#include "harness/Security.h"
#include "harness/SlotTable.h"
#include "harness/TextCompare.h"

using namespace zd::test;
using ::testing::ElementsAre;

namespace {

// ---- Import patches ----

UINT WINAPI AnotherCodePage() {
    return 4711;
}

// The compiler takes an import's address for a constant within one function.
__attribute__((noinline)) UINT CodePage() {
    return ::GetOEMCP();
}

TEST(ImportPatch, ReplacesAFunctionForThisModuleAndPutsItBack) {
    const HMODULE self = ::GetModuleHandleW(nullptr);
    const UINT before = CodePage();
    ASSERT_NE(4711U, before);
    {
        const CImportPatch patch(self, "GetOEMCP", &AnotherCodePage);
        EXPECT_TRUE(patch.Active());
        EXPECT_EQ(reinterpret_cast<void*>(&AnotherCodePage), ImportedAddress(self, "GetOEMCP"));
        EXPECT_EQ(4711U, CodePage());
        EXPECT_EQ(before, patch.Original<decltype(&::GetOEMCP)>()());
    }
    EXPECT_EQ(before, CodePage());
}

TEST(ImportPatch, FindsFunctionsOfTheCRuntime) {
    EXPECT_NE(nullptr, ImportedAddress(::GetModuleHandleW(nullptr), "malloc"));
}

TEST(ImportPatch, RefusesAFunctionThatTheModuleDoesNotImport) {
    const HMODULE self = ::GetModuleHandleW(nullptr);
    EXPECT_THROW(CImportPatch(self, "NoSuchFunctionAnywhere", &AnotherCodePage), std::runtime_error);
    EXPECT_FALSE(CImportPatch(self, "NoSuchFunctionAnywhere", &AnotherCodePage, false).Active());
}

TEST(ImportPatch, KeepsTheLastErrorWhenItGoes) {
    {
        const CImportPatch patch(::GetModuleHandleW(nullptr), "GetOEMCP", &AnotherCodePage);
        ::SetLastError(4711);
    }
    EXPECT_EQ(4711U, ::GetLastError());
}

// ---- Registry ----

LSTATUS OpenPlugInKey(const wchar_t* path, HKEY* key) {
    return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, 0x2001F, key);
}

TEST(RegistrySandbox, BeginsEmptyAndIsSeenThroughTheOrdinaryFunctions) {
    CRegistrySandbox sandbox;
    HKEY key = nullptr;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, OpenPlugInKey(kProductKey, &key));
    sandbox.SetDword(kPluginKey, L"DebugLevel", 6);
    ASSERT_EQ(ERROR_SUCCESS, OpenPlugInKey(kPluginKey, &key));
    DWORD value = 0;
    DWORD size = sizeof(value);
    EXPECT_EQ(ERROR_SUCCESS,
              ::RegQueryValueExW(key, L"DebugLevel", nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size));
    EXPECT_EQ(6U, value);
    HKEY sub = nullptr;
    EXPECT_EQ(ERROR_SUCCESS, ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, (std::wstring(kSpaListKey) + L"\\pool").c_str(), 0,
                                               nullptr, 0, 0x2001F, nullptr, &sub, nullptr));
    EXPECT_EQ(ERROR_SUCCESS,
              ::RegSetValueExW(sub, L"ConfigFilePath", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"C:\\x.cfg"), 18));
    ::RegCloseKey(sub);
    ::RegCloseKey(key);
    EXPECT_THAT(sandbox.SubKeys(kSpaListKey), ElementsAre(L"pool"));
    EXPECT_EQ(L"C:\\x.cfg", sandbox.Get(std::wstring(kSpaListKey) + L"\\pool", L"ConfigFilePath")->Text());
}

TEST(RegistrySandbox, KeepsRawValuesAsTheyAre) {
    CRegistrySandbox sandbox;
    sandbox.SetRaw(kAgentKey, L"path", REG_SZ, {'C', 0, ':'});
    const auto value = sandbox.Get(kAgentKey, L"path");
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(DWORD{REG_SZ}, value->type);
    EXPECT_THAT(value->data, ElementsAre('C', 0, ':'));
    EXPECT_FALSE(sandbox.Get(kAgentKey, L"none").has_value());
    EXPECT_FALSE(sandbox.Get(kFormerAgentKey, L"path").has_value());
    sandbox.SetDword(kAgentKey, L"AgentType", 2);
    EXPECT_EQ(2U, sandbox.Get(kAgentKey, L"AgentType")->Number());
    sandbox.DeleteValue(kAgentKey, L"AgentType");
    sandbox.DeleteValue(kAgentKey, L"AgentType");
    EXPECT_FALSE(sandbox.Get(kAgentKey, L"AgentType").has_value());
    sandbox.DeleteKey(kProductKey);
    EXPECT_FALSE(sandbox.KeyExists(kAgentKey));
}

TEST(RegistrySandbox, LeavesTheRealTreeAlone) {
    const std::wstring key = L"SOFTWARE\\ZdTestsSandboxProbe" + std::to_wstring(::GetCurrentProcessId());
    {
        CRegistrySandbox sandbox;
        sandbox.SetDword(key, L"x", 1);
        EXPECT_TRUE(sandbox.KeyExists(key));
    }
    HKEY opened = nullptr;
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_READ, &opened));
    HKEY software = nullptr;
    EXPECT_EQ(ERROR_SUCCESS, ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft", 0, KEY_READ, &software));
    ::RegCloseKey(software);
}

// ---- Comparison ----

TEST(TextCompare, TakesStarsForAnyCharacters) {
    EXPECT_TRUE(Fits("ZdvfsClose(*) = 0", "ZdvfsClose(17) = 0"));
    EXPECT_TRUE(Fits("*", ""));
    EXPECT_TRUE(Fits("a*b*c", "a-b-b-c"));
    EXPECT_TRUE(Fits("\\*", "*"));
    EXPECT_TRUE(Fits("*\\*", "ab*"));
    EXPECT_FALSE(Fits("\\*", "x"));
    EXPECT_FALSE(Fits("ZdvfsClose(*) = 0", "ZdvfsClose(17) = -1"));
    EXPECT_FALSE(Fits("", "x"));
    EXPECT_FALSE(Fits("abc", "ab"));
}

TEST(TextCompare, ShowsWhatIsMissingAndWhatIsTooMuch) {
    EXPECT_TRUE(LinesFit({}, {}));
    EXPECT_TRUE(LinesFit({"a", "*"}, {"a", "b"}));
    EXPECT_FALSE(LinesFit({"a"}, {"a", "b"}));
    EXPECT_FALSE(LinesFit({"a", "b"}, {"a"}));
    const auto result = LinesFit({"a", "b", "c"}, {"a", "x\n", "c", "d"});
    EXPECT_FALSE(result);
    EXPECT_STREQ("\n  - expected and missing, + not expected\n    a\n  - b\n  + x\\n\n    c\n  + d\n",
                 result.message());
}

TEST(TextCompare, ConvertsBothWays) {
    EXPECT_EQ("\xc3\xa4x", Narrow(L"\u00e4x"));
    EXPECT_EQ(L"\u00e4x", Widen("\xc3\xa4x"));
}

// ---- Slots ----

class ITwoSlots {
public:
    virtual DWORD Sum(std::int64_t a, DWORD b, BYTE c, const void* d, bool e, DWORD f) = 0;
    virtual std::wstring Name() = 0;

protected:
    ~ITwoSlots() = default;
};

class CTwoSlots final : public ITwoSlots {
public:
    DWORD Sum(std::int64_t a, DWORD b, BYTE c, const void* d, bool e, DWORD f) override {
        return static_cast<DWORD>(a) + b + c + (d == this ? 1000U : 0U) + (e ? 1U : 0U) + f + m_own;
    }
    std::wstring Name() override { return L"two slots " + std::to_wstring(m_own); }

private:
    DWORD m_own = 100000;
};

TEST(Slots, TheTableNamesThirtySlotsInOrder) {
    ASSERT_EQ(30U, SlotTable().size());
    for (std::size_t i = 0; i < SlotTable().size(); ++i) EXPECT_EQ(static_cast<int>(i), SlotTable()[i].slot);
    EXPECT_EQ(12U, SlotTable()[2].widths.size());
}

TEST(Slots, CallsThroughTheTableOfAnObject) {
    CTwoSlots object;
    ITwoSlots* const asInterface = &object;
    const CObjectSlots slots(asInterface);
    EXPECT_EQ(101027U, slots.Code(0, {8, 4, 1, 8, 1, 4}, -1, 10U, 7, asInterface, true, 10U));
    EXPECT_EQ(L"two slots 100000", slots.Text(1));
}

TEST(Slots, RefusesArgumentsThatDoNotMatchTheTable) {
    CTwoSlots object;
    const CSlots slots(static_cast<ITwoSlots*>(&object));
    EXPECT_THROW(slots.Call(3, 1), std::logic_error);
    EXPECT_THROW(slots.Call(12, 1, 2, static_cast<void*>(nullptr), nullptr, nullptr), std::logic_error);
    EXPECT_THROW(slots.Call(28), std::logic_error);
    EXPECT_THROW(slots.Text(0), std::logic_error);
}

// ---- Child processes, identities ----

TEST(Child, RunsTheSameTestAndTellsItsExitCode) {
    if (InChild()) {
        WriteFileContent(SharedFolder() + L"from-child.txt", "hello");
        std::fputs("child speaks\n", stdout);
        std::fflush(stdout);
        ::ExitProcess(1);
    }
    const std::wstring folder = ProgramFolder() + L"child-" + std::to_wstring(::GetCurrentProcessId()) + L"\\";
    ASSERT_NE(FALSE, ::CreateDirectoryW(folder.c_str(), nullptr));
    const ChildResult result = RunTestInChild(folder);
    EXPECT_EQ(1U, result.exitCode);
    EXPECT_FALSE(result.timedOut);
    EXPECT_THAT(result.output, ::testing::HasSubstr("child speaks"));
    EXPECT_EQ("hello", FileContent(folder + L"from-child.txt"));
    ::DeleteFileW((folder + L"from-child.txt").c_str());
    ::DeleteFileW((folder + L"child-output.txt").c_str());
    EXPECT_NE(FALSE, ::RemoveDirectoryW(folder.c_str()));
}

TEST(Child, AFailingChildIsToldFromAnEndedOne) {
    if (InChild()) {
        FAIL() << "on purpose";
    }
    const std::wstring folder = ProgramFolder() + L"failing-" + std::to_wstring(::GetCurrentProcessId()) + L"\\";
    ASSERT_NE(FALSE, ::CreateDirectoryW(folder.c_str(), nullptr));
    const ChildResult result = RunTestInChild(folder);
    EXPECT_EQ(static_cast<std::uint32_t>(kChildFailed), result.exitCode);
    EXPECT_THAT(result.output, ::testing::HasSubstr("on purpose"));
    ::DeleteFileW((folder + L"child-output.txt").c_str());
    EXPECT_NE(FALSE, ::RemoveDirectoryW(folder.c_str()));
}

TEST(Gate, LetsAThreadThroughOnceItIsSet) {
    CGate gate;
    EXPECT_FALSE(gate.IsSet());
    EXPECT_FALSE(gate.Wait(0));
    bool passed = false;
    std::thread waiting([&] { passed = gate.Wait(); });
    gate.Set();
    waiting.join();
    EXPECT_TRUE(passed);
    EXPECT_TRUE(gate.IsSet());
}

TEST(Security, ImpersonationGivesTheThreadAToken) {
    HANDLE token = nullptr;
    EXPECT_EQ(FALSE, ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token));
    {
        const CImpersonation self;
        EXPECT_NE(FALSE, ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token));
        ::CloseHandle(token);
    }
    EXPECT_EQ(FALSE, ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, &token));
    EXPECT_EQ(DWORD{ERROR_NO_TOKEN}, ::GetLastError());
}

TEST(Security, DescriptorsGoThroughTheirText) {
    const CDescriptor descriptor("O:BAG:SYD:(A;;FR;;;WD)");
    EXPECT_NE(FALSE, ::IsValidSecurityDescriptor(descriptor.Raw()));
    EXPECT_EQ("O:BAG:SYD:(A;;FR;;;WD)", SddlOf(descriptor.Raw()));
    EXPECT_THROW(CDescriptor("nonsense"), std::runtime_error);
    EXPECT_EQ(0U, CurrentUserSid().find("S-1-5-"));
}

}  // namespace
