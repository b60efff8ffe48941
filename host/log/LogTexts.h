// The texts that the plug-in logs, by which a line's level is known: the file does not hold it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace zd::host {

struct KnownText {
    std::int32_t level;
    const char* format;  // as printf takes it; most end with "\n", and one may hold several lines
};

// Written by tools/log-texts.
std::span<const KnownText> KnownTexts();

// Whether `text` can have been made with `format`. Numbers and pointers are looked at; %s stands for any text.
bool FitsFormat(std::string_view text, std::string_view format);

// The text of the table that fits best, which is the one with the most characters of its own; null where none fits.
const KnownText* FindKnownText(std::string_view text);

// Whether `text` is a whole text of the table that ends without a line end, so that the next line follows on the same.
bool IsTextWithoutEnd(std::string_view text);

// What the log writes in place of lines that it has folded.
struct LogSummary {
    std::int64_t messages;
    std::int64_t times;
};
std::optional<LogSummary> ReadSummary(std::string_view text);

}  // namespace zd::host
