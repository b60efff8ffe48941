// The control requests that a pool has been sent: the last value of each, how often, when, and on which object.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace zd::engine {

class CRequestLog {
public:
    CRequestLog() = default;

    // Reads what Format wrote; a line that does not parse is left out.
    explicit CRequestLog(std::string_view text);

    // Notes one request. `value` is "-" where the request carries none that the engine knows.
    void Note(int request, std::string_view value, std::string_view path, std::int64_t time);

    // The text of the file: "request value count time path" lines.
    std::string Format() const;

    // The text of the query: "request value count path" lines.
    std::string FormatForQuery() const;

private:
    struct Entry {
        std::string value;
        std::uint64_t count = 0;
        std::int64_t time = 0;
        std::string path;
    };

    std::map<std::int64_t, Entry> m_entries;
};

}  // namespace zd::engine
