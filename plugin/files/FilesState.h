// What the open files of all connections of the process share.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/ProcessWide.h"

namespace zd {

// Unguarded on purpose: each is one relaxed atomic, and no reader combines two of them. They stand apart, because what
// one operation changes another one only reads.
struct CFilesState {
    alignas(64) std::atomic<std::int32_t> m_OpenDirectIOorWriteFiles{0};  // open handles for writing or direct I/O
    alignas(64) std::atomic<std::int64_t> m_useClock{0};                  // stamps the use of fragments
    alignas(64) std::atomic<std::uint32_t> m_modified{0};                 // 1 after a change of stored data or names
};

inline CProcessWide<CFilesState> g_filesState;

inline CFilesState& FilesState() noexcept {
    return g_filesState.Get();
}

// Says that stored data, names or metadata have changed.
inline void SetModified() noexcept {
    std::atomic<std::uint32_t>& modified = FilesState().m_modified;
    // Nearly always set already, and a store would take the cache line from every other thread.
    if (modified.load(std::memory_order_relaxed) == 0) modified.store(1, std::memory_order_relaxed);
}

}  // namespace zd
