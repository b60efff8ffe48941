// The process-wide settings map, read from the plug-in's registry key.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>

#include "config/ConfigState.h"

namespace zd {

// The settings of the map. Each object is the identity of its setting.
inline constexpr CSettingName kMaxOpenFragments{L"MaxOpenFragments"};
inline constexpr CSettingName kTaskCloseWait{L"TaskCloseWait"};
inline constexpr CSettingName kTaskTimeAdd{L"TaskTimeAdd"};
inline constexpr CSettingName kSyncFileCount{L"SyncFileCount"};
inline constexpr CSettingName kDebugLevel{L"DebugLevel"};
inline constexpr CSettingName kHighestValidNameChar{L"HighestValidNameChar"};
inline constexpr CSettingName kEdbDirectIo{L"EDB DIRECT IO"};

constexpr DWORD kDefaultMaxOpenFragments = 100;
constexpr DWORD kDefaultSyncFileCount = 1000;
constexpr DWORD kDefaultDebugLevel = 1;

// Opens the process's settings key in the given tree. The first call of the process decides; a failure is logged once
// and leaves every setting at its default.
void OpenSettingsKey(bool formerMaker) noexcept;

// Reads the map anew and puts it in the place of the old one as a whole. The old map stays while the key is not open.
void LoadSettings();

// The value of a setting, by the map as last loaded.
std::optional<DWORD> FindSetting(const CSettingName& name) noexcept;
DWORD SettingOr(const CSettingName& name, DWORD defaultValue) noexcept;

// The same where 0 stands for the default too.
DWORD NonZeroSettingOr(const CSettingName& name, DWORD defaultValue) noexcept;

// Copies the name rule's bound out of the map into the state of the process.
void CopyHighestValidNameChar() noexcept ZD_TAKES_AGAIN;

}  // namespace zd
