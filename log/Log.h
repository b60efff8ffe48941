// The log call. Logging never fails an operation, and never changes `errno` or the thread's last Windows error:
// whatever goes wrong in here stays here.
//
// A line is formatted only when its level passes. Arguments that cost something to make (names for the log) are
// therefore made under IsLogged:
//
//     if (IsLogged(kLogTrace)) LogLine(kLogTrace, "ZdvfsStat(\"%s\")\n", NameForLog(path).c_str());
//
// Any thread may log.
#pragma once

#include <windows.h>

#include <cstdint>

#include "Logger.h"
#include "text/Format.h"

namespace zd {

// Makes `logger` the process's log unless one is set or it is null.
void AdoptLogger(CLogger* logger) noexcept;

// Whether a line of that level would be written.
bool IsLogged(std::int32_t level) noexcept;

// Logs formatted text / finished text, which ends with "\n". Null text is ignored.
ZD_FORMAT(2, 3) void LogLine(std::int32_t level, const char* format, ...) noexcept;
void LogText(std::int32_t level, const char* text) noexcept;

// The level in force; 1 while no log is set.
std::int32_t GetLogLevel() noexcept;

// Stores a new level (below 1: 1) and answers the one in force then.
std::int32_t SetLogLevel(std::int32_t level) noexcept;

// Waits until the writer has taken every queued line, at most `milliseconds`; for a process that is about to end.
void DrainLog(DWORD milliseconds) noexcept;

}  // namespace zd
