// ZdvfsLoader.h inside a host's process: what it refuses, what it sets up, in which order it ends things.
#include <gmock/gmock.h>

#include "harness/Environment.h"
#include "ZdvfsLoader.h"

using namespace zd::test;
using ::testing::HasSubstr;

namespace {

std::wstring PluginPath() {
    return BinaryFolder() + L"ZdvfsProtocol.dll";
}

DWORD CodeOfLoading(const std::wstring& path) {
    try {
        const zdvfs::CLibrary library(path);
        return ERROR_SUCCESS;
    } catch (const zdvfs::CError& error) {
        return error.Code();
    }
}

// ---- Failures ----

TEST(SdkErrorTest, LineNamesWhatFailedTheCodeItsTextAndTheSubject) {
    const zdvfs::CError error("ZdCreateFile", ERROR_FILE_NOT_FOUND, L"\\dir\\\u00fc");
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, error.Code());
    EXPECT_EQ("ZdCreateFile failed: 2 (" + zdvfs::ErrorText(2) + ") \\dir\\\xc3\xbc", error.what());
}

TEST(SdkErrorTest, CodeWithoutATextHasAStandInAndNoSubjectLeavesNoBlank) {
    EXPECT_EQ("x failed: 3735928559 (the system has no text for this code)", zdvfs::FailureText("x", 0xDEADBEEF));
}

TEST(SdkErrorTest, TextsOfTheSystemAreOneLineWithoutAnEnd) {
    for (DWORD code = 0; code < 1400; ++code) {
        const std::string text = zdvfs::ErrorText(code);
        EXPECT_THAT(text, ::testing::Not(::testing::AnyOf(HasSubstr("\n"), HasSubstr("\r"), ::testing::EndsWith(" "))))
            << code;
        EXPECT_FALSE(text.empty()) << code;
    }
}

TEST(SdkErrorTest, CheckPassesZeroAndThrowsTheRest) {
    EXPECT_NO_THROW(zdvfs::Check("ZdCloseFile", 0));
    EXPECT_THROW(zdvfs::Check("ZdCloseFile", 6), zdvfs::CError);
}

// ---- The library ----

TEST(SdkLibraryTest, PathsThatAreNotFullAreRefused) {
    for (const wchar_t* path : {L"", L"ZdvfsProtocol.dll", L".\\ZdvfsProtocol.dll", L"\\ZdvfsProtocol.dll",
                                L"Z:ZdvfsProtocol.dll", L"Z:", L"/ZdvfsProtocol.dll"}) {
        EXPECT_EQ(DWORD{ERROR_BAD_PATHNAME}, CodeOfLoading(path)) << zdvfs::Utf8(path);
    }
}

TEST(SdkLibraryTest, MissingFilesAndOtherLibrariesAreTold) {
    EXPECT_EQ(DWORD{ERROR_MOD_NOT_FOUND}, CodeOfLoading(BinaryFolder() + L"missing.dll"));
    EXPECT_EQ(DWORD{ERROR_PROC_NOT_FOUND}, CodeOfLoading(BinaryFolder() + L"hul.dll"));
}

TEST(SdkLibraryTest, MovedLibraryStaysLoadedUntilTheNewOwnerEnds) {
    {
        zdvfs::CLibrary first(PluginPath());
        const HMODULE module = first.Module();
        const zdvfs::CLibrary second(std::move(first));
        EXPECT_EQ(module, second.Module());
        EXPECT_EQ(module, ::GetModuleHandleW(L"ZdvfsProtocol.dll"));
    }
    EXPECT_EQ(nullptr, ::GetModuleHandleW(L"ZdvfsProtocol.dll"));
}

TEST(SdkLibraryTest, KeptLibraryStays) {
    {
        zdvfs::CLibrary library(PluginPath());
        library.KeepLoaded();
    }
    EXPECT_NE(nullptr, ::GetModuleHandleW(L"ZdvfsProtocol.dll"));
}

// ---- The log ----

TEST(SdkLogTest, SecondLogOfAProcessIsRefused) {
    CRegistrySandbox registry;
    zdvfs::CLog log;
    EXPECT_TRUE(log.Stop()) << "no line was logged";
    EXPECT_EQ(nullptr, log.Get());
    try {
        const zdvfs::CLog second;
        FAIL() << "a second log";
    } catch (const zdvfs::CError& error) {
        EXPECT_EQ(DWORD{ERROR_ALREADY_INITIALIZED}, error.Code());
    }
}

TEST(SdkLogTest, EmptyRegistryChoosesThePresentTreeAndMakesNoKey) {
    CRegistrySandbox registry;
    const zdvfs::CLog log;
    EXPECT_FALSE(log.Get()->formerMakerKeys);
    EXPECT_EQ(nullptr, log.Get()->settingsKey);
    EXPECT_FALSE(registry.KeyExists(kProductKey));
}

TEST(SdkLogTest, FormerTreeAloneIsChosenAndItsSettingsAreOpened) {
    CRegistrySandbox registry;
    registry.CreateKey(kFormerPluginKey);
    const zdvfs::CLog log;
    EXPECT_TRUE(log.Get()->formerMakerKeys);
    EXPECT_NE(nullptr, log.Get()->settingsKey);
}

TEST(SdkLogTest, PresentTreeWinsOverTheFormerOne) {
    CRegistrySandbox registry;
    registry.CreateKey(kFormerPluginKey);
    registry.CreateKey(kPluginKey);
    const zdvfs::CLog log;
    EXPECT_FALSE(log.Get()->formerMakerKeys);
    EXPECT_NE(nullptr, log.Get()->settingsKey);
}

// ---- A host ----

TEST(SdkHostTest, WritesItsLogConnectsTwiceAndEnds) {
    CEnvironment environment(EBackEnd::kLocalEngine);
    {
        zdvfs::CHost made(PluginPath());
        zdvfs::CHost host(std::move(made));
        EXPECT_EQ(0U, zdvfs::Connect(*host, L"one"));
        const zdvfs::CManager other = host.NewManager();
        EXPECT_EQ(0U, zdvfs::Connect(*other, L"two"));
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, zdvfs::Connect(*other, std::wstring(261, L'x')));
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, zdvfs::Connect(*other, L"x", std::wstring(257, L'x')));
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, zdvfs::Connect(*other, L"x", L"", std::wstring(257, L'x')));
        EXPECT_TRUE(host.Logger().initialised);
        host->ZdLogMessage(1, "the last line\n");
    }
    EXPECT_THAT(environment.LogText(), HasSubstr("the last line"));
}

TEST(SdkHostTest, FailedLoadLeavesRoomForAnother) {
    CRegistrySandbox registry;
    EXPECT_THROW(const zdvfs::CHost host(BinaryFolder() + L"missing.dll"), zdvfs::CError);
    EXPECT_NO_THROW(const zdvfs::CHost host(PluginPath()));
}

TEST(SdkHostTest, PathBesideTheProgramIsFull) {
    EXPECT_EQ(ProgramFolder() + L"ZdvfsProtocol.dll", zdvfs::PathBesideProgram());
    EXPECT_EQ(ProgramFolder() + L"x", zdvfs::PathBesideProgram(L"x"));
}

}  // namespace
