// What the connections of the process know of each other: the pools they have mounted, and the storage task's times.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "base/Locks.h"
#include "base/ProcessWide.h"
#include "zdvfs.h"

namespace zd {

struct CProtocolState {
    CRankedLock<ELockRank::kMounts> m_mountsLock;
    // name -> connections that have mounted it, ordered by code units
    std::map<std::wstring, std::size_t> m_mountedNames ZD_GUARDED_BY(m_mountsLock);
    std::set<ZdvfsMountBlock*> m_mountBlocks ZD_GUARDED_BY(m_mountsLock);

    // The task's times, FILETIME values. The host reports activity from one thread at a time.
    std::atomic<std::int64_t> m_lastActivity{0};
    std::atomic<std::uint32_t> m_refreshValue{0};  // seconds
    std::atomic<std::int64_t> m_startTime{0};
    std::atomic<bool> m_startUnset{true};
    std::atomic<std::int64_t> m_lastRenewal{0};  // 0: never
    std::atomic<bool> m_renewalActive{false};
    std::atomic<std::int64_t> m_lastChange{0};  // when a change was last noticed
};

inline CProcessWide<CProtocolState> g_protocolState;

inline CProtocolState& ProtocolState() noexcept {
    return g_protocolState.Get();
}

}  // namespace zd
