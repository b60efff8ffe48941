// Random sequences of operations, compared with a model step by step.
//
// After each step: its result, what it answered, the bytes and sizes that it touched, through the plug-in and in the
// storage. At intervals and at the end: every object, every directory, and that nothing else is stored. A sequence that
// fails is shrunk and printed as a script; put it into a file and name that in ZD_PROOF_REPLAY to play it again
// (tools/soak --replay FILE does so).
//
// Nothing is promised in these cases, so steps that would lead there are passed over:
//   - Handles keep a file's size as they found it or made it. Where another handle has added fragments, a handle reads,
//     writes and tells its own part only; it does not resize, rename or remove. Where another one has removed fragments
//     that it knows, or has cut the file into pieces of another length, it is only closed and released; after a close
//     it goes on once the file has those fragments again. Where another one has cut the last fragment, a handle that
//     takes that for full adds none behind it.
//   - A handle whose file was removed or replaced otherwise than through it is only closed and released.
//   - Names that differ only in case, and names of the shape of fragments, are not used.
//   - Appends take what the source has, do not overlap inside one file, and take it from handles that may read.
//   - Files are not emptied by handles that only read.
//   - Directories with handles on something below them, and the root, are not renamed; nothing goes into itself.
//   - A stream whose listing failed is not read on.
//   - Over a disk, access times are compared only right after they were set, and write times until the data changes.
#include "harness/PluginFixture.h"
#include "Player.h"
#include "Traces.h"

namespace zd::test {
namespace {

constexpr std::int64_t kStepsOfASequence = 400;

std::string PlanTitle(const std::string& name, std::uint64_t seed) {
    return name + " seed " + std::to_string(seed);
}

// Each parameter has sequences of its own.
class CDoubleModelTest : public CDoubleTest, public ::testing::WithParamInterface<int> {};
class CLocalModelTest : public CLocalEngineTest, public ::testing::WithParamInterface<int> {};

constexpr std::int64_t kLimits[] = {100, 1, 2, 3, -1, 0, 5};

// Plays `sequences` sequences, each with a limit of open fragments of its own.
void PlaySequences(CEnvironment& environment, const std::string& name, int part, std::int64_t sequences, Plan plan) {
    CPlayer player(environment);
    if (InChild()) return player.PlayPartForParent();
    plan.steps = kStepsOfASequence;
    for (std::int64_t i = 0; i < sequences * ProofBudget(); ++i) {
        const auto seed = static_cast<std::uint64_t>((ProofSeed() * 100 + part) * 100000 + i);
        plan.setup.maxOpenFragments = kLimits[static_cast<std::size_t>(i) % std::size(kLimits)];
        const Script script = CGenerator(seed, plan).Make();
        const std::string report = player.Report(script, PlanTitle(name, seed));
        if (!report.empty()) FAIL() << report;
    }
    std::printf("%lld steps\n", player.StepsPlayed());
}

Plan PlanFor(bool localEngine, EFiles files, std::int64_t restarts = 0) {
    Plan plan;
    plan.setup.localEngine = localEngine ? 1 : 0;
    plan.files = files;
    plan.restarts = restarts;
    return plan;
}

TEST_P(CDoubleModelTest, SmallFragments) {
    PlaySequences(Environment(), "double-small", GetParam(), 60, PlanFor(false, EFiles::kSmall));
}

TEST_P(CDoubleModelTest, LargeFragments) {
    PlaySequences(Environment(), "double-large", 20 + GetParam(), 3, PlanFor(false, EFiles::kLarge));
}

TEST_P(CLocalModelTest, SmallFragments) {
    PlaySequences(Environment(), "local-small", 40 + GetParam(), 4, PlanFor(true, EFiles::kSmall));
}

TEST_P(CLocalModelTest, LargeFragments) {
    PlaySequences(Environment(), "local-large", 60 + GetParam(), 3, PlanFor(true, EFiles::kLarge));
}

TEST_P(CLocalModelTest, Restarts) {
    PlaySequences(Environment(), "local-restarts", 80 + GetParam(), 1, PlanFor(true, EFiles::kSmall, 4));
}

INSTANTIATE_TEST_SUITE_P(Part, CDoubleModelTest, ::testing::Range(0, 8));
INSTANTIATE_TEST_SUITE_P(Part, CLocalModelTest, ::testing::Range(0, 3));

// The text of the script to be replayed: the one that was named, if it is for this back end, else one made here.
std::string TextToReplay(bool localEngine) {
    if (const wchar_t* const file = ::_wgetenv(L"ZD_PROOF_REPLAY")) {
        std::string text = FileContent(file);
        EXPECT_NE("", text) << "no script in the file";
        if ((ParseScript(text).setup.localEngine != 0) == localEngine) return text;
    }
    Plan plan = PlanFor(localEngine, EFiles::kSmall);
    plan.steps = kStepsOfASequence;
    return ScriptText(CGenerator(static_cast<std::uint64_t>(ProofSeed()), plan).Make());
}

void ReplayText(CEnvironment& environment, bool localEngine) {
    CPlayer player(environment);
    if (InChild()) return player.PlayPartForParent();
    const std::string text = TextToReplay(localEngine);
    const Script script = ParseScript(text);
    EXPECT_FALSE(script.steps.empty());
    const std::optional<Failure> failure = player.Play(script);
    EXPECT_FALSE(failure.has_value()) << "step " << failure->step + 1 << " (" << StepText(script.steps[failure->step])
                                      << "): " << failure->what;
}

class CDoubleReplay : public CDoubleTest {};
class CLocalReplay : public CLocalEngineTest {};

TEST_F(CDoubleReplay, PlaysAScriptFromItsText) {
    ReplayText(Environment(), false);
}

TEST_F(CLocalReplay, PlaysAScriptFromItsText) {
    ReplayText(Environment(), true);
}

}  // namespace
}  // namespace zd::test
