// A reader-writer lock of the system, for std::unique_lock and std::shared_lock. The standard library's own is slower
// with this toolchain than what it would guard here.
#pragma once

#include <windows.h>

#include <mutex>
#include <shared_mutex>

namespace zd::memory {

class CSharedLock {
public:
    CSharedLock() = default;
    CSharedLock(const CSharedLock&) = delete;
    CSharedLock& operator=(const CSharedLock&) = delete;

    void lock() noexcept { ::AcquireSRWLockExclusive(&m_lock); }
    void unlock() noexcept { ::ReleaseSRWLockExclusive(&m_lock); }
    void lock_shared() noexcept { ::AcquireSRWLockShared(&m_lock); }
    void unlock_shared() noexcept { ::ReleaseSRWLockShared(&m_lock); }

private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

using CReading = std::shared_lock<CSharedLock>;
using CWriting = std::unique_lock<CSharedLock>;

}  // namespace zd::memory
