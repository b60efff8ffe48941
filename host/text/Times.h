// Times as the user reads and writes them: UTC, "2026-11-21T05:44:42Z".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zd::host {

// A FILETIME value as text, with a fraction where it has one; "-" for 0, no time.
std::string FormatTime(std::uint64_t fileTime);

// "now", "@SECONDS" since 1970, or "YYYY-MM-DD" with "T" or a blank and "HH:MM" or "HH:MM:SS" and "Z" behind it, all of
// these optional; always UTC. Answers a FILETIME value; nothing for anything else and for times before 1601.
std::optional<std::int64_t> ParseTime(std::string_view text);

// The system's time as a FILETIME value.
std::int64_t TimeNow();

}  // namespace zd::host
