// The two lock classes, linked in.
#include "base/Locks.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <type_traits>

namespace {

using zd::CAutoCriticalSection;
using zd::CCriticalSectionHolder;

// Both can be ended through a base, and are never copied.
static_assert(std::has_virtual_destructor_v<CCriticalSectionHolder>);
static_assert(std::has_virtual_destructor_v<CAutoCriticalSection>);
static_assert(!std::is_copy_constructible_v<CCriticalSectionHolder> &&
              !std::is_copy_assignable_v<CCriticalSectionHolder>);
static_assert(!std::is_copy_constructible_v<CAutoCriticalSection> && !std::is_copy_assignable_v<CAutoCriticalSection>);
// A table pointer and the one member: nothing else is virtual state.
static_assert(sizeof(CCriticalSectionHolder) == sizeof(void*) + sizeof(CRITICAL_SECTION));
#ifndef ZD_CHECK_LOCK_ORDER
static_assert(sizeof(CAutoCriticalSection) == 2 * sizeof(void*));
#endif

// Whether another thread could enter.
bool IsFree(CRITICAL_SECTION& section) {
    bool entered = false;
    std::thread other([&] {
        entered = ::TryEnterCriticalSection(&section) != FALSE;
        if (entered) ::LeaveCriticalSection(&section);
    });
    other.join();
    return entered;
}

TEST(Locks, HolderOwnsAnInitialisedSection) {
    CCriticalSectionHolder holder;
    EXPECT_TRUE(IsFree(holder.Section()));
}

TEST(Locks, ScopedLockHoldsUntilTheScopeEnds) {
    CCriticalSectionHolder holder;
    {
        const CAutoCriticalSection held(holder);
        EXPECT_FALSE(IsFree(holder.Section()));
    }
    EXPECT_TRUE(IsFree(holder.Section()));
}

TEST(Locks, ScopedLockTakesABareSectionToo) {
    CRITICAL_SECTION section;
    ::InitializeCriticalSection(&section);
    {
        const CAutoCriticalSection held(section);
        EXPECT_FALSE(IsFree(section));
    }
    EXPECT_TRUE(IsFree(section));
    ::DeleteCriticalSection(&section);
}

TEST(Locks, ExceptionReleasesTheLock) {
    CCriticalSectionHolder holder;
    try {
        const CAutoCriticalSection held(holder);
        throw std::runtime_error("on purpose");
    } catch (const std::runtime_error&) {
        EXPECT_TRUE(IsFree(holder.Section()));
    }
    EXPECT_TRUE(IsFree(holder.Section()));
}

TEST(Locks, OneThreadMayEnterTwice) {
    CCriticalSectionHolder holder;
    const CAutoCriticalSection outer(holder);
    {
        const CAutoCriticalSection inner(holder);
        EXPECT_FALSE(IsFree(holder.Section()));
    }
    EXPECT_FALSE(IsFree(holder.Section()));
}

TEST(Locks, LeavingKeepsTheLastError) {
    CCriticalSectionHolder holder;
    {
        const CAutoCriticalSection held(holder);
        ::SetLastError(4711);
    }
    EXPECT_EQ(4711U, ::GetLastError());
}

}  // namespace
