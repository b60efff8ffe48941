// The log call. Logging never fails an operation, and never changes `errno` or the thread's last Windows error:
// whatever goes wrong in here stays here.
//
// A line is formatted only when its level passes. Arguments that cost something to make (names for the log) are
// therefore made inside LogMade:
//
//     LogMade(kLogTrace, [&] { return FormatText("locality: %s\n", NameForLog(locality.view()).c_str()); });
//
// Any thread may log.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "base/Format.h"
#include "base/KeptErrors.h"
#include "log/LogInitialise.h"
#include "log/LogState.h"
#include "Logger.h"

namespace zd {

// Makes `logger` the process's log unless one is set or it is null.
void AdoptLogger(CLogger* logger) noexcept;

// Whether a line of that level would be written. In each operation several times, so it is but two loads.
inline bool IsLogged(std::int32_t level) noexcept {
    CLogger* const logger = LogState().m_logger.load(std::memory_order_acquire);
    if (logger == nullptr) return false;
    const std::int32_t stored = std::atomic_ref<std::int32_t>(logger->level).load(std::memory_order_relaxed);
    // A level below 1 has to be put right. The stop record is no line.
    return level <= (stored >= 1 ? stored : EffectiveLevel(*logger)) && level != static_cast<std::int32_t>(kLogStop);
}

// Logs formatted text / finished text, which ends with "\n". Null text is ignored. For levels that pass already.
void WriteLine(std::int32_t level, const char* format, ...) noexcept;  // the arguments are checked in LogLine
void WriteText(std::int32_t level, const char* text) noexcept;

// The same for any level.
#if defined(__GNUC__) && !defined(__clang__)
// The check stands in the caller, so that a line that does not pass costs no call; so do the arguments' checks.
ZD_FORMAT(2, 3)
extern inline __attribute__((gnu_inline, always_inline, artificial)) void LogLine(std::int32_t level,
                                                                                  const char* format, ...) noexcept {
    if (IsLogged(level)) WriteLine(level, format, __builtin_va_arg_pack());
}
#else
template <class... Arguments>
void LogLine(std::int32_t level, const char* format, Arguments... arguments) noexcept {
    if (IsLogged(level)) WriteLine(level, format, arguments...);
}
#endif
inline void LogText(std::int32_t level, const char* text) noexcept {
    if (IsLogged(level)) WriteText(level, text);
}

// Logs the text that `make` answers, when the level passes. Names for the log are made in here, so that a failure to
// make one stays with the log.
template <class Make>
void LogMade(std::int32_t level, Make&& make) noexcept {
    if (!IsLogged(level)) return;
    const CKeptErrors kept;
    try {
        const std::string line = make();
        LogText(level, line.c_str());
    } catch (...) {
        // A line that cannot be made is not worth an operation.
    }
}

// The level in force; 1 while no log is set.
std::int32_t GetLogLevel() noexcept;

// Stores a new level (below 1: 1) and answers the one in force then.
std::int32_t SetLogLevel(std::int32_t level) noexcept;

// Waits until the writer has taken every queued line, at most `milliseconds`; for a process that is about to end.
void DrainLog(DWORD milliseconds) noexcept;

}  // namespace zd
