// The two lock classes; every lock of the plug-in is taken through CAutoCriticalSection.
//
// Lock order, outermost first. Nobody takes a lock that stands above one it holds:
//   1. a connection's object lock
//   2. a handle's lock (two of them: in ZdAppendFile, in the order of their addresses; in a replacing rename, with that
//      of a handle that nobody else knows)
//   3. a name's use lock: held while an object is reached by its name, and over a rename
//   4. one of the open-file table's locks, then a name's lock: held for map and name work only, never across a storage
//   call
//   5. the lock of the mounted pools, or the settings lock: for map work
//   6. the lock of the logger's first use, then the logger's queue lock
// A build with ZD_CHECK_LOCK_ORDER ends the process where the order is broken (LockOrderCheck.h). What each lock guards
// is said in the words of ThreadAnnotations.h.
#pragma once

#include <windows.h>

#include "base/ThreadAnnotations.h"

#ifdef ZD_CHECK_LOCK_ORDER
#include "base/LockOrderCheck.h"
#endif

namespace zd {

// The places of the order, outermost first.
enum class ELockRank { kObject, kHandle, kNameUse, kTable, kName, kMounts, kSettings, kLoggerFirstUse, kLogQueue };

// Owns one critical section.
class ZD_CAPABILITY("lock") CCriticalSectionHolder {
public:
    // `spinCount`: how often a thread looks again before it sleeps, for locks that are never held for long.
    explicit CCriticalSectionHolder(DWORD spinCount = 0) noexcept {
        static_cast<void>(::InitializeCriticalSectionAndSpinCount(&m_section, spinCount));
    }
    virtual ~CCriticalSectionHolder() { ::DeleteCriticalSection(&m_section); }
    CCriticalSectionHolder(const CCriticalSectionHolder&) = delete;
    CCriticalSectionHolder& operator=(const CCriticalSectionHolder&) = delete;

    CRITICAL_SECTION& Section() noexcept { return m_section; }

private:
    CRITICAL_SECTION m_section{};
};

// A holder with its place in the order.
template <ELockRank kRank>
class ZD_CAPABILITY("lock") CRankedLock : public CCriticalSectionHolder {
public:
    CRankedLock() noexcept : CCriticalSectionHolder(kIsHeldBriefly ? kBriefSpin : 0) {}

private:
    static constexpr bool kIsHeldBriefly = kRank == ELockRank::kTable || kRank == ELockRank::kName;
    static constexpr DWORD kBriefSpin = 4000;
};

// Enters a critical section for a scope.
class ZD_SCOPED_CAPABILITY CAutoCriticalSection {
public:
    // A section without a rank of its own is the shared logger's.
    [[nodiscard]] explicit CAutoCriticalSection(CRITICAL_SECTION& section) noexcept ZD_ACQUIRE(section)
        : CAutoCriticalSection(section, ELockRank::kLogQueue) {}
    [[nodiscard]] explicit CAutoCriticalSection(CCriticalSectionHolder& holder) noexcept ZD_ACQUIRE(holder)
        : CAutoCriticalSection(holder.Section()) {}
    template <ELockRank kRank>
    [[nodiscard]] explicit CAutoCriticalSection(CRankedLock<kRank>& holder) noexcept ZD_ACQUIRE(holder)
        : CAutoCriticalSection(holder.Section(), kRank) {}
    virtual ~CAutoCriticalSection() ZD_RELEASE() { ::LeaveCriticalSection(&m_section); }
    CAutoCriticalSection(const CAutoCriticalSection&) = delete;
    CAutoCriticalSection& operator=(const CAutoCriticalSection&) = delete;

private:
    CAutoCriticalSection(CRITICAL_SECTION& section, [[maybe_unused]] ELockRank rank) noexcept
        : m_section(section)
#ifdef ZD_CHECK_LOCK_ORDER
          ,
          m_order(section, static_cast<int>(rank), rank == ELockRank::kHandle)
#endif
    {
        ::EnterCriticalSection(&m_section);
    }

    CRITICAL_SECTION& m_section;
#ifdef ZD_CHECK_LOCK_ORDER
    const COrderedLock m_order;
#endif
};

}  // namespace zd
