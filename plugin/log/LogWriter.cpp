#include "log/LogWriter.h"

#include <stdarg.h>
#include <stdio.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <ctime>
#include <utility>

#include "base/Format.h"
#include "log/LogInitialise.h"

namespace zd {
namespace {

constexpr std::uint32_t kLargestFile = 100u * 1024 * 1024;  // bytes; a line may take the file past it
constexpr std::size_t kDebuggerSize = 1024;
constexpr std::size_t kTimeSize = 64;
constexpr DWORD kErrorEvent = 0xCC00C350;
constexpr DWORD kWarningEvent = 0x8C00C351;

// The writer that this module runs, guarded by its logger's lock. The logger itself has no field for it.
struct CWriterState {
    const CLogger* logger = nullptr;
    bool busy = false;   // between taking the first record of a batch and flushing the file after it
    bool ended = false;  // it takes no more records
};
CWriterState g_writer;

// A host may have brought a writer of its own; that one is asked through its thread handle.
bool HasEnded(const CLogger& logger, const CAutoCriticalSection& /*held*/) noexcept {
    if (g_writer.logger == &logger) return g_writer.ended;
    return logger.writerThread == nullptr || ::WaitForSingleObject(logger.writerThread, 0) == WAIT_OBJECT_0;
}

ZD_FORMAT(2, 3) int PrintToFile(FILE* file, const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    const int written = ::__stdio_common_vfprintf(0, file, format, nullptr, arguments);
    va_end(arguments);
    return written;
}

FILE* CurrentFile(CLogger& logger) noexcept {
    return std::atomic_ref<FILE*>(logger.file).load(std::memory_order_relaxed);
}

void ReportToEventLog(const CLogger& logger, const LogRecord& record) noexcept {
    const bool error = record.level == static_cast<std::uint32_t>(kLogError);
    if (!error && record.level != static_cast<std::uint32_t>(kLogWarning)) return;
    if (logger.eventSource == nullptr) return;
    const char* text = record.text.c_str();
    const WORD type = error ? EVENTLOG_ERROR_TYPE : EVENTLOG_WARNING_TYPE;
    ::ReportEventA(logger.eventSource, type, 0, error ? kErrorEvent : kWarningEvent, nullptr, 1, 0, &text, nullptr);
}

bool ChangeFileWhenFull(CLogger& logger) noexcept {
    const std::atomic_ref<std::uint32_t> bytesWritten(logger.bytesWritten);
    if (bytesWritten.load(std::memory_order_relaxed) < kLargestFile) return true;
    FILE* const full = std::atomic_ref<FILE*>(logger.file).exchange(nullptr, std::memory_order_relaxed);
    if (full != nullptr) ::fclose(full);
    return BeginLogFile(logger);
}

// The file line's first column, with the blank behind it. Lines come in bursts, so it is kept for the second.
class CTimeColumn {
public:
    // Null where the runtime cannot tell the local time.
    const char* Of(time_t time) noexcept {
        if (m_text[0] != '\0' && time == m_time) return m_text;
        m_text[0] = '\0';
        tm local{};
        if (::_localtime64_s(&local, &time) != 0) return nullptr;
        if (FormatBuffer(m_text, sizeof m_text, "%04d/%02d/%02d %02d:%02d:%02d ", local.tm_year + 1900,
                         local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec) < 0) {
            m_text[0] = '\0';
            return nullptr;
        }
        m_time = time;
        return m_text;
    }

private:
    time_t m_time = 0;
    char m_text[kTimeSize] = {};
};

void WriteToDebugger(const LogRecord& record) noexcept {
    char text[kDebuggerSize];
    FormatBuffer(text, sizeof text, "***\tZDVFS:\t%s", record.text.c_str());
    ::OutputDebugStringA(text);
}

bool WriteToFile(CLogger& logger, const LogRecord& record, const char* time) noexcept {
    FILE* const file = CurrentFile(logger);
    if (file == nullptr) return true;
    const ProcessEntry* process = record.process != nullptr ? record.process : logger.currentProcess;
    const int written = PrintToFile(file, "%s(%u:%s, %u) - %s", time, process->first, process->second.c_str(),
                                    record.threadId, record.text.c_str());
    if (written < 0) return false;
    const std::atomic_ref<std::uint32_t> bytesWritten(logger.bytesWritten);
    bytesWritten.fetch_add(static_cast<std::uint32_t>(written), std::memory_order_relaxed);
    return true;
}

// Puts a record out. A failure skips the outputs that are left and shows in the thread's last error, which is clear
// before each step that can fail. It is no exception, because unwinding changes the last error.
bool WriteRecord(CLogger& logger, const LogRecord& record, CTimeColumn& times) noexcept {
    ReportToEventLog(logger, record);
    ::SetLastError(ERROR_SUCCESS);
    if (!ChangeFileWhenFull(logger)) return false;
    const char* const time = times.Of(record.created);
    if (time == nullptr) return false;
    WriteToDebugger(record);
    ::SetLastError(ERROR_SUCCESS);
    return WriteToFile(logger, record, time);
}

// The front's text is moved out, which cannot fail; the front itself stays in place until its output is done.
bool TakeFront(CLogger& logger, LogRecord& record, const CAutoCriticalSection& /*held*/) noexcept {
    if (logger.queue.empty()) return false;
    record = std::move(logger.queue.front());
    return true;
}

void Flush(CLogger& logger) noexcept {
    FILE* const file = CurrentFile(logger);
    if (file != nullptr) ::fflush(file);
    const CAutoCriticalSection lock(logger.lock);
    g_writer.busy = false;
}

// One writer's run.
class CWriter {
public:
    explicit CWriter(CLogger& logger) noexcept : m_logger(logger) {}

    DWORD Run() noexcept {
        for (;;) {
            const DWORD waited = ::WaitForSingleObject(m_logger.wakeEvent, INFINITE);
            if (waited != WAIT_OBJECT_0) {
                const CAutoCriticalSection lock(m_logger.lock);
                g_writer.ended = true;
                return waited;
            }
            if (!TakeFirst()) continue;  // woken for a record that the last batch has taken along
            const bool goOn = Drain();
            Flush(m_logger);
            if (!goOn) return m_failure;
        }
    }

private:
    // Writes the record taken and all behind it, until the queue is empty. False when the writer has to end.
    bool Drain() noexcept {
        do {
            if (m_record.level == kLogStop) {
                Stop();
                return false;
            }
            // An error of the system is likely to stay, so the writer ends with it.
            if (!WriteRecord(m_logger, m_record, m_times) && m_failure == ERROR_SUCCESS) m_failure = ::GetLastError();
        } while (TakeNext());
        return m_failure == ERROR_SUCCESS;
    }

    bool TakeFirst() noexcept {
        const CAutoCriticalSection lock(m_logger.lock);
        g_writer.busy = TakeFront(m_logger, m_record, lock);
        return g_writer.busy;
    }

    // The decision to end falls together with the queue's becoming empty, so that no record is queued for nobody.
    bool TakeNext() noexcept {
        const CAutoCriticalSection lock(m_logger.lock);
        m_logger.queue.pop_front();
        const bool more = TakeFront(m_logger, m_record, lock);
        if (!more && m_failure != ERROR_SUCCESS) g_writer.ended = true;
        return more;
    }

    void Stop() noexcept {
        const CAutoCriticalSection lock(m_logger.lock);
        m_logger.queue.pop_front();
        g_writer.ended = true;
    }

    CLogger& m_logger;
    LogRecord m_record{};
    CTimeColumn m_times;
    DWORD m_failure = ERROR_SUCCESS;
};

DWORD WINAPI WriterMain(void* logger) noexcept {
    return CWriter(*static_cast<CLogger*>(logger)).Run();
}

// Unloading the module must not pull the code from under the thread.
bool PinModule() noexcept {
    HMODULE module = nullptr;
    constexpr DWORD kFlags = GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS;
    return ::GetModuleHandleExW(kFlags, reinterpret_cast<const wchar_t*>(&WriterMain), &module) != FALSE;
}

}  // namespace

bool StartWriter(CLogger& logger, const CAutoCriticalSection& /*held*/) noexcept {
    if (logger.writerThread != nullptr) return true;
    if (logger.wakeEvent == nullptr) logger.wakeEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (logger.wakeEvent == nullptr || !PinModule()) return false;
    g_writer = CWriterState{&logger};
    logger.writerThread = ::CreateThread(nullptr, 0, &WriterMain, &logger, 0, &logger.writerThreadId);
    if (logger.writerThread == nullptr) g_writer = CWriterState{};
    return logger.writerThread != nullptr;
}

void Enqueue(CLogger& logger, LogRecord&& record) {
    const CAutoCriticalSection lock(logger.lock);
    if (HasEnded(logger, lock)) return;
    logger.queue.push_back(std::move(record));
    // For each line: hosts follow the lines by this call.
    ::SetEvent(logger.wakeEvent);
}

void EnqueueCopy(void* context, const LogRecord& record) {
    Enqueue(*static_cast<CLogger*>(context), LogRecord(record));
}

bool IsDrained(CLogger& logger) noexcept {
    const CAutoCriticalSection lock(logger.lock);
    const bool busy = g_writer.logger == &logger && g_writer.busy;
    return !busy && (logger.queue.empty() || HasEnded(logger, lock));
}

}  // namespace zd
