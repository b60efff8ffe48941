// Handles that one thread releases while others use them, with freed memory out of reach.
#include "harness/GuardAllocator.h"
#include "harness/PluginFixture.h"
#include "Workers.h"

namespace zd::test {

namespace {

constexpr std::uint64_t kRounds = 3000;
constexpr std::uint64_t kChanges = 500;
constexpr std::uint64_t kSearches = 25000;
constexpr std::size_t kShelf = 24;

bool IsExpected(DWORD code) {
    return code == ERROR_SUCCESS || code == ERROR_INVALID_HANDLE;
}

}  // namespace

class HandleRace : public CDoubleTest {
protected:
    void SetUp() override {
        CDoubleTest::SetUp();
        PrintCaseOnFault();
        CGuardAllocator::Start(EGuard::kEnd);
        CGuardAllocator::Attach(Plugin());
        CGuardAllocator::AttachFrees(::GetModuleHandleW(nullptr));
        // Lines of this level only.
        Registry().SetDword(kPluginKey, L"DebugLevel", 1);
        ASSERT_EQ(0U, Connect());
        Double().MakeFile("pool/dir/a.txt", "hello");
    }

    // Puts a new handle onto the shelf and releases the one that stood there: only who takes a handle down ends it.
    void Exchange(CWorker& worker, std::atomic<Handle>& place) {
        Handle handle = 0;
        const bool isDirectory = worker.m_random.OneIn(4);
        const std::wstring name = isDirectory ? L"\\dir" : L"\\f" + std::to_wstring(worker.m_random.Number(6));
        EXPECT_EQ(0U, worker.Create(name, handle, isDirectory));
        const Handle taken = place.exchange(handle);
        if (taken == 0) return;
        EXPECT_EQ(0U, worker.Release(taken));
    }

    // Uses a handle that may be released at any moment.
    void Use(CWorker& worker, Handle handle) {
        switch (worker.m_random.Number(7)) {
            case 0: {
                FileInformation information;
                EXPECT_TRUE(IsExpected(worker.Query(handle, information)));
                break;
            }
            case 1: {
                std::string data(20, 'x');
                const DWORD code = worker.Read(handle, 0, data);
                EXPECT_TRUE(IsExpected(code) || code == ERROR_ACCESS_DENIED) << code;
                break;
            }
            case 2:
                EXPECT_TRUE(IsExpected(worker.Close(handle)));
                break;
            case 3: {
                std::vector<std::wstring> names;
                const DWORD code = worker.List(handle, names);
                EXPECT_TRUE(IsExpected(code) || code == ERROR_DIRECTORY) << code;
                break;
            }
            case 4:
                EXPECT_TRUE(IsExpected(worker.GetSecurity(handle)));
                break;
            case 5:
                EXPECT_TRUE(IsExpected(worker.SetAttributes(handle, 0x20)));
                break;
            default: {
                const DWORD code = worker.Write(handle, 0, "hello");
                EXPECT_TRUE(IsExpected(code) || code == ERROR_ACCESS_DENIED) << code;
            }
        }
    }

    CProgress m_progress;
    std::array<std::atomic<Handle>, kShelf> m_shelf{};
};

// The table is searched all the time, and changed all the time.
TEST_F(HandleRace, StandingHandlesAreFoundWhileOthersComeAndGo) {
    std::vector<Handle> standing;
    for (const wchar_t* name : {L"\\s1", L"\\s2", L"\\s3", L"\\s4"}) standing.push_back(Create(name).handle);
    RunWorkers(m_progress, [&](int number) {
        CWorker worker(m_progress, *m_manager, number);
        if (number % 4 == 0) {
            for (std::uint64_t round = 0; round < ProofBudget(kChanges) && !HasFailure(); ++round) {
                Exchange(worker, m_shelf[worker.m_random.Number(kShelf)]);
                if (number == 0 && round % 50 == 0) Double().ClearCalls();
            }
            return;
        }
        // Refused right after the handle was found.
        std::vector<std::wstring> names;
        for (std::uint64_t round = 0; round < ProofBudget(kSearches) && !HasFailure(); ++round) {
            EXPECT_EQ(DWORD{ERROR_DIRECTORY}, worker.List(worker.m_random.Of(standing), names));
        }
    });
    for (std::atomic<Handle>& place : m_shelf) EXPECT_EQ(0U, m_manager->ZdReleaseFile(place));
    for (const Handle handle : standing) Close(handle);
}

TEST_F(HandleRace, ReleasedHandlesAreUsableOrUnknown) {
    const std::uint64_t rounds = ProofBudget(kRounds);
    RunWorkers(m_progress, [&](int number) {
        CWorker worker(m_progress, *m_manager, number);
        for (std::uint64_t round = 0; round < rounds && !HasFailure(); ++round) {
            std::atomic<Handle>& place = m_shelf[worker.m_random.Number(kShelf)];
            if (worker.m_random.OneIn(4)) {
                Exchange(worker, place);
            } else {
                Use(worker, place);
            }
            if (number == 0 && round % 50 == 0) Double().ClearCalls();
        }
    });
    for (std::atomic<Handle>& place : m_shelf) {
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(place));
    }
    std::printf("%d threads, %llu operations, %llu handles ended\n", kWorkers, m_progress.Steps(),
                m_progress.Calls(EOperation::kRelease));
    EXPECT_TRUE(Double().OpenDescriptors().empty());
    EXPECT_TRUE(Double().OpenStreams().empty());
}

}  // namespace zd::test
