// What `zdhost log` writes: entries as lines or as JSON, those that were asked for.
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "log/LogParser.h"

namespace zd::host {

struct LogOutputOptions {
    std::optional<std::int32_t> level;  // leaves out entries above it
    bool knownOnly = false;             // leaves out entries whose level is not known
    bool json = false;
    std::optional<std::size_t> last;  // only so many of the entries that are there at the beginning
};

class CLogOutput {
public:
    explicit CLogOutput(LogOutputOptions options) : m_options(options), m_keeps(options.last.has_value()) {}

    // Writes an entry, or keeps it as one that may be among the last. Throws CFatalFailure where nothing can be
    // written.
    void Take(const LogEntry& entry);

    // Writes what has been kept; from here on each entry is written as it comes.
    void EndPast();

private:
    LogOutputOptions m_options;
    bool m_keeps;
    std::deque<std::string> m_kept;
};

}  // namespace zd::host
