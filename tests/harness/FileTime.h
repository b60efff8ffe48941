// The system's time as tests set it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <ctime>

namespace zd::test {

// The FILETIME of a number of seconds since 1970.
inline FILETIME FileTimeOfSeconds(std::time_t seconds) {
    const auto units = static_cast<std::uint64_t>(seconds + 11'644'473'600) * 10'000'000;
    return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
}

}  // namespace zd::test
