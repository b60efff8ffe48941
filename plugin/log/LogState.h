// What the log shares between all connections of the process.
#pragma once

#include <atomic>

#include "base/Locks.h"
#include "base/ProcessWide.h"
#include "Logger.h"

namespace zd {

struct CLogState {
    // Set once, by the first object that brings a logger.
    std::atomic<CLogger*> m_logger{nullptr};

    // Held while the first line brings the log up.
    CRankedLock<ELockRank::kLoggerFirstUse> m_firstUseLock;
};

inline CProcessWide<CLogState> g_logState;

inline CLogState& LogState() noexcept {
    return g_logState.Get();
}

}  // namespace zd
