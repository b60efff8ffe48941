// The one place where the system time is read for the task's times.
#pragma once

#include <cstdint>

namespace zd {

// The system time as a FILETIME value.
std::int64_t SystemTimeNow() noexcept;

}  // namespace zd
