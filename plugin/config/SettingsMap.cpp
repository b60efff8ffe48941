#include "config/SettingsMap.h"

#include <algorithm>
#include <array>

#include "base/RegistryKey.h"
#include "config/ConfigState.h"
#include "log/Log.h"

namespace zd {
namespace {

constexpr bool IsInMap(const settings::Description& description) {
    return description.setting.isInMap;
}

// Picked out by the compiler, so that the table's words do not come along.
constexpr auto kMapSettings = [] {
    constexpr auto kCount = std::ranges::count_if(settings::kDescriptions, &IsInMap);
    std::array<const settings::Setting*, static_cast<std::size_t>(kCount)> picked{};
    auto next = picked.begin();
    for (const settings::Description& description : settings::kDescriptions) {
        if (IsInMap(description)) *next++ = &description.setting;
    }
    return picked;
}();

}  // namespace

void OpenSettingsKey(bool formerMaker) noexcept {
    CConfigState& state = ConfigState();
    {
        const CAutoCriticalSection held(state.m_lock);
        if (state.m_settingsKeyTried) return;
        state.m_settingsKeyTried = true;
        CRegistryKey key;
        if (key.Open(VendorTree(formerMaker).settings) == ERROR_SUCCESS) {
            state.m_settingsKey = key.Release();
            return;
        }
    }
    LogText(kLogError, "ProtocolManager Status: failed to open ZDVFS_REG_PATH\n");
}

void LoadSettings() {
    CConfigState& state = ConfigState();
    const HKEY key = state.m_settingsKey;
    if (key == nullptr) return;
    CSettingsMap fresh;
    for (const settings::Setting* setting : kMapSettings) {
        if (const auto value = ReadDword(key, setting->name.wide)) fresh.emplace(setting, *value);
    }
    const CAutoCriticalSection held(state.m_lock);
    state.m_settings.swap(fresh);
}

std::optional<DWORD> FindSetting(const settings::Setting& setting) noexcept {
    CConfigState& state = ConfigState();
    const CAutoCriticalSection held(state.m_lock);
    const auto found = state.m_settings.find(&setting);
    if (found == state.m_settings.end()) return std::nullopt;
    return found->second;
}

DWORD SettingInForce(const settings::Setting& setting) noexcept {
    return setting.InForce(FindSetting(setting));
}

void CopyHighestValidNameChar() noexcept {
    CConfigState& state = ConfigState();
    const CAutoCriticalSection held(state.m_lock);
    const auto highest = static_cast<std::uint16_t>(SettingInForce(settings::kHighestValidNameChar) & 0xFFFF);
    state.m_highestValidNameChar.store(highest, std::memory_order_relaxed);
}

}  // namespace zd
