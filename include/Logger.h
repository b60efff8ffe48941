// The log that host and plug-in share: one object per process, built by the host, handed to GetProtocol.
//
// A default-constructed CLogger is ready for use. The plug-in starts its writer thread with the first line that passes
// the level; the file, the debugger output and the event log are written by that thread. The field order and types are
// a binary contract; each side carries its own copy of the operations.
//
// Ends of life: the object must outlive every use of the plug-in and its writer thread. A host that ends before the
// process does calls Stop, which lets the writer finish the queue.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <deque>
#include <list>
#include <map>
#include <string>
#include <type_traits>

using ProcessNames = std::map<std::uint32_t, std::string>;  // process id -> image base name
using ProcessEntry = ProcessNames::value_type;

// Levels of lines. A line passes when its level is not above the logger's.
constexpr std::int32_t kLogError = 1;
constexpr std::int32_t kLogWarning = 2;
constexpr std::int32_t kLogNotice = 3;
constexpr std::int32_t kLogTrace = 6;
// Not a line: the record that tells the writer thread to end.
constexpr std::uint32_t kLogStop = 666;

// One queued line. `text` is UTF-8 and ends with "\n".
struct LogRecord {
    std::uint32_t level;
    std::string text;
    time_t created;
    std::uint32_t threadId;
    const ProcessEntry* process;  // an entry of CLogger::processNames, which never drops entries
};

// One line that the suppressor remembers. The list owns the record.
struct RecentMessage {
    LogRecord* record;
    time_t firstSeen;
    time_t lastSeen;
    std::int32_t count;
};

// State of the suppression of repeated lines. A host that sets nothing gets the defaults of the settings that replace
// these values.
struct LogSuppressor {
    static constexpr bool kDefaultEnabled = false;
    static constexpr std::int32_t kDefaultMaxMessages = 16;
    static constexpr std::int32_t kDefaultOccurrenceLimit = 1000;
    static constexpr std::int32_t kDefaultTimeLimit = 60;
    static constexpr std::int32_t kDefaultCharsForMatch = 256;

    bool enabled = kDefaultEnabled;
    void (*sink)(void* context, const LogRecord& record) = nullptr;  // where lines that pass go
    void* sinkContext = nullptr;
    std::list<RecentMessage> recent;  // oldest first
    std::uint64_t maxMessages = kDefaultMaxMessages;
    std::int32_t occurrenceLimit = kDefaultOccurrenceLimit;
    double timeLimit = kDefaultTimeLimit;  // seconds
    std::int32_t charsForMatch = kDefaultCharsForMatch;
    time_t lastSummary = 0;
    const ProcessEntry* process = nullptr;
};

// Lets the lines of one thread be reported under another thread and process.
struct ThreadAttribution {
    std::uint32_t reportedThreadId;
    const ProcessEntry* process;
};

class CLogger {
public:
    static constexpr std::int32_t kDefaultLevel = kLogError;
    static constexpr std::uint32_t kDefaultUpdateInterval = 60;

    bool initialised = false;
    bool fileActive = false;
    CRITICAL_SECTION lock{};  // guards queue, wakeEvent, writerThread, processNames; valid once lockInitialised
    FILE* file = nullptr;
    LogSuppressor suppressor;
    bool lockInitialised = false;
    std::int32_t level = kDefaultLevel;  // below 1 counts as 1
    std::uint32_t bytesWritten = 0;
    std::deque<LogRecord> queue;
    DWORD writerThreadId = 0;
    HANDLE wakeEvent = nullptr;
    HANDLE writerThread = nullptr;
    HANDLE eventSource = nullptr;
    ProcessNames processNames;
    std::map<std::uint32_t, ThreadAttribution> threadAttribution;  // the host fills it, before threads log
    const ProcessEntry* currentProcess = nullptr;
    std::uint32_t settingsUpdateInterval = kDefaultUpdateInterval;  // seconds
    time_t settingsLastRead = 0;
    HKEY settingsKey = nullptr;
    bool formerMakerKeys = false;  // the host sets it to use the registry tree of the former maker

    // The level in force.
    std::int32_t GetLevel() const { return level < 1 ? 1 : level; }

    // Stores a level; below 1 is stored as 1. A refresh of the plug-in's settings replaces it by `DebugLevel`.
    std::int32_t SetLevel(std::int32_t newLevel) { return level = newLevel < 1 ? 1 : newLevel; }

    // Queues a line from the host's side. Any thread. False where the line was not queued: it did not pass the level,
    // or no writer runs yet (IProtocolManager::ZdLogMessage starts one and always works).
    bool Log(std::int32_t lineLevel, const char* text) {
        if (lineLevel > GetLevel() || text == nullptr || !initialised) return false;
        const DWORD threadId = ::GetCurrentThreadId();
        const auto attributed = threadAttribution.find(threadId);
        const bool other = attributed != threadAttribution.end();
        return Queue(LogRecord{static_cast<std::uint32_t>(lineLevel), text, ::_time64(nullptr),
                               other ? attributed->second.reportedThreadId : static_cast<std::uint32_t>(threadId),
                               other ? attributed->second.process : currentProcess});
    }

    // Lets the writer finish the queue and end, waiting at most `milliseconds`. Answers true once no writer runs; the
    // object may be destroyed then. Call it when no other thread logs any more.
    bool Stop(DWORD milliseconds = INFINITE) {
        if (!lockInitialised || writerThread == nullptr) return true;
        Queue(LogRecord{kLogStop, std::string(), ::_time64(nullptr), 0, currentProcess});
        return ::WaitForSingleObject(writerThread, milliseconds) == WAIT_OBJECT_0;
    }

private:
    bool Queue(LogRecord record) {
        if (!lockInitialised) return false;
        struct Held {
            CRITICAL_SECTION& section;
            explicit Held(CRITICAL_SECTION& entered) : section(entered) { ::EnterCriticalSection(&section); }
            ~Held() { ::LeaveCriticalSection(&section); }
            Held(const Held&) = delete;
            Held& operator=(const Held&) = delete;
        } const held(lock);
        queue.push_back(std::move(record));
        ::SetEvent(wakeEvent);
        return true;
    }
};

// The contract fixes order and types; where the offsets come out depends on the standard library, which both sides
// share. These are the ones of libstdc++, and a change of them would break hosts that are already built.
#if defined(__GLIBCXX__) && !defined(_GLIBCXX_DEBUG)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(LogRecord, level) == 0 && offsetof(LogRecord, text) == 8 && offsetof(LogRecord, created) == 40);
static_assert(offsetof(LogRecord, threadId) == 48 && offsetof(LogRecord, process) == 56 && sizeof(LogRecord) == 64);
static_assert(offsetof(RecentMessage, record) == 0 && offsetof(RecentMessage, firstSeen) == 8);
static_assert(offsetof(RecentMessage, lastSeen) == 16 && offsetof(RecentMessage, count) == 24);
static_assert(sizeof(RecentMessage) == 32 && sizeof(ThreadAttribution) == 16);
static_assert(offsetof(ThreadAttribution, reportedThreadId) == 0 && offsetof(ThreadAttribution, process) == 8);
static_assert(offsetof(LogSuppressor, enabled) == 0 && offsetof(LogSuppressor, sink) == 8);
static_assert(offsetof(LogSuppressor, sinkContext) == 16 && offsetof(LogSuppressor, recent) == 24);
static_assert(offsetof(LogSuppressor, maxMessages) == 48 && offsetof(LogSuppressor, occurrenceLimit) == 56);
static_assert(offsetof(LogSuppressor, timeLimit) == 64 && offsetof(LogSuppressor, charsForMatch) == 72);
static_assert(offsetof(LogSuppressor, lastSummary) == 80 && offsetof(LogSuppressor, process) == 88);
static_assert(sizeof(LogSuppressor) == 96);
static_assert(offsetof(CLogger, initialised) == 0 && offsetof(CLogger, fileActive) == 1);
static_assert(offsetof(CLogger, lock) == 8 && offsetof(CLogger, file) == 48 && offsetof(CLogger, suppressor) == 56);
static_assert(offsetof(CLogger, lockInitialised) == 152 && offsetof(CLogger, level) == 156);
static_assert(offsetof(CLogger, bytesWritten) == 160 && offsetof(CLogger, queue) == 168);
static_assert(offsetof(CLogger, writerThreadId) == 248 && offsetof(CLogger, wakeEvent) == 256);
static_assert(offsetof(CLogger, writerThread) == 264 && offsetof(CLogger, eventSource) == 272);
static_assert(offsetof(CLogger, processNames) == 280 && offsetof(CLogger, threadAttribution) == 328);
static_assert(offsetof(CLogger, currentProcess) == 376 && offsetof(CLogger, settingsUpdateInterval) == 384);
static_assert(offsetof(CLogger, settingsLastRead) == 392 && offsetof(CLogger, settingsKey) == 400);
static_assert(offsetof(CLogger, formerMakerKeys) == 408 && sizeof(CLogger) == 416);
#pragma GCC diagnostic pop
#endif
