// The check of the lock order, compiled into this program: it fires where a lock is taken below one that stands behind
// it, and nowhere else.
#include <utility>

#include "base/Locks.h"
#include "harness/PluginFixture.h"

#ifndef ZD_CHECK_LOCK_ORDER
#error "this test is compiled with the check"
#endif

namespace zd::test {

namespace {

constexpr std::size_t kRanks = static_cast<std::size_t>(ELockRank::kLogQueue) + 1;
constexpr DWORD kAborted = 3;  // what abort ends a process with

template <ELockRank kOuter, ELockRank kInner>
void TakeBoth() {
    CRankedLock<kOuter> outer;
    CRankedLock<kInner> inner;
    const CAutoCriticalSection first(outer);
    const CAutoCriticalSection second(inner);
}

template <std::size_t kOuter, std::size_t... kInner>
void TakeInOrder(std::index_sequence<kInner...>) {
    (TakeBoth<static_cast<ELockRank>(kOuter), static_cast<ELockRank>(kOuter + 1 + kInner)>(), ...);
}

template <std::size_t... kOuter>
void TakeAllInOrder(std::index_sequence<kOuter...>) {
    (TakeInOrder<kOuter>(std::make_index_sequence<kRanks - 1 - kOuter>()), ...);
}

}  // namespace

class LockOrder : public CDoubleTest {
protected:
    void ExpectEnd(void (*wrong)(), const char* text) {
        if (InChild()) return wrong();
        const ChildResult result = RunSelfInChild();
        EXPECT_EQ(kAborted, result.exitCode) << result.output;
        EXPECT_THAT(result.output, ::testing::HasSubstr(text));
    }
};

TEST_F(LockOrder, HandleUnderTheTableEndsTheProcess) {
    ExpectEnd(&TakeBoth<ELockRank::kTable, ELockRank::kHandle>, "takes a handle's lock");
}

TEST_F(LockOrder, HandleUnderANameEndsTheProcess) {
    ExpectEnd(&TakeBoth<ELockRank::kName, ELockRank::kHandle>, "while it holds a name's lock");
}

TEST_F(LockOrder, TableUnderTheLogEndsTheProcess) {
    ExpectEnd(&TakeBoth<ELockRank::kLogQueue, ELockRank::kTable>, "while it holds the log's queue lock");
}

TEST_F(LockOrder, ObjectUnderAHandleEndsTheProcess) {
    ExpectEnd(&TakeBoth<ELockRank::kHandle, ELockRank::kObject>, "takes an object's lock");
}

TEST_F(LockOrder, TwoTablesEndTheProcess) {
    ExpectEnd(&TakeBoth<ELockRank::kTable, ELockRank::kTable>, "takes the table's lock");
}

TEST_F(LockOrder, HandleUnderTheTableShowsBehindLocksInBetween) {
    ExpectEnd(
        [] {
            CRankedLock<ELockRank::kTable> table;
            CRankedLock<ELockRank::kHandle> other;
            CRankedLock<ELockRank::kHandle> handle;
            const CAutoCriticalSection first(other);
            const CAutoCriticalSection second(table);
            const CAutoCriticalSection third(other);  // held already, so it may
            const CAutoCriticalSection fourth(handle);
        },
        "takes a handle's lock");
}

TEST_F(LockOrder, EveryPairInItsOrderPasses) {
    TakeAllInOrder(std::make_index_sequence<kRanks>());
    TakeBoth<ELockRank::kHandle, ELockRank::kHandle>();
}

TEST_F(LockOrder, LockThatIsHeldMayBeTakenAgain) {
    CRankedLock<ELockRank::kObject> object;
    CRankedLock<ELockRank::kSettings> settings;
    const CAutoCriticalSection first(object);
    const CAutoCriticalSection second(settings);
    const CAutoCriticalSection third(object);
}

TEST_F(LockOrder, LockThatWasLeftIsForgotten) {
    CRankedLock<ELockRank::kTable> table;
    CRankedLock<ELockRank::kHandle> handle;
    { const CAutoCriticalSection held(table); }
    const CAutoCriticalSection held(handle);
}

TEST_F(LockOrder, CheckKeepsTheLastError) {
    CRankedLock<ELockRank::kTable> table;
    ::SetLastError(4711);
    { const CAutoCriticalSection held(table); }
    EXPECT_EQ(4711U, ::GetLastError());
}

}  // namespace zd::test
