// What the first line brings up, from any thread and when the system refuses something.
#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "LogFixture.h"

namespace zd::test {
namespace {

using LogFirstUse = CLogTest;

TEST_F(LogFirstUse, FillsInTheSharedObject) {
    LogToSandbox();
    Logger().bytesWritten = 12345;
    Start();
    EXPECT_FALSE(Logger().initialised);
    Say(1, "line\n");
    EXPECT_TRUE(Logger().initialised);
    EXPECT_TRUE(Logger().lockInitialised);
    EXPECT_TRUE(Logger().fileActive);
    EXPECT_NE(Logger().file, nullptr);
    EXPECT_NE(Logger().wakeEvent, nullptr);
    EXPECT_NE(Logger().writerThread, nullptr);
    EXPECT_EQ(::GetThreadId(Logger().writerThread), Logger().writerThreadId);
    EXPECT_NE(Logger().eventSource, nullptr);
    EXPECT_NE(Logger().settingsKey, nullptr);
    const DWORD self = ::GetCurrentProcessId();
    ASSERT_EQ(Logger().processNames.count(self), 1u);
    EXPECT_EQ(Logger().processNames.at(self), OwnImageName());
    EXPECT_EQ(Logger().currentProcess, &*Logger().processNames.find(self));
    EXPECT_NE(Logger().suppressor.sink, nullptr);
    EXPECT_EQ(Logger().suppressor.sinkContext, &Logger());
    EXPECT_EQ(Logger().suppressor.process, Logger().currentProcess);
    EXPECT_FALSE(Logger().suppressor.enabled);
    Finish();
    EXPECT_LT(Logger().bytesWritten, 12345u);
}

TEST_F(LogFirstUse, SuppressorsSinkQueuesACopy) {
    LogToSandbox();
    Start();
    Say(6, "first\n");
    ASSERT_NE(Logger().suppressor.sink, nullptr);
    const LogRecord record{6, "through the sink\n", ::_time64(nullptr), 42, Logger().currentProcess};
    Logger().suppressor.sink(Logger().suppressor.sinkContext, record);
    EXPECT_EQ(record.text, "through the sink\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), (Texts{"first", "through the sink"}));
    EXPECT_NE(LogBytes().find(", 42) - through the sink"), std::string::npos);
}

TEST_F(LogFirstUse, KnownProcessNameIsKept) {
    LogToSandbox();
    Logger().processNames[::GetCurrentProcessId()] = "known.exe";
    LogThese(6, {"line\n"});
    EXPECT_NE(LogBytes().find(":known.exe, "), std::string::npos);
}

TEST_F(LogFirstUse, ProcessThatCannotBeOpenedIsUnknown) {
    LogToSandbox();
    DWORD access = 0;
    Replace<decltype(::OpenProcess)>("OpenProcess", [&](auto, DWORD wanted, BOOL, DWORD) -> HANDLE {
        access = wanted;
        return nullptr;
    });
    LogThese(6, {"line\n"});
    EXPECT_EQ(access, 0x410u);
    EXPECT_NE(LogBytes().find(":UNKNOWN, "), std::string::npos);
}

TEST_F(LogFirstUse, ProcessWithoutANameIsUnknown) {
    LogToSandbox();
    Replace<DWORD(HANDLE, char*, DWORD)>("K32GetProcessImageFileNameA", [](auto, HANDLE, char*, DWORD size) -> DWORD {
        EXPECT_EQ(size, 260u);
        return 0;
    });
    LogThese(6, {"line\n"});
    EXPECT_NE(LogBytes().find(":UNKNOWN, "), std::string::npos);
}

TEST_F(LogFirstUse, ImageNameWithoutABackslashIsTakenWhole) {
    LogToSandbox();
    Replace<DWORD(HANDLE, char*, DWORD)>("K32GetProcessImageFileNameA",
                                         [](auto, HANDLE, char* name, DWORD size) -> DWORD {
                                             ::strcpy_s(name, size, "plain.exe");
                                             return 9;
                                         });
    LogThese(6, {"line\n"});
    EXPECT_NE(LogBytes().find(":plain.exe, "), std::string::npos);
}

TEST_F(LogFirstUse, SettingsKeyIsMadeAndOpenedForReadingAndWriting) {
    LogToSandbox();
    Start();
    Registry().DeleteKey(kPluginKey);
    std::vector<REGSAM> accesses;
    Replace<decltype(::RegCreateKeyExW)>(
        "RegCreateKeyExW", [&](auto original, HKEY root, const wchar_t* path, DWORD reserved, wchar_t* kind,
                               DWORD options, REGSAM access, SECURITY_ATTRIBUTES* security, HKEY* key, DWORD* done) {
            accesses.push_back(access);
            return original(root, path, reserved, kind, options, access, security, key, done);
        });
    Say(6, "line\n");
    Finish();
    EXPECT_EQ(accesses, std::vector<REGSAM>{0x2001F});
    EXPECT_TRUE(Registry().KeyExists(kPluginKey));
    EXPECT_NE(Logger().settingsKey, nullptr);
}

TEST_F(LogFirstUse, SettingsKeyThatCannotBeHadChangesNothingElse) {
    LogToSandbox();
    Start();
    Replace<decltype(::RegCreateKeyExW)>(
        "RegCreateKeyExW",
        [](auto, HKEY, const wchar_t*, DWORD, wchar_t*, DWORD, REGSAM, SECURITY_ATTRIBUTES*, HKEY*, DWORD*) -> LSTATUS {
            return ERROR_ACCESS_DENIED;
        });
    Say(6, "line\n");
    Finish();
    EXPECT_EQ(Logger().settingsKey, nullptr);
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
}

TEST_F(LogFirstUse, FromEightThreadsAtOnceGivesOneWriterAndLosesNoLine) {
    LogToSandbox();
    std::atomic<int> threadsMade = 0;
    std::atomic<int> filesOpened = 0;
    std::atomic<int> sources = 0;
    Replace<decltype(::CreateThread)>(
        "CreateThread", [&](auto original, SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                            void* argument, DWORD flags, DWORD* id) {
            ++threadsMade;
            EXPECT_EQ(stack, 0u);
            EXPECT_EQ(flags, 0u);
            EXPECT_EQ(argument, &Logger());
            ::Sleep(20);  // so that the others arrive meanwhile
            return original(security, stack, start, argument, flags, id);
        });
    Replace<decltype(::_fsopen)>("_fsopen", [&](auto original, const char* path, const char* mode, int share) {
        FILE* const file = original(path, mode, share);
        if (file != nullptr) ++filesOpened;
        return file;
    });
    Replace<decltype(::RegisterEventSourceW)>("RegisterEventSourceW",
                                              [&](auto original, const wchar_t* server, const wchar_t* source) {
                                                  ++sources;
                                                  return original(server, source);
                                              });
    Start();
    std::atomic<int> ready = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
            ++ready;
            while (ready != 8) ::Sleep(0);
            Say(6, ("from " + std::to_string(thread) + "\n").c_str());
        });
    }
    for (std::thread& thread : threads) thread.join();
    Finish();
    EXPECT_EQ(threadsMade, 1);
    EXPECT_EQ(filesOpened, 1);
    EXPECT_EQ(sources, 1);
    auto texts = LoggedTexts();
    std::sort(texts.begin(), texts.end());
    Texts expected;
    for (int thread = 0; thread < 8; ++thread) expected.push_back("from " + std::to_string(thread));
    EXPECT_EQ(texts, expected);
}

TEST_F(LogFirstUse, ThreadThatCannotBeMadeIsTriedAgainByTheNextLine) {
    LogToSandbox();
    std::atomic<int> calls = 0;
    Replace<decltype(::CreateThread)>(
        "CreateThread",
        [&](auto original, SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start, void* argument,
            DWORD flags, DWORD* id) -> HANDLE {
            if (++calls == 1) {
                ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                return nullptr;
            }
            return original(security, stack, start, argument, flags, id);
        });
    Start();
    Say(1, "lost\n");
    EXPECT_FALSE(Logger().initialised);
    EXPECT_EQ(Logger().writerThread, nullptr);
    EXPECT_TRUE(Logger().queue.empty());
    Say(1, "written\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), Texts{"written"});
}

TEST_F(LogFirstUse, EventThatCannotBeMadeIsTriedAgainByTheNextLine) {
    LogToSandbox();
    std::atomic<int> calls = 0;
    Replace<decltype(::CreateEventW)>(
        "CreateEventW",
        [&](auto original, SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) -> HANDLE {
            EXPECT_FALSE(manual);
            EXPECT_FALSE(set);
            EXPECT_EQ(name, nullptr);
            return ++calls == 1 ? nullptr : original(security, manual, set, name);
        });
    Start();
    Say(1, "lost\n");
    EXPECT_FALSE(Logger().initialised);
    EXPECT_TRUE(Logger().queue.empty());
    Say(1, "written\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), Texts{"written"});
}

TEST_F(LogFirstUse, LocalTimeThatCannotBeToldStaysInsideTheLogCall) {
    LogToSandbox();
    std::atomic<int> calls = 0;
    Replace<errno_t(tm*, const time_t*)>("_localtime64_s", [&](auto original, tm* local, const time_t* time) {
        return ++calls == 1 ? EINVAL : original(local, time);
    });
    Start();
    EXPECT_NO_THROW(Say(1, "lost\n"));
    EXPECT_FALSE(Logger().initialised);
    Say(1, "written\n");
    Finish();
    EXPECT_TRUE(Logger().initialised);
    EXPECT_EQ(LoggedTexts(), Texts{"written"});
}

TEST_F(LogFirstUse, LoggingLeavesErrnoAndTheLastErrorAlone) {
    LogToSandbox();  // whose directory is missing, so that opening the file fails first
    Start(5);
    const auto say = [this](std::int32_t level, const char* text) {
        errno = 12345;
        ::SetLastError(54321);
        Say(level, text);
        EXPECT_EQ(::GetLastError(), 54321u) << level;
        EXPECT_EQ(errno, 12345) << level;
    };
    say(6, "dropped\n");
    say(1, "first\n");
    say(1, "second\n");
    say(1, nullptr);
    say(666, "no line\n");
    Finish();
    say(1, "after the end\n");
    EXPECT_EQ(LoggedTexts(), (Texts{"first", "second"}));
}

TEST_F(LogFirstUse, FailingLogLeavesErrnoAndTheLastErrorAlone) {
    Replace<decltype(::CreateThread)>(
        "CreateThread", [](auto, SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*) -> HANDLE {
            ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            errno = ENOMEM;
            return nullptr;
        });
    Start();
    errno = 12345;
    ::SetLastError(54321);
    Say(1, "lost\n");
    EXPECT_EQ(::GetLastError(), 54321u);
    EXPECT_EQ(errno, 12345);
}

TEST_F(LogFirstUse, ModuleStaysLoadedOnceTheWriterRuns) {
    LogToSandbox();
    Start();
    Say(6, "line\n");
    for (int time = 0; time < 5; ++time) ::FreeLibrary(Plugin());
    EXPECT_EQ(::GetModuleHandleW(L"ZdvfsProtocol.dll"), Plugin());
    Say(6, "another\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), (Texts{"line", "another"}));
}

}  // namespace
}  // namespace zd::test
