#include <windows.h>

#include <algorithm>

#include "Player.h"

namespace zd::test {

namespace {

class CShrinker {
public:
    CShrinker(Script script, const std::function<bool(const Script&)>& fails, int seconds)
        : m_script(std::move(script)),
          m_fails(fails),
          m_end(::GetTickCount64() + static_cast<ULONGLONG>(seconds) * 1000) {}

    Script Run() {
        for (bool smaller = true; smaller && !IsLate();) {
            smaller = RemoveSteps();
            if (ReduceNumbers()) smaller = true;
        }
        return m_script;
    }

private:
    bool IsLate() const { return ::GetTickCount64() > m_end; }

    bool Try(Script candidate) {
        if (!m_fails(candidate)) return false;
        m_script = std::move(candidate);
        return true;
    }

    // Pieces of half the script, then of a quarter, down to single steps; from the end, where most does not matter.
    bool RemoveSteps() {
        bool smaller = false;
        for (std::size_t piece = std::max<std::size_t>(1, m_script.steps.size() / 2);; piece /= 2) {
            for (std::size_t end = m_script.steps.size(); end > 0 && !IsLate();) {
                const std::size_t start = end > piece ? end - piece : 0;
                Script candidate = m_script;
                candidate.steps.erase(candidate.steps.begin() + static_cast<std::ptrdiff_t>(start),
                                      candidate.steps.begin() + static_cast<std::ptrdiff_t>(end));
                if (Try(std::move(candidate))) smaller = true;
                end = std::min(start, m_script.steps.size());
            }
            if (piece <= 1) return smaller;
        }
    }

    bool ReduceNumbers() {
        bool smaller = false;
        for (std::size_t i = 0; i < m_script.steps.size(); ++i) {
            for (std::size_t a = 0; a < m_script.steps[i].args.size(); ++a) smaller = ReduceNumber(i, a) || smaller;
        }
        return smaller;
    }

    bool ReduceNumber(std::size_t index, std::size_t argument) {
        // Handles and names stay: another one is not simpler. So does a fragment's size of 0, which is none.
        const Step& step = m_script.steps[index];
        if (argument == 0 || (step.op == EOp::kPlant && argument == 1)) return false;
        if ((step.op == EOp::kOpen || step.op == EOp::kOpenDir) && argument < 4) return false;
        // A time before 1970 is another matter than one behind it.
        if (step.op == EOp::kBasic && argument > 1) return false;
        if (step.op == EOp::kRename || (step.op == EOp::kAppend && argument == 1)) return false;
        bool smaller = false;
        const std::int64_t now = step.args[argument];
        for (const std::int64_t value : {std::int64_t{0}, now / 2, now - 1}) {
            if (IsLate() || value >= m_script.steps[index].args[argument] || value < 0) continue;
            Script candidate = m_script;
            candidate.steps[index].args[argument] = value;
            if (Try(std::move(candidate))) smaller = true;
        }
        return smaller;
    }

    Script m_script;
    const std::function<bool(const Script&)>& m_fails;
    ULONGLONG m_end;
};

}  // namespace

Script Shrink(Script script, const std::function<bool(const Script&)>& fails, int seconds) {
    return CShrinker(std::move(script), fails, seconds).Run();
}

}  // namespace zd::test
