#include "text/Times.h"

#include <windows.h>

#include <cstdio>

#include "text/Text.h"

namespace zd::host {

namespace {

constexpr std::uint64_t kSecond = 10'000'000;
constexpr std::uint64_t kSecondsTo1970 = 11'644'473'600;
constexpr std::uint64_t kMostSeconds = 0x7FFF'FFFF'FFFF'FFFF / kSecond;

std::int64_t Joined(const FILETIME& time) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
}

// Takes `digits` digits and the character behind them (0: none) off the front of the text.
bool Take(std::string_view& text, std::size_t digits, char behind, WORD& value) {
    const std::string_view part = text.substr(0, digits);
    const auto number = ParseNumber(part, 9999);
    if (!number || part.find_first_not_of("0123456789") != std::string_view::npos ||
        text.size() < digits + (behind != 0 ? 1 : 0))
        return false;
    if (behind != 0 && text[digits] != behind) return false;
    text.remove_prefix(digits + (behind != 0 ? 1 : 0));
    value = static_cast<WORD>(*number);
    return true;
}

bool TakeClock(std::string_view& text, SYSTEMTIME& time) {
    if (text.front() != 'T' && text.front() != ' ') return false;
    text.remove_prefix(1);
    if (!Take(text, 2, ':', time.wHour) || !Take(text, 2, 0, time.wMinute)) return false;
    if (text.empty() || text.front() != ':') return true;
    text.remove_prefix(1);
    return Take(text, 2, 0, time.wSecond);
}

}  // namespace

std::string FormatTime(std::uint64_t fileTime) {
    if (fileTime == 0) return "-";
    const FILETIME time{static_cast<DWORD>(fileTime & 0xFFFFFFFF), static_cast<DWORD>(fileTime >> 32)};
    SYSTEMTIME parts;
    if (::FileTimeToSystemTime(&time, &parts) == FALSE) return "@" + std::to_string(fileTime);
    char text[64];
    std::snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02u", parts.wYear, parts.wMonth, parts.wDay,
                  parts.wHour, parts.wMinute, parts.wSecond);
    std::string result = text;
    if (fileTime % kSecond != 0) {
        std::snprintf(text, sizeof(text), ".%07u", static_cast<unsigned>(fileTime % kSecond));
        result += text;
    }
    return result + "Z";
}

std::optional<std::int64_t> ParseTime(std::string_view text) {
    if (text == "now") return TimeNow();
    if (!text.empty() && text.front() == '@') {
        const auto seconds = ParseNumber(text.substr(1), kMostSeconds - kSecondsTo1970);
        if (!seconds) return std::nullopt;
        return static_cast<std::int64_t>((*seconds + kSecondsTo1970) * kSecond);
    }
    SYSTEMTIME parts{};
    if (!Take(text, 4, '-', parts.wYear) || !Take(text, 2, '-', parts.wMonth) || !Take(text, 2, 0, parts.wDay)) {
        return std::nullopt;
    }
    if (!text.empty() && text != "Z" && !TakeClock(text, parts)) return std::nullopt;
    if (text == "Z") text.remove_prefix(1);
    FILETIME time;
    if (!text.empty() || ::SystemTimeToFileTime(&parts, &time) == FALSE) return std::nullopt;
    return Joined(time);
}

std::int64_t TimeNow() {
    FILETIME time;
    ::GetSystemTimeAsFileTime(&time);
    return Joined(time);
}

}  // namespace zd::host
