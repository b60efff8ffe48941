#include "benchmark/harness/Measure.h"

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

namespace zd::bench {
namespace {

constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr std::int64_t kSectionPairs = 20'000;
constexpr int kTries = 3;
constexpr std::size_t kFewestRounds = 7;
constexpr std::int64_t kLongestRow = 4 * kNanosecondsPerSecond;

using CJson = nlohmann::ordered_json;

void Print(const CJson& line) {
    std::printf("%s\n", line.dump().c_str());
    std::fflush(stdout);
}

// To hundredths, which is finer than the clock.
double Rounded(double value) {
    return std::round(value * 100) / 100;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 != 0 ? values[half] : (values[half - 1] + values[half]) / 2;
}

bool IsPair(const CContestant& contestant) {
    return contestant.name == kSectionPair;
}

// One turn; nanoseconds an operation.
double Turn(const CContestant& contestant, std::int64_t count, const std::function<void()>& before) {
    if (before && !IsPair(contestant)) before();
    const std::int64_t start = Now();
    contestant.work(count);
    return static_cast<double>(Now() - start) / static_cast<double>(count);
}

// The operations that the slowest contestant does in that time.
std::int64_t FindCount(const std::vector<CContestant>& contestants, const CRowOptions& options,
                       std::int64_t nanoseconds) {
    double slowest = 0;
    for (const CContestant& contestant : contestants) {
        if (contestant.count != 0) continue;
        double cost = 0;
        // The first operations are slower than the rest, so a number counts that takes a part of the whole time; and
        // the best of some turns, because another program may have had the processor.
        for (std::int64_t count = 1;; count *= 4) {
            cost = Turn(contestant, count, options.before);
            for (int again = 1; again < kTries; ++again) {
                cost = std::min(cost, Turn(contestant, count, options.before));
            }
            if (cost * static_cast<double>(count) * 3 >= static_cast<double>(nanoseconds)) break;
        }
        slowest = std::max(slowest, cost);
    }
    return std::max<std::int64_t>(1, static_cast<std::int64_t>(static_cast<double>(nanoseconds) / slowest));
}

struct CSection {
    CSection() { ::InitializeCriticalSection(&section); }
    ~CSection() { ::DeleteCriticalSection(&section); }
    CSection(const CSection&) = delete;
    CSection& operator=(const CSection&) = delete;
    CRITICAL_SECTION section{};
};

}  // namespace

std::int64_t Now() {
    static const std::int64_t frequency = [] {
        LARGE_INTEGER perSecond;
        ::QueryPerformanceFrequency(&perSecond);
        return perSecond.QuadPart;
    }();
    LARGE_INTEGER now;
    ::QueryPerformanceCounter(&now);
    const std::int64_t seconds = now.QuadPart / frequency;
    const std::int64_t rest = now.QuadPart % frequency;
    return seconds * kNanosecondsPerSecond + rest * kNanosecondsPerSecond / frequency;
}

std::string Grouped(std::int64_t number) {
    std::string text = std::to_string(number);
    for (std::size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, ",");
    return text;
}

CContestant SectionPair() {
    const auto section = std::make_shared<CSection>();
    return {kSectionPair,
            [section](std::int64_t count) {
                for (std::int64_t i = 0; i < count; ++i) {
                    ::EnterCriticalSection(&section->section);
                    ::LeaveCriticalSection(&section->section);
                }
            },
            kSectionPairs};
}

CReport::CReport(CReportOptions options) : m_options(std::move(options)) {}

void CReport::BeginGroup(const std::string& name) {
    m_group = name;
}

bool CReport::IsWanted(const std::string& row, const std::string& contestant) const {
    return row.find(m_options.row) != std::string::npos &&
           (m_options.contestant.empty() || m_options.contestant == contestant);
}

void CReport::Compare(const std::string& row, std::vector<CContestant> contestants, CRowOptions options) {
    if (std::none_of(contestants.begin(), contestants.end(), IsPair)) contestants.push_back(SectionPair());
    std::erase_if(contestants, [&](const CContestant& contestant) { return !IsWanted(row, contestant.name); });
    if (contestants.empty()) return;
    const int rounds = options.rounds != 0 ? options.rounds : m_options.rounds;
    const int milliseconds = options.milliseconds != 0 && !IsQuick() ? options.milliseconds : m_options.milliseconds;
    const std::int64_t count =
        options.count != 0 ? options.count : FindCount(contestants, options, milliseconds * kNanosecondsPerMillisecond);
    std::vector<std::vector<double>> times(contestants.size());
    const std::int64_t start = Now();
    const auto isEnough = [&](std::size_t done) {
        if (done >= static_cast<std::size_t>(rounds)) return true;
        return options.rounds == 0 && done >= kFewestRounds && Now() - start > kLongestRow;
    };
    for (std::size_t round = 0; !isEnough(round); ++round) {
        for (std::size_t i = 0; i < contestants.size(); ++i) {
            const std::size_t turn = (round + i) % contestants.size();
            const CContestant& contestant = contestants[turn];
            times[turn].push_back(
                Rounded(Turn(contestant, contestant.count != 0 ? contestant.count : count, options.before)));
        }
    }
    CJson measured = CJson::object();
    std::fprintf(stderr, "%s, %s: %s:", m_options.engine.c_str(), m_group.c_str(), row.c_str());
    for (std::size_t i = 0; i < contestants.size(); ++i) {
        measured[contestants[i].name] = times[i];
        std::fprintf(stderr, " %s %.0f ns", contestants[i].name.c_str(), Median(times[i]));
    }
    std::fputc('\n', stderr);
    Print({{"group", m_group},
           {"row", row},
           {"engine", m_options.engine},
           {"count", count},
           {"bytes", options.bytes},
           {"contestants", measured}});
}

void CReport::Figure(const std::string& row, const std::string& name, double value, const std::string& unit) {
    if (!IsWanted(row, name)) return;
    std::fprintf(stderr, "%s, %s: %s: %s %.2f %s\n", m_options.engine.c_str(), m_group.c_str(), row.c_str(),
                 name.c_str(), value, unit.c_str());
    Print({{"group", m_group},
           {"row", row},
           {"engine", m_options.engine},
           {"name", name},
           {"value", value},
           {"unit", unit}});
}

}  // namespace zd::bench
