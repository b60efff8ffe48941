// From the bytes of a log file to its entries.
//
// An entry begins with "2026/11/16 03:29:25 (1234:host.exe, 5678) - " and may hold several lines. Some texts have no
// line end, so that the next entry begins on the same line. Nothing is dropped: what belongs to no entry (the rest of a
// cut line, foreign bytes) is an entry without a beginning.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "log/LogTexts.h"

namespace zd::host {

// What stands in front of an entry's text.
struct LogBeginning {
    std::string time;  // "2026/11/16 03:29:25", local time
    std::uint32_t process = 0;
    std::string processName;
    std::uint32_t thread = 0;
    std::size_t length = 0;  // of all of it in the file
};

struct LogEntry {
    std::optional<LogBeginning> beginning;
    std::string text;  // lines end with "\n" alone, the last one with none; the bytes are those of the file
    std::optional<std::int32_t> level;
    std::optional<LogSummary> summary;
};

// Not thread-safe. Keeps one entry at most, of bounded size: longer ones come in several parts.
class CLogParser {
public:
    using Sink = std::function<void(LogEntry&&)>;

    explicit CLogParser(Sink sink) : m_sink(std::move(sink)) {}

    // Takes the file's next bytes and gives the sink every entry that another one follows.
    void Feed(std::string_view bytes);

    // Gives the sink the entry that has been kept, where it is whole: one whose line has ended.
    void FlushWhole();

    // Gives it half a line too, unless that may be the front of an entry's beginning: cut there, an entry would lose
    // its time, process and level.
    void FlushPart();

    // Gives it what is there, be it half a line.
    void FlushAll();

private:
    void TakeFront();
    void TakeLine(std::string_view line);
    std::size_t EndInside(std::string_view line) const;
    void Begin(std::optional<LogBeginning> beginning);
    void Emit();

    Sink m_sink;
    std::string m_line;  // without its end so far
    bool m_open = false;
    std::optional<LogBeginning> m_beginning;
    std::string m_text;  // with the line ends
};

}  // namespace zd::host
