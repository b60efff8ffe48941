// ZdvfsLoader.h inside a host's process: what it refuses, what it sets up, in which order it ends things and what it
// gives back then.
#include <gmock/gmock.h>

#include <cstdlib>
#include <new>

#include "harness/Environment.h"
#include "harness/ImportPatch.h"
#include "ZdvfsLoader.h"

using namespace zd::test;
using ::testing::HasSubstr;

namespace {

bool g_refuseMemory = false;             // to this program
const void* g_watchedBlock = nullptr;    // becomes null when this program frees it
HANDLE g_deregistered = nullptr;         // the latest event source
const void* g_deletedSection = nullptr;  // the latest critical section

BOOL WINAPI NoteDeregistration(HANDLE source) {
    g_deregistered = source;
    return TRUE;
}

void WINAPI NoteDeletion(CRITICAL_SECTION* section) {
    g_deletedSection = section;
}

}  // namespace

// Not inlined, since the compiler would take free for the wrong partner of new.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const block = g_refuseMemory ? nullptr : std::malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    if (block == g_watchedBlock) g_watchedBlock = nullptr;
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

namespace {

// Stands in for the writer thread: it has ended once the event is set.
void GiveWriter(CLogger& logger, bool ended) {
    ::InitializeCriticalSection(&logger.lock);
    logger.lockInitialised = true;
    logger.wakeEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    logger.writerThread = ::CreateEventW(nullptr, TRUE, ended ? TRUE : FALSE, nullptr);
}

bool IsOpen(HANDLE handle) {
    DWORD flags = 0;
    return ::GetHandleInformation(handle, &flags) != FALSE;
}

int CountOf(std::string_view wanted, std::string_view text) {
    int count = 0;
    for (auto at = text.find(wanted); at != text.npos; at = text.find(wanted, at + 1)) ++count;
    return count;
}

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

TEST(SdkLogTest, WriterThatDoesNotEndKeepsTheLog) {
    CRegistrySandbox registry;
    zdvfs::CLog log;
    CLogger& logger = *log.Get();
    GiveWriter(logger, /*ended=*/false);
    EXPECT_FALSE(log.Stop(0));
    EXPECT_EQ(nullptr, log.Get());
    EXPECT_TRUE(log.Stop(0)) << "there is nothing to stop any more";
    EXPECT_TRUE(IsOpen(logger.wakeEvent) && IsOpen(logger.writerThread));
    ASSERT_EQ(1U, logger.queue.size());
    EXPECT_EQ(kLogStop, logger.queue.front().level);
}

TEST(SdkLogTest, WriterThatCannotBeToldToEndKeepsTheLog) {
    CRegistrySandbox registry;
    zdvfs::CLog log;
    CLogger& logger = *log.Get();
    GiveWriter(logger, /*ended=*/true);
    g_refuseMemory = true;
    // Until the queue has no room left for a record without more memory.
    try {
        for (;;) logger.queue.push_back(LogRecord{});
    } catch (const std::bad_alloc&) {
    }
    const bool stopped = log.Stop(0);
    g_refuseMemory = false;
    EXPECT_FALSE(stopped);
    EXPECT_EQ(nullptr, log.Get());
    EXPECT_TRUE(IsOpen(logger.wakeEvent) && IsOpen(logger.writerThread));
}

TEST(SdkLogTest, FailedRegistrationOfTheEventSourceIsNotGivenBack) {
    CRegistrySandbox registry;
    zdvfs::CLog log;
    log.Get()->eventSource = INVALID_HANDLE_VALUE;
    const CImportPatch deregister(::GetModuleHandleW(nullptr), "DeregisterEventSource", &NoteDeregistration);
    EXPECT_TRUE(log.Stop());
    EXPECT_EQ(nullptr, g_deregistered);
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
    const std::string text = environment.LogText();
    ASSERT_THAT(text, HasSubstr("the last line"));
    EXPECT_EQ(2, CountOf("~CProtocolManager Enter", text.substr(text.find("the last line"))))
        << "the log ends behind both objects";
}

TEST(SdkHostTest, EndGivesBackWhatTheLogHeld) {
    CEnvironment environment(EBackEnd::kLocalEngine);
    environment.Registry().SetDword(kPluginKey, L"DebugLevel", kLogError);
    environment.Registry().SetDword(kPluginKey, L"LogSuppressRepeatedMessages", 1);
    zdvfs::CHost host(PluginPath());
    host->ZdLogMessage(kLogError, "a line\n");
    const CLogger& logger = host.Logger();
    ASSERT_FALSE(logger.suppressor.recent.empty());
    g_watchedBlock = logger.suppressor.recent.front().record;
    const HANDLE wakeEvent = logger.wakeEvent;
    const HANDLE writerThread = logger.writerThread;
    const HANDLE eventSource = logger.eventSource;
    const void* const section = &logger.lock;
    ASSERT_TRUE(IsOpen(wakeEvent) && IsOpen(writerThread));
    ASSERT_NE(nullptr, eventSource);
    const auto files = environment.LogFiles(environment.LogFolder());
    ASSERT_EQ(1U, files.size());
    ASSERT_FALSE(::DeleteFileW(files.front().c_str())) << "the log holds it";

    const CImportPatch deregister(::GetModuleHandleW(nullptr), "DeregisterEventSource", &NoteDeregistration);
    const CImportPatch deleteSection(::GetModuleHandleW(nullptr), "DeleteCriticalSection", &NoteDeletion);
    EXPECT_TRUE(host.End());
    EXPECT_FALSE(IsOpen(wakeEvent));
    EXPECT_FALSE(IsOpen(writerThread));
    EXPECT_EQ(eventSource, g_deregistered);
    EXPECT_EQ(section, g_deletedSection);
    EXPECT_EQ(nullptr, g_watchedBlock);
    EXPECT_TRUE(::DeleteFileW(files.front().c_str())) << ::GetLastError();
}

TEST(SdkHostTest, LogOutlivesTheHostWhereItsWriterDoesNotEnd) {
    CEnvironment environment(EBackEnd::kLocalEngine);
    environment.Load();  // holds the writer back
    HANDLE writerThread = nullptr;
    {
        zdvfs::CHost host(PluginPath());
        host->ZdLogMessage(kLogError, "held back\n");
        writerThread = host.Logger().writerThread;
        EXPECT_FALSE(host.End(0));
    }
    environment.RunWriter();
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(writerThread, 20000));
    const std::string text = environment.LogText();
    EXPECT_EQ(1, CountOf("held back", text));
    EXPECT_EQ(1, CountOf("~CProtocolManager Enter", text));
}

TEST(SdkHostTest, LibraryOfAWriterThatDoesNotEndStays) {
    CEnvironment environment(EBackEnd::kLocalEngine);
    environment.Registry().SetDword(kPluginKey, L"DebugLevel", kLogError);
    {
        zdvfs::CHost host(PluginPath());
        ASSERT_FALSE(host.Logger().initialised) << "a writer of the plug-in would keep the library by itself";
        GiveWriter(host.Logger(), /*ended=*/false);
        EXPECT_FALSE(host.End(0));
    }
    EXPECT_NE(nullptr, ::GetModuleHandleW(L"ZdvfsProtocol.dll"));
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
