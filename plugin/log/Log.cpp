#include "log/Log.h"

#include <stdarg.h>

#include <atomic>
#include <ctime>
#include <string>
#include <utility>

#include "base/Times.h"
#include "log/LogInitialise.h"
#include "log/LogState.h"
#include "log/LogWriter.h"
#include "log/Suppressor.h"

namespace zd {
namespace {

CLogger* CurrentLogger() noexcept {
    return LogState().m_logger.load(std::memory_order_acquire);
}

LogRecord MakeRecord(const CLogger& logger, std::int32_t level, std::string&& text) noexcept {
    const DWORD threadId = ::GetCurrentThreadId();
    LogRecord record{static_cast<std::uint32_t>(level), std::move(text), SecondsNow(), threadId, logger.currentProcess};
    const auto attributed = logger.threadAttribution.find(threadId);
    if (attributed != logger.threadAttribution.end()) {
        record.threadId = attributed->second.reportedThreadId;
        if (attributed->second.process != nullptr) record.process = attributed->second.process;
    }
    return record;
}

// Brings the log up before the record takes its process entry. Every line that passed the level comes through here.
void Submit(CLogger& logger, std::int32_t level, std::string&& text) {
    if (!EnsureInitialised(logger)) return;
    LogRecord record = MakeRecord(logger, level, std::move(text));
    if (IsSuppressing(logger)) {
        const CAutoCriticalSection held(logger.lock);
        AddLine(logger, std::move(record), held);
    } else {
        Enqueue(logger, std::move(record));
    }
}

std::string FormatLine(const char* format, va_list arguments) {
    std::string text;
    AppendFormatV(text, format, arguments);
    return text;
}

}  // namespace

void AdoptLogger(CLogger* logger) noexcept {
    CLogger* none = nullptr;
    if (logger != nullptr) LogState().m_logger.compare_exchange_strong(none, logger, std::memory_order_acq_rel);
}

void WriteLine(std::int32_t level, const char* format, ...) noexcept {
    CLogger* const logger = CurrentLogger();
    if (logger == nullptr || format == nullptr) return;
    const CKeptErrors kept;
    va_list arguments;
    va_start(arguments, format);
    try {
        Submit(*logger, level, FormatLine(format, arguments));
    } catch (...) {
        // The line is lost; the operation that wrote it goes on.
    }
    va_end(arguments);
}

void WriteText(std::int32_t level, const char* text) noexcept {
    CLogger* const logger = CurrentLogger();
    if (logger == nullptr || text == nullptr) return;
    const CKeptErrors kept;
    try {
        Submit(*logger, level, std::string(text));
    } catch (...) {
        // As in WriteLine.
    }
}

std::int32_t GetLogLevel() noexcept {
    CLogger* const logger = CurrentLogger();
    return logger != nullptr ? EffectiveLevel(*logger) : 1;
}

std::int32_t SetLogLevel(std::int32_t level) noexcept {
    CLogger* const logger = CurrentLogger();
    if (logger == nullptr) return 1;
    const CKeptErrors kept;
    try {
        RefreshSuppression(*logger);
    } catch (...) {
        // A summary that cannot be written does not keep the level from changing.
    }
    std::atomic_ref<std::int32_t>(logger->level).store(level < 1 ? 1 : level, std::memory_order_relaxed);
    return EffectiveLevel(*logger);
}

void DrainLog(DWORD milliseconds) noexcept {
    CLogger* const logger = CurrentLogger();
    if (logger == nullptr || !std::atomic_ref<bool>(logger->initialised).load(std::memory_order_acquire)) return;
    const CKeptErrors kept;
    const ULONGLONG deadline = ::GetTickCount64() + milliseconds;
    while (!IsDrained(*logger) && ::GetTickCount64() < deadline) ::Sleep(1);
}

}  // namespace zd
