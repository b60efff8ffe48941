#include "text/Text.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <limits>

#include "text/Failure.h"

namespace zd::host {

namespace {

bool IsHighSurrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(std::uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendUtf8(std::string& text, std::uint32_t point) {
    const auto add = [&text](std::uint32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (point < 0x80) {
        add(point);
    } else if (point < 0x800) {
        add(0xC0 | (point >> 6));
        add(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        add(0xE0 | (point >> 12));
        add(0x80 | ((point >> 6) & 0x3F));
        add(0x80 | (point & 0x3F));
    } else {
        add(0xF0 | (point >> 18));
        add(0x80 | ((point >> 12) & 0x3F));
        add(0x80 | ((point >> 6) & 0x3F));
        add(0x80 | (point & 0x3F));
    }
}

struct Lead {
    std::size_t following;
    std::uint32_t bits;
    std::uint32_t least;  // a smaller value would have had a shorter form
};

std::optional<Lead> ReadLead(std::uint32_t byte) {
    if (byte < 0x80) return Lead{0, byte, 0};
    if (byte >= 0xC0 && byte < 0xE0) return Lead{1, byte & 0x1F, 0x80};
    if (byte >= 0xE0 && byte < 0xF0) return Lead{2, byte & 0x0F, 0x800};
    if (byte >= 0xF0 && byte < 0xF8) return Lead{3, byte & 0x07, 0x10000};
    return std::nullopt;
}

int DigitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return 99;
}

int ShiftOfSuffix(char c) {
    switch (c) {
        case 'K':
        case 'k':
            return 10;
        case 'M':
        case 'm':
            return 20;
        case 'G':
        case 'g':
            return 30;
        case 'T':
        case 't':
            return 40;
        default:
            return 0;
    }
}

// The bytes that a control character takes at the front of the text; 0 where there is none. U+0080 to U+009F are
// control characters too, which some terminals obey.
std::size_t ControlBytes(std::string_view text) {
    const auto byte = static_cast<unsigned char>(text[0]);
    if (byte < 0x20 || byte == 0x7F) return 1;
    const bool isBeyond = byte == 0xC2 && text.size() > 1 && static_cast<unsigned char>(text[1]) - 0x80U < 0x20U;
    return isBeyond ? 2 : 0;
}

}  // namespace

std::string ToUtf8(std::wstring_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t point = static_cast<std::uint32_t>(text[i]);
        if (IsHighSurrogate(point) && i + 1 < text.size()) {
            const std::uint32_t next = static_cast<std::uint32_t>(text[i + 1]);
            if (IsLowSurrogate(next)) {
                point = 0x10000 + ((point - 0xD800) << 10) + (next - 0xDC00);
                ++i;
            }
        }
        AppendUtf8(result, point);
    }
    return result;
}

std::optional<std::wstring> TryToWide(std::string_view text) {
    std::wstring result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = ReadLead(static_cast<unsigned char>(text[i]));
        if (!lead || text.size() - i <= lead->following) return std::nullopt;
        std::uint32_t point = lead->bits;
        for (std::size_t k = 1; k <= lead->following; ++k) {
            const std::uint32_t byte = static_cast<unsigned char>(text[i + k]);
            if ((byte & 0xC0) != 0x80) return std::nullopt;
            point = (point << 6) | (byte & 0x3F);
        }
        if (point < lead->least || point > 0x10FFFF) return std::nullopt;
        if (point < 0x10000) {
            result.push_back(static_cast<wchar_t>(point));
        } else {
            result.push_back(static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10)));
            result.push_back(static_cast<wchar_t>(0xDC00 + ((point - 0x10000) & 0x3FF)));
        }
        i += lead->following + 1;
    }
    return result;
}

std::wstring ToWide(std::string_view text) {
    auto wide = TryToWide(text);
    if (!wide) throw CUsageError("text that is not UTF-8");
    if (wide->find(L'\0') != std::wstring::npos) throw CUsageError("text that holds a zero character");
    return std::move(*wide);
}

std::string ReplaceControls(std::string_view text, std::string_view before, std::string_view after) {
    std::string replaced;
    while (!text.empty()) {
        const std::size_t bytes = ControlBytes(text);
        if (bytes == 0) {
            replaced.push_back(text[0]);
        } else {
            char code[8];
            // The second of two bytes holds the code's low bits, and they are the code.
            std::snprintf(code, sizeof(code), "%04x", static_cast<unsigned char>(text[bytes - 1]));
            replaced.append(before).append(code).append(after);
        }
        text.remove_prefix(bytes == 0 ? 1 : bytes);
    }
    return replaced;
}

std::string Printable(std::string_view text) {
    return ReplaceControls(text, "<", ">");
}

std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t most) {
    std::uint64_t base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty()) return std::nullopt;
    std::uint64_t value = 0;
    for (const char c : text) {
        const std::uint64_t digit = static_cast<std::uint64_t>(DigitOf(c));
        if (digit >= base || value > (std::numeric_limits<std::uint64_t>::max() - digit) / base) return std::nullopt;
        value = value * base + digit;
    }
    if (value > most) return std::nullopt;
    return value;
}

std::optional<std::int64_t> ParseSize(std::string_view text) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
    const int shift = text.empty() ? 0 : ShiftOfSuffix(text.back());
    if (shift != 0) text.remove_suffix(1);
    const auto number = ParseNumber(text, kMost >> shift);
    if (!number) return std::nullopt;
    return static_cast<std::int64_t>(*number << shift);
}

std::string FormatBytes(double bytes) {
    static constexpr std::array kUnits = {"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < kUnits.size()) {
        bytes /= 1024;
        ++unit;
    }
    char text[64];
    std::snprintf(text, sizeof(text), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
    return text;
}

std::string FormatSeconds(double seconds) {
    const long long whole = std::llround(seconds);
    char text[64];
    if (whole >= 3600) {
        std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
    } else {
        std::snprintf(text, sizeof(text), "%lld:%02lld", whole / 60, whole % 60);
    }
    return text;
}

}  // namespace zd::host
