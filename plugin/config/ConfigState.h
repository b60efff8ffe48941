// What the configuration shares between all connections of the process.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "base/Locks.h"
#include "base/ProcessWide.h"
#include "base/SharedString.h"
#include "ZdvfsSettings.h"

namespace zd {

namespace settings = zdvfs::settings;

// Settings are told apart by the identity of their objects, not by the texts of their names.
using CSettingsMap = std::map<const settings::Setting*, DWORD>;

// What the pool scan remembers of a configuration file, by its full path.
struct CScannedPool {
    FILETIME lastWrite;
    DWORD registered;  // the registry's code, or kPoolNotRegistered
};
constexpr DWORD kPoolNotRegistered = 999;

struct CConfigState {
    CConfigState() = default;
    ~CConfigState();
    CConfigState(const CConfigState&) = delete;
    CConfigState& operator=(const CConfigState&) = delete;

    CRankedLock<ELockRank::kSettings> m_lock;
    CWideString m_agentPath ZD_GUARDED_BY(m_lock);  // set once
    bool m_settingsKeyTried ZD_GUARDED_BY(m_lock) = false;
    CSettingsMap m_settings ZD_GUARDED_BY(m_lock);
    std::map<std::wstring, CScannedPool> m_scannedPools ZD_GUARDED_BY(m_lock);

    std::atomic<HKEY> m_settingsKey{nullptr};  // set once
    // A copy of a setting that is wanted for each name: relaxed, and combined with nothing else. 0: no rule.
    std::atomic<std::uint16_t> m_highestValidNameChar{0};
};

inline CProcessWide<CConfigState> g_configState;

inline CConfigState& ConfigState() noexcept {
    return g_configState.Get();
}

}  // namespace zd
