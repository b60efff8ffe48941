// The check of the lock order, in builds with ZD_CHECK_LOCK_ORDER only.
#pragma once

#include <windows.h>

#include <cstdio>
#include <cstdlib>

namespace zd {

// One lock that a thread holds, on the thread's list of them. Made before the lock is entered, so that a wrong order
// shows each time it is taken and not only when two threads meet.
class COrderedLock {
public:
    // `several`: one thread may hold several locks of this rank, in an order that this check does not know.
    COrderedLock(const CRITICAL_SECTION& section, int rank, bool several) noexcept
        : m_section(&section), m_rank(rank), m_outer(Innermost()) {
        // Whoever holds a lock may take it again, whatever else it holds.
        for (const COrderedLock* held = m_outer; held != nullptr && !IsHeld(); held = held->m_outer) {
            if (held->m_rank > rank || (held->m_rank == rank && !several)) Fail(*held);
        }
        SetInnermost(this);
    }
    ~COrderedLock() { SetInnermost(m_outer); }
    COrderedLock(const COrderedLock&) = delete;
    COrderedLock& operator=(const COrderedLock&) = delete;

private:
    bool IsHeld() const noexcept {
        for (const COrderedLock* held = m_outer; held != nullptr; held = held->m_outer) {
            if (held->m_section == m_section) return true;
        }
        return false;
    }

    [[noreturn]] void Fail(const COrderedLock& held) const noexcept {
        // By ELockRank.
        static constexpr const char* kNames[] = {"an object's lock",    "a handle's lock",
                                                 "a name's use lock",   "the table's lock",
                                                 "a name's lock",       "the lock of the mounted pools",
                                                 "the settings lock",   "the lock of the logger's first use",
                                                 "the log's queue lock"};
        std::fprintf(stderr, "lock order: thread %lu takes %s (%p) while it holds %s (%p)\n", ::GetCurrentThreadId(),
                     kNames[m_rank], static_cast<const void*>(m_section), kNames[held.m_rank],
                     static_cast<const void*>(held.m_section));
        std::fflush(stderr);
        std::abort();
    }

    // A slot of the system: the compiler's own thread-local variables take memory at their first use, which may be
    // inside an operation that has none. Reading a slot clears the last error.
    static DWORD Slot() noexcept {
        static const DWORD slot = ::TlsAlloc();
        return slot;
    }
    static const COrderedLock* Innermost() noexcept {
        const DWORD lastError = ::GetLastError();
        const auto* const innermost = static_cast<const COrderedLock*>(::TlsGetValue(Slot()));
        ::SetLastError(lastError);
        return innermost;
    }
    static void SetInnermost(const COrderedLock* lock) noexcept {
        const DWORD lastError = ::GetLastError();
        ::TlsSetValue(Slot(), const_cast<COrderedLock*>(lock));
        ::SetLastError(lastError);
    }

    const CRITICAL_SECTION* const m_section;
    const int m_rank;
    const COrderedLock* const m_outer;
};

}  // namespace zd
