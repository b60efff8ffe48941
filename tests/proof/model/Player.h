// Plays scripts, shrinks those that fail, and reports them.
#pragma once

#include <functional>
#include <optional>

#include "Generator.h"
#include "harness/Environment.h"

namespace zd::test {

struct Failure {
    std::size_t step = 0;
    std::string what;
};

// The steps from `from` on are carried out on the pool, those before only by the model.
struct Range {
    std::wstring pool;
    std::size_t from = 0;
    std::size_t to = static_cast<std::size_t>(-1);
    bool leavesOpen = false;  // the process is going to end as it is: nothing is disconnected
};

std::optional<Failure> PlayRange(CEnvironment& environment, const Script& script, const Range& range);

// Plays scripts in this process or, where one restarts over the local engine, each part of it in a process of its own.
class CPlayer {
public:
    explicit CPlayer(CEnvironment& environment) : m_environment(environment) {}

    std::optional<Failure> Play(const Script& script);
    // Plays; a failure is shrunk, and the answer is the text to report. Empty where all is well.
    std::string Report(const Script& script, const std::string& title);
    // What a process that plays a part for another has to do.
    void PlayPartForParent();

    std::int64_t StepsPlayed() const { return m_steps; }

private:
    std::optional<Failure> PlayParts(const Script& script);
    std::optional<Failure> PlayPart(const Script& script, const Range& range);

    CEnvironment& m_environment;
    int m_pools = 0;
    std::int64_t m_steps = 0;
};

// Takes steps away and makes numbers smaller as long as the script still fails; gives up after so many seconds.
Script Shrink(Script script, const std::function<bool(const Script&)>& fails, int seconds);

}  // namespace zd::test
