// The time that lines carry.
#pragma once

#include <windows.h>

#include <cstdint>
#include <ctime>

namespace zd {

// Seconds since 1970. Straight from the system: some runtimes look at the time zone for this, which takes longer than
// all the rest of a log call.
inline std::time_t SecondsNow() noexcept {
    constexpr std::int64_t kUnitsPerSecond = 10'000'000;
    constexpr std::int64_t kUnitsTo1970 = 11'644'473'600 * kUnitsPerSecond;
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    const auto units =
        static_cast<std::int64_t>(static_cast<std::uint64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime);
    return (units - kUnitsTo1970) / kUnitsPerSecond;
}

}  // namespace zd
