// Everything that all connections of the process share, in one place with one owner.
//
// It is built when the library is loaded and taken apart when it is unloaded, but not when the process ends: threads
// that were cut off in the middle of their work may still hold locks then.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "base/Locks.h"
#include "base/SharedString.h"
#include "Logger.h"
#include "zdvfs.h"

namespace zd {

// The name of a setting. Settings are told apart by the identity of their name object, not by its text.
struct CSettingName {
    const wchar_t* text;
};

using CSettingsMap = std::map<const CSettingName*, DWORD>;

// What the pool scan remembers of a configuration file, by its full path.
struct CScannedPool {
    FILETIME lastWrite;
    DWORD registered;  // the registry's code, or kPoolNotRegistered
};
constexpr DWORD kPoolNotRegistered = 999;

struct CProcessState {
    CProcessState() = default;
    ~CProcessState();
    CProcessState(const CProcessState&) = delete;
    CProcessState& operator=(const CProcessState&) = delete;

    // Set once: by the first constructor that brings a logger, finds the agent, opens the key.
    std::atomic<CLogger*> m_logger{nullptr};
    CWideString m_agentPath;       // guarded by m_settingsLock while it is set
    HKEY m_settingsKey = nullptr;  // guarded by m_settingsLock while it is opened
    bool m_settingsKeyTried = false;

    // Serialises the first use of the logger.
    CRankedLock<ELockRank::kLoggerFirstUse> m_loggerLock;

    // Guarded by m_settingsLock.
    CRankedLock<ELockRank::kSettings> m_settingsLock;
    CSettingsMap m_settings;
    std::map<std::wstring, CScannedPool> m_scannedPools;
    std::map<std::wstring, std::size_t> m_mountedNames;  // name -> connections that mounted it, ordered by code units
    std::set<ZdvfsMountBlock*> m_mountBlocks;

    // The task's times, FILETIME values. The host reports activity from one thread at a time.
    std::atomic<std::int64_t> m_lastActivity{0};
    std::atomic<std::uint32_t> m_refreshValue{0};  // seconds
    std::atomic<std::int64_t> m_startTime{0};
    std::atomic<bool> m_startUnset{true};
    std::atomic<std::int64_t> m_lastRenewal{0};  // 0: never
    std::atomic<bool> m_renewalActive{false};
    std::atomic<std::int64_t> m_lastChange{0};  // when a change was last noticed

    // Unguarded on purpose: each is one relaxed atomic, and no reader combines two of them. What one operation changes
    // stands apart from what another one only reads.
    alignas(64) std::atomic<std::int32_t> m_OpenDirectIOorWriteFiles{0};  // open handles for writing or direct I/O
    alignas(64) std::atomic<std::int64_t> m_useClock{0};                  // stamps the use of fragments
    alignas(64) std::atomic<std::uint32_t> m_modified{0};                 // 1 after a change of stored data or names
    std::atomic<std::uint16_t> m_highestValidNameChar{0};                 // 0: no rule
};

// Static storage without a static destructor, which would run at the end of the process too.
alignas(CProcessState) extern std::byte g_processStateStorage[sizeof(CProcessState)];

// The state of this process.
inline CProcessState& ProcessState() noexcept {
    return *std::launder(reinterpret_cast<CProcessState*>(g_processStateStorage));
}

// For the library's entry point only.
void CreateProcessState();
void DestroyProcessState() noexcept;

// Says that stored data, names or metadata have changed.
inline void SetModified() noexcept {
    std::atomic<std::uint32_t>& modified = ProcessState().m_modified;
    // Nearly always set already, and a store would take the cache line from every other thread.
    if (modified.load(std::memory_order_relaxed) == 0) modified.store(1, std::memory_order_relaxed);
}

}  // namespace zd
