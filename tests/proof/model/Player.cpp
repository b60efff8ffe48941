#include "Player.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "Checker.h"
#include "harness/Child.h"
#include "harness/Security.h"
#include "harness/TextCompare.h"
#include "Traces.h"

namespace zd::test {

namespace {

constexpr int kSecondsToShrink = 60;
constexpr wchar_t kPartFile[] = L"part.txt";
constexpr wchar_t kResultFile[] = L"result.txt";

// How often everything is compared. Over a disk that is slow.
std::size_t CheckInterval(const Setup& setup) {
    return setup.localEngine != 0 ? 200 : 20;
}

void PlaySteps(CShare& share, CModel& model, CChecker& checker, const Script& script, std::size_t& at,
               std::size_t end) {
    const std::size_t interval = CheckInterval(script.setup);
    for (; at < end; ++at) {
        const Step& step = script.steps[at];
        const Expected expected = model.Apply(step);
        if (expected.skipped) continue;
        checker.CheckStep(step, expected, share.Do(step));
        if (step.op == EOp::kReconnect || step.op == EOp::kRestart) checker.CheckNothingOpen();
        if (step.op == EOp::kCheck || at % interval == 0) {
            checker.CheckAll();
            share.Environment().ForgetLog();
        }
        if (script.setup.localEngine == 0) share.Environment().Double().ClearCalls();
    }
}

// What kind of failure it is, so that shrinking does not end at another one.
std::string KindOf(const Script& script, const Failure& failure) {
    const std::string& what = failure.what;
    return std::to_string(static_cast<int>(script.steps[failure.step].op)) +
           what.substr(0, std::min(what.find(" of "), what.find(':')));
}

}  // namespace

std::optional<Failure> PlayRange(CEnvironment& environment, const Script& script, const Range& range) {
    CModel model(script.setup, CurrentUserSid());
    std::size_t at = 0;
    try {
        for (; at < range.from; ++at) model.Apply(script.steps[at]);
        auto share = std::make_unique<CShare>(environment, script.setup, range.pool);
        CChecker checker(*share, model, script.setup);
        if (range.from > 0) checker.CheckAll();
        PlaySteps(*share, model, checker, script, at, std::min(range.to, script.steps.size()));
        checker.CheckAll();
        if (range.leavesOpen) {
            static_cast<void>(share.release());
            return std::nullopt;
        }
        share->Do(Step{EOp::kReconnect, {0}});
        checker.CheckNothingOpen();
    } catch (const std::exception& problem) {
        return Failure{std::min(at, script.steps.size() - 1), problem.what()};
    }
    return std::nullopt;
}

std::optional<Failure> CPlayer::Play(const Script& script) {
    m_steps += static_cast<std::int64_t>(script.steps.size());
    const bool restarts = std::any_of(script.steps.begin(), script.steps.end(),
                                      [](const Step& step) { return step.op == EOp::kRestart; });
    if (script.steps.empty()) return std::nullopt;
    if (restarts && script.setup.localEngine != 0) return PlayParts(script);
    return PlayRange(m_environment, script, Range{L"p" + std::to_wstring(++m_pools)});
}

std::optional<Failure> CPlayer::PlayParts(const Script& script) {
    Range range{L"p" + std::to_wstring(++m_pools)};
    range.to = 0;
    while (range.to < script.steps.size()) {
        range.from = range.to;
        do {
            ++range.to;
        } while (range.to < script.steps.size() && script.steps[range.to].op != EOp::kRestart);
        range.leavesOpen = range.to < script.steps.size() && script.steps[range.to].args[0] != 0;
        if (auto failure = PlayPart(script, range)) return failure;
    }
    return std::nullopt;
}

std::optional<Failure> CPlayer::PlayPart(const Script& script, const Range& range) {
    const std::wstring folder = m_environment.Folder();
    WriteFileContent(folder + kPartFile, "# " + Narrow(range.pool) + " " + std::to_string(range.from) + " " +
                                             std::to_string(range.to) + " " + (range.leavesOpen ? "1" : "0") + "\n" +
                                             ScriptText(script));
    ::DeleteFileW((folder + kResultFile).c_str());
    ChildResult child = RunTestInChild(folder);
    // On a busy machine a start may be dropped before the program runs.
    for (int tries = 1; tries < 3 && child.exitCode != 0 && child.output.empty(); ++tries) {
        child = RunTestInChild(folder);
    }
    std::istringstream result(FileContent(folder + kResultFile));
    std::string word;
    DWORD process = 0;
    result >> process >> word;
    if (range.leavesOpen) RemoveTracesOf(process);
    if (word == "ok" && !child.timedOut) return std::nullopt;
    if (word != "failed") {
        return Failure{range.from, "the process ended with " + std::to_string(child.exitCode) + "\n" + child.output};
    }
    Failure failure;
    result >> failure.step;
    std::getline(result >> std::ws, failure.what);
    return failure;
}

void CPlayer::PlayPartForParent() {
    const std::string text = FileContent(SharedFolder() + kPartFile);
    std::istringstream head(text);
    std::string mark;
    std::string pool;
    Range range;
    int leavesOpen = 0;
    head >> mark >> pool >> range.from >> range.to >> leavesOpen;
    range.pool = Widen(pool);
    range.leavesOpen = leavesOpen != 0;
    const std::optional<Failure> failure = PlayRange(m_environment, ParseScript(text), range);
    const std::string result = failure ? "failed " + std::to_string(failure->step) + " " + failure->what : "ok";
    WriteFileContent(SharedFolder() + kResultFile, std::to_string(::GetCurrentProcessId()) + " " + result + "\n");
    if (range.leavesOpen && !failure) ::TerminateProcess(::GetCurrentProcess(), 0);
}

std::string CPlayer::Report(const Script& script, const std::string& title) {
    const CKeptScript kept(title, ScriptText(script));
    std::optional<Failure> failure = Play(script);
    if (!failure) return {};
    kept.Keep();
    Script cut = script;
    cut.steps.resize(failure->step + 1);
    const std::string kind = KindOf(script, *failure);
    const auto fails = [&](const Script& candidate) {
        const std::optional<Failure> found = Play(candidate);
        return found && KindOf(candidate, *found) == kind;
    };
    const Script smallest = Shrink(fails(cut) ? cut : script, fails, kSecondsToShrink);
    const std::optional<Failure> again = Play(smallest);
    const std::string text =
        "# " + title + "\n# step " + std::to_string(again ? again->step + 1 : 0) + " of " +
        std::to_string(smallest.steps.size()) + " (shrunk from " + std::to_string(script.steps.size()) +
        "): " + (again ? again->what : "it does not fail again: " + failure->what) + "\n" + ScriptText(smallest);
    CKeptScript(title + "-shrunk", text).Keep();
    return text;
}

}  // namespace zd::test
