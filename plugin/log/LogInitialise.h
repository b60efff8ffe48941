// What the first line brings up: the lock, the writer thread, the event source, the settings key and the log file.
#pragma once

#include <cstdint>

#include "Logger.h"

namespace zd {

// Initialises `logger` unless that has been done, by the host or an earlier line. Any thread; first users wait for
// each other. True once lines may be queued; false where no writer thread could be had, which the next line tries
// again. Throws std::bad_alloc, and the DWORD 13 when the runtime cannot tell the local time; the next line tries again
// then.
bool EnsureInitialised(CLogger& logger);

// Begins a new log file, with the count of its bytes at 0. For the writer thread, which has closed the old one.
// False when the runtime cannot tell the local time; there is no file then.
bool BeginLogFile(CLogger& logger) noexcept;

// The level in force. A level below 1 counts as 1 and becomes 1.
std::int32_t EffectiveLevel(CLogger& logger) noexcept;

}  // namespace zd
