// Rows of the benchmark: contestants that do the same work, measured side by side.
//
//     report.Compare("read 4 KiB", {{"direct", readDirectly}, {"plugin", readThroughThePlugin}}, {.bytes = 4096});
//
// A row goes to standard output as one line of JSON, what is being done to standard error.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace zd::bench {

// Does one operation `count` times. Throws std::runtime_error where one fails.
using CWork = std::function<void(std::int64_t count)>;

// The names that rows share. What the plug-in costs is told against the direct calls.
inline constexpr char kDirect[] = "direct";
inline constexpr char kPlugin[] = "plugin";
inline constexpr char kSectionPair[] = "section pair";

struct CContestant {
    std::string name;
    CWork work;
    std::int64_t count = 0;  // operations a round; 0: the row's
};

// Entering and leaving a critical section that nobody else wants. Every row gets it, so that costs can be told as
// multiples of it.
CContestant SectionPair();

struct CRowOptions {
    std::int64_t count = 0;  // operations a round; 0: found out, so that a round of the slowest takes `milliseconds`
    int rounds = 0;          // 0: the program's default
    std::int64_t bytes = 0;  // moved by one operation; 0: none
    std::function<void()> before = nullptr;  // before each contestant's turn, not timed
    int milliseconds = 0;                    // 0: the program's default; not used where `count` is given
};

// Many short turns: where other programs want the processor too, most turns are still whole, and the median of the
// rounds is one of those. A row that takes seconds ends early, after at least 7 rounds.
struct CReportOptions {
    std::string engine;
    bool quick = false;
    int rounds = 101;
    int milliseconds = 2;
    std::string row;         // only rows and figures whose name contains it
    std::string contestant;  // only this one's turns and figures; empty: everybody's
};

// Any one thread.
class CReport {
public:
    explicit CReport(CReportOptions options);

    // Later rows belong to this group.
    void BeginGroup(const std::string& name);

    // Measures a row: in each round every contestant has its turn, in an order that is rotated from round to round.
    // Rows that the options leave out are not measured. Throws what the contestants throw.
    void Compare(const std::string& row, std::vector<CContestant> contestants, CRowOptions options = {});

    // Adds a figure that was measured by other means: memory a handle, lines a second.
    void Figure(const std::string& row, const std::string& name, double value, const std::string& unit);

    // Whether only the way of the rows is tried, with as little work as that takes.
    bool IsQuick() const { return m_options.quick; }

    const std::string& Engine() const { return m_options.engine; }

private:
    bool IsWanted(const std::string& row, const std::string& contestant) const;

    CReportOptions m_options;
    std::string m_group;
};

// With a comma after thousands: "10,000".
std::string Grouped(std::int64_t number);

// Nanoseconds of a clock that only goes forward.
std::int64_t Now();

}  // namespace zd::bench
