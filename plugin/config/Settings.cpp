#include "config/Settings.h"

#include "base/RegistryKey.h"
#include "config/ConfigState.h"
#include "log/Log.h"

namespace zd {
namespace {

constexpr const CSettingName* kSettings[] = {
    &kMaxOpenFragments, &kTaskCloseWait,        &kTaskTimeAdd, &kSyncFileCount,
    &kDebugLevel,       &kHighestValidNameChar, &kEdbDirectIo,
};

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
    for (const CSettingName* name : kSettings) {
        if (const auto value = ReadDword(key, name->text)) fresh.emplace(name, *value);
    }
    const CAutoCriticalSection held(state.m_lock);
    state.m_settings.swap(fresh);
}

std::optional<DWORD> FindSetting(const CSettingName& name) noexcept {
    CConfigState& state = ConfigState();
    const CAutoCriticalSection held(state.m_lock);
    const auto found = state.m_settings.find(&name);
    if (found == state.m_settings.end()) return std::nullopt;
    return found->second;
}

DWORD SettingOr(const CSettingName& name, DWORD defaultValue) noexcept {
    return FindSetting(name).value_or(defaultValue);
}

DWORD NonZeroSettingOr(const CSettingName& name, DWORD defaultValue) noexcept {
    const DWORD value = SettingOr(name, defaultValue);
    return value != 0 ? value : defaultValue;
}

void CopyHighestValidNameChar() noexcept {
    CConfigState& state = ConfigState();
    const CAutoCriticalSection held(state.m_lock);
    const auto highest = static_cast<std::uint16_t>(SettingOr(kHighestValidNameChar, 0) & 0xFFFF);
    state.m_highestValidNameChar.store(highest, std::memory_order_relaxed);
}

}  // namespace zd
