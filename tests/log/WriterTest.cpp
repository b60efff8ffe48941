// What the writer thread puts out, in which order, and what it does when an output fails.
#include <gtest/gtest.h>
#include <stdarg.h>

#include <atomic>
#include <initializer_list>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "harness/Gate.h"
#include "LogFixture.h"

namespace zd::test {
namespace {

constexpr time_t kThen = 1794799765;
using PrintFunction = int(unsigned __int64, FILE*, const char*, _locale_t, va_list);

class LogWriter : public CLogTest {
protected:
    // Asks `prints` before each line is printed to the file; where it answers false the print fails.
    template <class Body>
    void OnPrint(Body prints) {
        Replace<PrintFunction>("__stdio_common_vfprintf",
                               [prints](auto original, unsigned __int64 options, FILE* file, const char* format,
                                        _locale_t locale, va_list arguments) mutable {
                                   return prints() ? original(options, file, format, locale, arguments) : -1;
                               });
    }

    // One batch of lines, the first of which fail to be printed with these codes. The writer has to end with the first.
    void EndWriterWith(std::initializer_list<DWORD> failures, std::initializer_list<const char*> lines) {
        const auto queued = std::make_shared<CGate>();
        OnPrint([queued, codes = std::vector<DWORD>(failures), calls = std::size_t{0}]() mutable {
            queued->Wait();
            const std::size_t call = calls++;
            if (call < codes.size()) ::SetLastError(codes[call]);
            return call >= codes.size();
        });
        Start();
        for (const char* const line : lines) Say(1, line);
        queued->Set();
        ASSERT_EQ(::WaitForSingleObject(Logger().writerThread, 20000), WAIT_OBJECT_0);
        DWORD code = 0;
        ::GetExitCodeThread(Logger().writerThread, &code);
        EXPECT_EQ(code, *failures.begin());
    }
};

TEST_F(LogWriter, FileLineHasTimeProcessThreadAndText) {
    LogToSandbox();
    SetClock([] { return kThen; });
    LogThese(6, {"ZdCloseFile Exit\n"});
    EXPECT_EQ(LogBytes(), TimeText(kThen) + "(" + std::to_string(::GetCurrentProcessId()) + ":" + OwnImageName() +
                              ", " + std::to_string(::GetCurrentThreadId()) + ") - ZdCloseFile Exit\r\n");
}

TEST_F(LogWriter, TextWithoutALineEndIsWrittenAsItStands) {
    LogToSandbox();
    LogThese(6, {"no end", ""});
    const std::string bytes = LogBytes();
    EXPECT_EQ(bytes.find('\n'), std::string::npos);
    EXPECT_NE(bytes.find(") - no end20"), std::string::npos) << bytes;
    EXPECT_EQ(bytes.substr(bytes.size() - 4), ") - ");
}

TEST_F(LogWriter, Utf8TextComesOutUnchanged) {
    LogToSandbox();
    LogThese(6, {"d\xC3\xA9j\xC3\xA0 \xE2\x82\xAC \xF0\x9F\x93\x81\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"d\xC3\xA9j\xC3\xA0 \xE2\x82\xAC \xF0\x9F\x93\x81"});
}

TEST_F(LogWriter, LinesShowTheTimeTheyWereLoggedAt) {
    LogToSandbox();
    std::atomic<time_t> now = kThen;
    SetClock([&] { return now.load(); });
    Start();
    Say(6, "first\n");
    now = kThen + 7;
    Say(6, "second\n");
    Finish();
    const std::string bytes = LogBytes();
    EXPECT_EQ(bytes.find(TimeText(kThen)), 0u);
    EXPECT_NE(bytes.find("\n" + TimeText(kThen + 7)), std::string::npos);
}

TEST_F(LogWriter, DebuggerTextIsCutTo1023CharactersAndTheFileHasItWhole) {
    LogToSandbox();
    Start();
    const std::string fits(1012, 'f');
    const std::string cut(1013, 'c');
    const std::string large(300000, 'l');
    Say(6, fits.c_str());
    Say(6, (cut + "\n").c_str());
    Say(6, (large + "\n").c_str());
    Finish();
    const auto debugged = Debugged();
    ASSERT_EQ(debugged.size(), 4u);
    EXPECT_EQ(debugged[1], "***\tZDVFS:\t" + fits);
    EXPECT_EQ(debugged[2], "***\tZDVFS:\t" + cut.substr(0, 1012));
    EXPECT_EQ(debugged[3], "***\tZDVFS:\t" + large.substr(0, 1012));
    const std::string bytes = LogBytes();
    EXPECT_NE(bytes.find(") - " + fits + "20"), std::string::npos);
    EXPECT_NE(bytes.find(") - " + cut + "\r\n"), std::string::npos);
    EXPECT_NE(bytes.find(") - " + large + "\r\n"), std::string::npos);
}

TEST_F(LogWriter, DebuggerIsServedWithoutAFile) {
    LogThese(6, {"line\n"});
    EXPECT_EQ(DebuggedLines(), Texts{"line\n"});
}

TEST_F(LogWriter, ErrorsAndWarningsAreReportedAsEventsOthersAreNot) {
    LogToSandbox();
    Start();
    Say(1, "error\n");
    Say(2, "warning\n");
    Say(3, "notice\n");
    Say(6, "trace\n");
    Finish();
    const auto events = Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(events[0].id, 0xCC00C350u);
    EXPECT_EQ(events[0].strings, Texts{"error\n"});
    EXPECT_EQ(events[1].type, EVENTLOG_WARNING_TYPE);
    EXPECT_EQ(events[1].id, 0x8C00C351u);
    EXPECT_EQ(events[1].strings, Texts{"warning\n"});
    for (const EventReport& event : events) {
        EXPECT_EQ(event.source, Logger().eventSource);
        EXPECT_EQ(event.category, 0);
        EXPECT_FALSE(event.hasSid);
        EXPECT_EQ(event.dataSize, 0u);
    }
    EXPECT_EQ(LoggedTexts(), (Texts{"error", "warning", "notice", "trace"}));
    EXPECT_EQ(DebuggedLines(), (Texts{"error\n", "warning\n", "notice\n", "trace\n"}));
}

TEST_F(LogWriter, FailedRegistrationStillPassesTheInvalidHandleOn) {
    LogToSandbox();
    std::wstring name;
    bool local = false;
    Replace<decltype(::RegisterEventSourceW)>("RegisterEventSourceW",
                                              [&](auto, const wchar_t* server, const wchar_t* source) -> HANDLE {
                                                  local = server == nullptr;
                                                  name = source;
                                                  return nullptr;
                                              });
    LogThese(1, {"error\n"});
    EXPECT_TRUE(local);
    EXPECT_EQ(name, L"ZDVFS");
    EXPECT_EQ(Logger().eventSource, INVALID_HANDLE_VALUE);
    ASSERT_EQ(Events().size(), 1u);
    EXPECT_EQ(Events()[0].source, INVALID_HANDLE_VALUE);
}

TEST_F(LogWriter, FailedEventReportIsIgnored) {
    LogToSandbox();
    Replace<decltype(::ReportEventA)>(
        "ReportEventA", [](auto, HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, const char**, void*) -> BOOL {
            ::SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        });
    LogThese(1, {"first\n", "second\n"});
    EXPECT_EQ(LoggedTexts(), (Texts{"first", "second"}));
}

TEST_F(LogWriter, NothingIsReportedWithoutAnEventSource) {
    LogToSandbox();
    Start();
    Say(6, "brings the log up\n");
    Logger().eventSource = nullptr;
    Say(1, "error\n");
    Finish();
    EXPECT_TRUE(Events().empty());
    EXPECT_EQ(LoggedTexts(), (Texts{"brings the log up", "error"}));
}

TEST_F(LogWriter, LinesOfManyThreadsAreAllThereAndInEachThreadsOrder) {
    constexpr int kThreads = 8;
    constexpr int kLines = 1000;
    LogToSandbox();
    Start();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([this, thread] {
            for (int line = 0; line < kLines; ++line) {
                Say(6, (std::to_string(thread) + " " + std::to_string(line) + "\n").c_str());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    Finish();
    const auto texts = LoggedTexts();
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(kThreads * kLines));
    std::map<int, int> next;
    for (const std::string& text : texts) {
        const std::size_t blank = text.find(' ');
        ASSERT_NE(blank, std::string::npos);
        ASSERT_EQ(std::stoi(text.substr(blank + 1)), next[std::stoi(text.substr(0, blank))]++) << text;
    }
    EXPECT_EQ(DebuggedLines().size(), texts.size());
}

TEST_F(LogWriter, FileIsFlushedOnceTheQueueIsEmptyNotAtEachLine) {
    LogToSandbox();
    std::atomic<int> flushes = 0;
    Replace<decltype(::fflush)>("fflush", [&](auto original, FILE* file) {
        ++flushes;
        return original(file);
    });
    // The writer is held at the first line until all of them are queued.
    CGate gate;
    Replace<decltype(::OutputDebugStringA)>("OutputDebugStringA", [&](auto original, const char* text) {
        if (std::string(text).rfind("***", 0) == 0) gate.Wait();
        original(text);
    });
    Start();
    for (int line = 0; line < 50; ++line) Say(6, "line\n");
    EXPECT_EQ(Logger().queue.size(), 50u) << "a line leaves the queue after its output";
    gate.Set();
    while (flushes == 0) ::Sleep(1);
    EXPECT_EQ(LoggedTexts(), Texts(50, "line"));
    EXPECT_EQ(flushes, 1);
    Finish();
}

TEST_F(LogWriter, OperationsDoNotWaitForTheOutput) {
    LogToSandbox();
    CGate gate;
    OnPrint([&] { return gate.Wait(); });
    Start();
    for (int line = 0; line < 100; ++line) Say(6, "line\n");
    gate.Set();
    Finish();
    EXPECT_EQ(LoggedTexts().size(), 100u);
}

TEST_F(LogWriter, FailedWriteWithoutAWindowsErrorLosesThatLineOnly) {
    LogToSandbox();
    std::atomic<int> calls = 0;
    OnPrint([&] { return ++calls != 2; });
    LogThese(1, {"first\n", "second\n", "third\n"});
    EXPECT_EQ(LoggedTexts(), (Texts{"first", "third"}));
    EXPECT_EQ(DebuggedLines(), (Texts{"first\n", "second\n", "third\n"}));
    EXPECT_EQ(Events().size(), 3u);
}

TEST_F(LogWriter, FailedWriteWithAWindowsErrorEndsTheWriterAfterTheBatch) {
    LogToSandbox();
    EndWriterWith({ERROR_DISK_FULL}, {"lost\n", "of the same batch\n", "its last\n"});
    EXPECT_EQ(LoggedTexts(), (Texts{"of the same batch", "its last"})) << "they are flushed";
    Say(1, "nobody would take it\n");
    EXPECT_TRUE(Logger().queue.empty());
    Finish();
}

TEST_F(LogWriter, FirstWindowsErrorOfABatchIsTheWritersCode) {
    LogToSandbox();
    EndWriterWith({ERROR_DISK_FULL, ERROR_WRITE_PROTECT}, {"lost\n", "lost too\n", "written\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"written"});
    Finish();
}

TEST_F(LogWriter, WindowsErrorLeftByAnEarlierSuccessfulOutputDoesNotEndTheWriter) {
    LogToSandbox();
    Replace<decltype(::OutputDebugStringA)>("OutputDebugStringA", [](auto original, const char* text) {
        original(text);
        ::SetLastError(ERROR_FILE_NOT_FOUND);
    });
    std::atomic<int> calls = 0;
    OnPrint([&] { return ++calls != 1; });
    Start();
    Say(1, "lost\n");
    ASSERT_TRUE(WaitForEmptyQueue());
    Say(1, "written\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), Texts{"written"});
}

TEST_F(LogWriter, LineWhoseTimeCannotBeToldIsOnlyAnEvent) {
    LogToSandbox();
    std::atomic<time_t> now = kThen;
    SetClock([&] { return now.load(); });
    Start();
    Say(1, "first\n");
    now = -5;
    Say(1, "untimely\n");
    now = kThen;
    Say(1, "third\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), (Texts{"first", "third"}));
    EXPECT_EQ(DebuggedLines(), (Texts{"first\n", "third\n"}));
    EXPECT_EQ(Events().size(), 3u);
}

TEST_F(LogWriter, FailedWaitEndsTheWriterAndNothingIsQueuedAfterwards) {
    LogToSandbox();
    Replace<decltype(::WaitForSingleObject)>("WaitForSingleObject",
                                             [this](auto original, HANDLE handle, DWORD milliseconds) {
                                                 if (handle != Logger().wakeEvent)
                                                     return original(handle, milliseconds);
                                                 return WAIT_FAILED;
                                             });
    Start();
    Say(1, "brings the log up\n");
    ASSERT_EQ(::WaitForSingleObject(Logger().writerThread, 20000), WAIT_OBJECT_0);
    DWORD code = 0;
    ::GetExitCodeThread(Logger().writerThread, &code);
    EXPECT_EQ(code, WAIT_FAILED);
    const std::size_t queued = Logger().queue.size();
    Say(1, "nobody would take it\n");
    EXPECT_EQ(Logger().queue.size(), queued);
    Logger().queue.clear();
}

TEST_F(LogWriter, AttributedThreadReportsAnotherThreadAndProcess) {
    LogToSandbox();
    SetClock([] { return kThen; });
    const ProcessEntry& client = *Logger().processNames.emplace(4321u, "client.exe").first;
    Logger().threadAttribution[::GetCurrentThreadId()] = {77, &client};
    Start();
    Say(6, "for the client\n");
    DWORD otherId = 0;
    std::thread([&] {
        otherId = ::GetCurrentThreadId();
        Say(6, "its own\n");
    }).join();
    Finish();
    const std::string own = std::to_string(::GetCurrentProcessId()) + ":" + OwnImageName();
    EXPECT_EQ(LogBytes(), TimeText(kThen) + "(4321:client.exe, 77) - for the client\r\n" + TimeText(kThen) + "(" + own +
                              ", " + std::to_string(otherId) + ") - its own\r\n");
}

TEST_F(LogWriter, AttributionWithoutAProcessKeepsTheOwnOne) {
    LogToSandbox();
    Logger().threadAttribution[::GetCurrentThreadId()] = {77, nullptr};
    LogThese(6, {"line\n"});
    EXPECT_NE(LogBytes().find("(" + std::to_string(::GetCurrentProcessId()) + ":" + OwnImageName() + ", 77) - line"),
              std::string::npos);
}

}  // namespace
}  // namespace zd::test
