// Storage times (seconds since 1970) and FILETIME values (100 ns since 1601).
#pragma once

#include <cstdint>

namespace zd {

constexpr std::int64_t kSecondsTo1970 = 11644473600;
constexpr std::int64_t kUnitsPerSecond = 10000000;

// 0 stays 0. Computed in 64 bits; nothing is rounded.
constexpr std::uint64_t FileTimeOf(std::int64_t seconds) noexcept {
    if (seconds == 0) return 0;
    return (static_cast<std::uint64_t>(seconds) + static_cast<std::uint64_t>(kSecondsTo1970)) *
           static_cast<std::uint64_t>(kUnitsPerSecond);
}

// The reverse: 0 stays 0; divided toward zero.
constexpr std::int64_t SecondsOf(std::int64_t fileTime) noexcept {
    return fileTime == 0 ? 0 : fileTime / kUnitsPerSecond - kSecondsTo1970;
}

}  // namespace zd
