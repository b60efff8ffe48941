// A process is killed in the middle of its work, and what it had acknowledged is looked for.
//
// A child plays random changes (writes, sizes, appends, renames, removals, descriptors, attributes, times, new files
// and directories) over the local engine and raises a counter in shared memory after each one that has returned. The
// parent ends it at a random moment, mounts the pool and compares everything with the model: all changes that were
// acknowledged are there, and of the one under way nothing more than HalfDone.h allows; of descriptors, nothing but the
// old or the new one.
#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>

#include "../model/Checker.h"
#include "../model/Generator.h"
#include "../model/Player.h"
#include "../model/Traces.h"
#include "HalfDone.h"

namespace zd::test {
namespace {

constexpr std::int64_t kRounds = 25;
constexpr std::int64_t kSteps = 1500;
constexpr std::int64_t kLongestWait = 600;  // milliseconds
constexpr UINT kKilled = 9;
constexpr wchar_t kScriptFile[] = L"killed.txt";
constexpr wchar_t kProblemFile[] = L"problem.txt";

// What the child tells.
struct Progress {
    LONG process;
    LONG acknowledged;
};

class CProgress {
public:
    explicit CProgress(const std::wstring& name)
        : m_mapping(
              ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Progress), name.c_str())),
          m_view(static_cast<Progress*>(::MapViewOfFile(m_mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Progress)))) {
        if (m_view == nullptr) throw std::runtime_error("no shared memory");
    }
    ~CProgress() {
        ::UnmapViewOfFile(m_view);
        ::CloseHandle(m_mapping);
    }
    CProgress(const CProgress&) = delete;
    CProgress& operator=(const CProgress&) = delete;

    void Set(LONG Progress::*field, LONG value) { ::InterlockedExchange(&(m_view->*field), value); }
    LONG Get(LONG Progress::*field) const { return ::InterlockedCompareExchange(&(m_view->*field), 0, 0); }

private:
    HANDLE m_mapping;
    Progress* m_view;
};

std::wstring ProgressName(const std::wstring& folder) {
    std::wstring name = L"Local\\ZdKill-" + folder;
    std::replace(name.begin() + 6, name.end(), L'\\', L'-');
    return name;
}

// Answers what is wrong, or nothing.
std::string CompareWith(CShare& share, const CModel& model, const Setup& setup) {
    try {
        CChecker(share, model, setup).CheckAll();
    } catch (const std::exception& problem) {
        return problem.what();
    }
    return {};
}

void Kill(DWORD id) {
    const HANDLE process = id == 0 ? nullptr : ::OpenProcess(PROCESS_TERMINATE, FALSE, id);
    if (process == nullptr) return;
    ::TerminateProcess(process, kKilled);
    ::CloseHandle(process);
}

class CKillTest : public CLocalEngineTest, public ::testing::WithParamInterface<int> {
protected:
    // The child: the script's first line is a comment with the pool's name.
    void PlayUntilKilled() {
        const std::string text = FileContent(SharedFolder() + kScriptFile);
        const Script script = ParseScript(text);
        CProgress progress(ProgressName(SharedFolder()));
        progress.Set(&Progress::process, static_cast<LONG>(::GetCurrentProcessId()));
        CModel model(script.setup, CurrentUserSid());
        CShare share(Environment(), script.setup, Widen(text.substr(2, text.find('\n') - 2)));
        for (std::size_t i = 0; i < script.steps.size(); ++i) {
            const Expected expected = model.Apply(script.steps[i]);
            const DWORD code = expected.skipped ? 0 : share.Do(script.steps[i]).code;
            if (!expected.skipped &&
                std::find(expected.codes.begin(), expected.codes.end(), code) == expected.codes.end()) {
                WriteFileContent(SharedFolder() + kProblemFile, "step " + std::to_string(i + 1) + " (" +
                                                                    StepText(script.steps[i]) + ") answered " +
                                                                    std::to_string(code));
                return;
            }
            progress.Set(&Progress::acknowledged, static_cast<LONG>(i + 1));
        }
    }

    // Starts the child and ends it so many milliseconds after it acknowledged `first` steps. Answers how many it did.
    std::size_t RunAndKill(LONG first, DWORD wait) {
        const std::wstring folder = Environment().Folder();
        CProgress progress(ProgressName(folder));
        progress.Set(&Progress::acknowledged, 0);
        progress.Set(&Progress::process, 0);
        ::DeleteFileW((folder + kProblemFile).c_str());
        ChildResult result;
        // On a busy machine a start may be dropped before the program runs.
        for (int tries = 0; tries < 3 && progress.Get(&Progress::process) == 0; ++tries) {
            std::atomic<bool> ended = false;
            std::thread child([&] {
                result = RunSelfInChild();
                ended = true;
            });
            while (!ended && progress.Get(&Progress::acknowledged) < first) ::Sleep(3);
            ::Sleep(wait);
            Kill(static_cast<DWORD>(progress.Get(&Progress::process)));
            child.join();
        }
        RemoveTracesOf(static_cast<DWORD>(progress.Get(&Progress::process)));
        const std::string problem = FileContent(folder + kProblemFile);
        if (!problem.empty()) throw std::runtime_error(problem);
        if (result.exitCode != kKilled && result.exitCode != 0) {
            throw std::runtime_error("the child failed\n" + result.output);
        }
        return static_cast<std::size_t>(progress.Get(&Progress::acknowledged));
    }

    void CheckPool(const Script& script, const std::wstring& pool, std::size_t acknowledged) {
        CModel before(script.setup, CurrentUserSid());
        CModel after(script.setup, CurrentUserSid());
        for (std::size_t i = 0; i < acknowledged; ++i) before.Apply(script.steps[i]);
        for (std::size_t i = 0; i < std::min(acknowledged + 1, script.steps.size()); ++i) after.Apply(script.steps[i]);
        CShare share(Environment(), script.setup, pool);
        const std::string old = CompareWith(share, before, script.setup);
        if (old.empty()) return;
        if (acknowledged == script.steps.size()) throw std::runtime_error(old);
        const std::string wanted = CompareWith(share, after, script.setup);
        if (wanted.empty()) return;
        ++m_halfDone;
        const Step& step = script.steps[acknowledged];
        try {
            CChecker(share, before, script.setup).CheckAllBut(NamesTouched(before, after, step));
            CheckHalfDone(share, before, after, step);
        } catch (const std::exception& problem) {
            throw std::runtime_error(std::string(problem.what()) + "\nagainst the state before: " + old +
                                     "\nagainst the state after: " + wanted);
        }
    }

    void PlayRound(std::uint64_t seed) {
        Plan plan;
        plan.setup.localEngine = 1;
        plan.setup.maxOpenFragments = static_cast<std::int64_t>(seed % 3) + 1;
        plan.steps = kSteps;
        plan.onlyChanges = true;
        const Script script = CGenerator(seed, plan).Make();
        const std::wstring pool = L"k" + std::to_wstring(seed);
        WriteFileContent(Environment().Folder() + kScriptFile, "# " + Narrow(pool) + "\n" + ScriptText(script));
        CRandom random(seed);
        std::size_t acknowledged = 0;
        try {
            const auto first = std::find_if(script.steps.begin(), script.steps.end(),
                                            [](const Step& step) { return step.op == EOp::kOpen; });
            acknowledged = RunAndKill(static_cast<LONG>(first - script.steps.begin()),
                                      static_cast<DWORD>(random.Below(kLongestWait)));
            CheckPool(script, pool, acknowledged);
        } catch (const std::exception& problem) {
            Script played = script;
            played.steps.resize(std::min(acknowledged + 1, script.steps.size()));
            const std::string text = "# killed, seed " + std::to_string(seed) + ": after " +
                                     std::to_string(acknowledged) + " acknowledged steps\n# " + problem.what() + "\n";
            CKeptScript("killed " + std::to_string(seed), text + ScriptText(played)).Keep();
            FAIL() << text << "under way: " << StepText(played.steps.back());
        }
        m_acknowledged += acknowledged;
    }

    std::size_t m_acknowledged = 0;
    int m_halfDone = 0;
};

TEST_P(CKillTest, WhatWasAcknowledgedIsThereAfterwards) {
    if (InChild()) return PlayUntilKilled();
    const std::int64_t rounds = kRounds * ProofBudget();
    for (std::int64_t i = 0; i < rounds; ++i) {
        PlayRound(static_cast<std::uint64_t>((ProofSeed() * 10 + GetParam()) * 100000 + i));
        if (HasFatalFailure()) return;
    }
    std::printf("%lld rounds, %zu changes acknowledged, %d half done\n", rounds, m_acknowledged, m_halfDone);
    EXPECT_GT(m_acknowledged, static_cast<std::size_t>(rounds) * 10);
}

INSTANTIATE_TEST_SUITE_P(Part, CKillTest, ::testing::Range(0, 4));

}  // namespace
}  // namespace zd::test
