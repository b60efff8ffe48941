// The log call: kept back by its level, queued, counted as a repetition; and how fast the writer is.
//
// "plugin" is the call that the plug-in's own code makes: its log, linked in. "interface" is the host's way to the log
// of the plug-in as it ships, with finished text. "fprintf" writes the line itself, to a buffered file. Lines are
// queued in bursts that end before the other logger's bounded queue is full; every writer runs meanwhile and has
// caught up before the next burst. "signal" is the one step of a queued line that the plug-in has no choice about:
// setting an event that another thread waits for.
#include <stdarg.h>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "base/Conversion.h"
#include "base/Format.h"
#include "base/UniqueHandle.h"
#include "benchmark/rows/Groups.h"
#include "log/Log.h"
#include "log/LogState.h"
#ifdef ZD_BENCH_SPDLOG
#include "benchmark/rows/SpdLogger.h"
#endif

namespace zd::bench {
namespace {

constexpr char kFormat[] = "ZdvfsOpen(\"%s\", %#x) = %d\n";
constexpr char kPath[] = "pool/folder/document-000001.dat";
constexpr unsigned kFlags = 0x4102;
constexpr int kDescriptor = 77;
constexpr char kFinished[] = "ZdvfsOpen(\"pool/folder/document-000001.dat\", 0x4102) = 77\n";

constexpr char kInterface[] = "interface";
constexpr char kFprintf[] = "fprintf";
constexpr char kSpdlog[] = "spdlog";
constexpr char kSignal[] = "signal";

constexpr std::int64_t kBurst = 2048;
constexpr std::int64_t kWritten = 16384;  // lines of a try of the writer
constexpr int kRounds = 31;               // after each the writers catch up, which takes longer than the round
constexpr std::int64_t kQuickBurst = 256;
constexpr DWORD kPatience = 60000;  // milliseconds

// Lines of these two levels do not go to the event log.
constexpr std::int32_t kOpenLevel = kLogTrace;
constexpr std::int32_t kLineLevel = kLogNotice;

// The plug-in's log, linked into this program, with a logger of its own.
class CLinkedLog {
public:
    CLinkedLog() : m_logger(std::make_unique<CLogger>()) {
        g_logState.Create();
        AdoptLogger(m_logger.get());
    }
    ~CLinkedLog() {
        // As for the plug-in's: a log that does not end keeps what it uses.
        if (!m_logger->Stop(kPatience)) {
            static_cast<void>(m_logger.release());
            return;
        }
        if (m_logger->file != nullptr) std::fclose(m_logger->file);
        g_logState.Destroy();
    }
    CLinkedLog(const CLinkedLog&) = delete;
    CLinkedLog& operator=(const CLinkedLog&) = delete;

    CLogger& Logger() const { return *m_logger; }

private:
    std::unique_ptr<CLogger> m_logger;
};

// The runtime's own, as the plug-in's writer uses it; the standard library brings another one.
ZD_FORMAT(2, 3) void Print(FILE* file, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ::__stdio_common_vfprintf(0, file, format, nullptr, arguments);
    va_end(arguments);
}

void WaitForEmptyQueue(CLogger& logger) {
    if (!logger.lockInitialised) return;
    for (;;) {
        ::EnterCriticalSection(&logger.lock);
        const bool empty = logger.queue.empty();
        ::LeaveCriticalSection(&logger.lock);
        if (empty) return;
        ::Sleep(1);
    }
}

// A thread that does nothing but wait for an event, as a writer does between lines.
class CWaiter {
public:
    CWaiter() : m_event(::CreateEventW(nullptr, /*manual=*/FALSE, FALSE, nullptr)) {
        if (!m_event) throw std::runtime_error("cannot create an event");
        m_thread = std::jthread([event = m_event.Get()](const std::stop_token& stop) {
            while (!stop.stop_requested() && ::WaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0) continue;
        });
    }
    ~CWaiter() {
        m_thread.request_stop();
        Signal();
    }
    CWaiter(const CWaiter&) = delete;
    CWaiter& operator=(const CWaiter&) = delete;

    void Signal() const { ::SetEvent(m_event.Get()); }

private:
    CUniqueSystemHandle m_event;
    std::jthread m_thread;
};

// The loggers of all rows.
struct CLoggers {
    explicit CLoggers(CBench& bench)
        : manager(bench.Manager()),
          shipped(bench.Logger()),
          file(::_wfopen((bench.Folder() + L"plain.log").c_str(), L"wt"))
#ifdef ZD_BENCH_SPDLOG
          ,
          spdlog(WideToUtf8(bench.Folder() + L"other.log"))
#endif
    {
        if (file == nullptr) throw std::runtime_error("cannot open a file to print to");
    }
    ~CLoggers() {
        SetLevel(kLogError);
        std::fclose(file);
    }
    CLoggers(const CLoggers&) = delete;
    CLoggers& operator=(const CLoggers&) = delete;

    void SetLevel(std::int32_t level) {
        linked.Logger().level = level;
        shipped.level = level;
#ifdef ZD_BENCH_SPDLOG
        spdlog.SetOpen(level >= kLineLevel);
#endif
    }

    void Drain() {
        DrainLog(kPatience);
        WaitForEmptyQueue(shipped);
#ifdef ZD_BENCH_SPDLOG
        spdlog.Drain();
#endif
    }

    IProtocolManager& manager;
    CLogger& shipped;
    CLinkedLog linked;
    FILE* file;
#ifdef ZD_BENCH_SPDLOG
    CSpdLogger spdlog;
#endif
};

template <class Call>
CWork Repeated(Call call) {
    return [call](std::int64_t count) {
        for (std::int64_t i = 0; i < count; ++i) call();
    };
}

CContestant ThroughPlugin(std::int32_t level) {
    return {kPlugin, Repeated([level] { LogLine(level, kFormat, kPath, kFlags, kDescriptor); })};
}

CContestant ThroughInterface(CLoggers& loggers, std::int32_t level) {
    return {kInterface,
            Repeated([&loggers, level] { loggers.manager.ZdLogMessage(static_cast<DWORD>(level), kFinished); })};
}

CContestant Printing(CLoggers& loggers) {
    return {kFprintf, Repeated([&loggers] { Print(loggers.file, kFormat, kPath, kFlags, kDescriptor); })};
}

void AddSpdlog([[maybe_unused]] CLoggers& loggers, [[maybe_unused]] std::vector<CContestant>& contestants) {
#ifdef ZD_BENCH_SPDLOG
    contestants.push_back({kSpdlog, Repeated([&loggers] { loggers.spdlog.Log(kPath, kFlags, kDescriptor); })});
#endif
}

void MeasureFiltered(CReport& report, CLoggers& loggers) {
    loggers.SetLevel(kLogError);
    std::vector<CContestant> contestants = {ThroughPlugin(kLineLevel), ThroughInterface(loggers, kLineLevel)};
    AddSpdlog(loggers, contestants);
    report.Compare("filtered by level", contestants);
}

void CompareBursts(CReport& report, CLoggers& loggers, const char* row, const std::vector<CContestant>& contestants) {
    report.Compare(row, contestants,
                   {.count = report.IsQuick() ? kQuickBurst : kBurst,
                    .rounds = report.IsQuick() ? 0 : kRounds,
                    .before = [&loggers] { loggers.Drain(); }});
}

void MeasureQueued(CReport& report, CLoggers& loggers) {
    loggers.SetLevel(kOpenLevel);
    std::vector<CContestant> contestants = {ThroughPlugin(kLineLevel), ThroughInterface(loggers, kLineLevel),
                                            Printing(loggers)};
    AddSpdlog(loggers, contestants);
    const CWaiter waiter;
    contestants.push_back({kSignal, Repeated([&waiter] { waiter.Signal(); })});
    CompareBursts(report, loggers, "queued", contestants);
}

// The same line again and again. Once in a thousand times a summary is queued, and the line anew. The other logger
// folds repetitions in its writer, so a call costs there what a queued line does.
void MeasureSuppressed(CReport& report, CLoggers& loggers) {
    loggers.SetLevel(kLogError);
    loggers.linked.Logger().suppressor.enabled = true;
    std::vector<CContestant> contestants = {ThroughPlugin(kLogError), Printing(loggers)};
#ifdef ZD_BENCH_SPDLOG
    loggers.spdlog.SetOpen(true);
#endif
    AddSpdlog(loggers, contestants);
    CompareBursts(report, loggers, "suppressed", contestants);
    loggers.linked.Logger().suppressor.enabled = false;
}

template <class Call, class Finish>
double LinesPerSecond(std::int64_t lines, Call&& call, Finish&& finish) {
    constexpr double kNanoseconds = 1e9;
    const std::int64_t start = Now();
    for (std::int64_t i = 0; i < lines; ++i) call();
    finish();
    return static_cast<double>(lines) * kNanoseconds / static_cast<double>(Now() - start);
}

// From the first call until the file has the last line. The plug-in's writer puts each line out to the debugger's
// channel too, as it must, which costs more than the file does.
void MeasureWriter(CReport& report, CLoggers& loggers) {
    constexpr std::size_t kTries = 3;
    const std::int64_t lines = report.IsQuick() ? kQuickBurst : kWritten;
    loggers.SetLevel(kOpenLevel);
    const auto tell = [&](const char* name, auto call, auto finish) {
        double best = 0;
        for (std::size_t i = 0; i < kTries; ++i) best = std::max(best, LinesPerSecond(lines, call, finish));
        report.Figure("lines per second of the writer", name, best, "lines/s");
    };
    loggers.Drain();
    tell(
        kPlugin, [] { LogLine(kLineLevel, kFormat, kPath, kFlags, kDescriptor); }, [] { DrainLog(kPatience); });
    tell(
        kFprintf, [&] { Print(loggers.file, kFormat, kPath, kFlags, kDescriptor); },
        [&] { std::fflush(loggers.file); });
#ifdef ZD_BENCH_SPDLOG
    tell(
        kSpdlog, [&] { loggers.spdlog.Log(kPath, kFlags, kDescriptor); }, [&] { loggers.spdlog.Drain(); });
#endif
}

}  // namespace

void RunLog(CReport& report, CBench& bench) {
    CLoggers loggers(bench);
    MeasureFiltered(report, loggers);
    MeasureQueued(report, loggers);
    MeasureSuppressed(report, loggers);
    MeasureWriter(report, loggers);
}

}  // namespace zd::bench
