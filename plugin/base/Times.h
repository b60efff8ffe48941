// The time, as seconds since 1970 (the storage, the log) and as units of 100 ns since 1601 (FILETIME).
#pragma once

#include <windows.h>

#include <cstdint>
#include <ctime>

namespace zd {

constexpr std::int64_t kSecondsTo1970 = 11'644'473'600;
constexpr std::int64_t kUnitsPerSecond = 10'000'000;

// The FILETIME value of storage seconds; 0 stays 0. Computed in 64 bits; nothing is rounded.
constexpr std::uint64_t FileTimeOf(std::int64_t seconds) noexcept {
    if (seconds == 0) return 0;
    return (static_cast<std::uint64_t>(seconds) + static_cast<std::uint64_t>(kSecondsTo1970)) *
           static_cast<std::uint64_t>(kUnitsPerSecond);
}

// The reverse: 0 stays 0; divided toward zero.
constexpr std::int64_t SecondsOf(std::int64_t fileTime) noexcept {
    return fileTime == 0 ? 0 : fileTime / kUnitsPerSecond - kSecondsTo1970;
}

// The system time as a FILETIME value.
inline std::int64_t FileTimeNow() noexcept {
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime);
}

// Seconds since 1970. Straight from the system: some runtimes look at the time zone for this, which takes longer than
// all the rest of a log call.
inline std::time_t SecondsNow() noexcept {
    return (FileTimeNow() - kSecondsTo1970 * kUnitsPerSecond) / kUnitsPerSecond;
}

}  // namespace zd
