// The process-wide settings map, read from the plug-in's registry key.
#pragma once

#include <windows.h>

#include <optional>

#include "config/ConfigState.h"

namespace zd {

// Opens the process's settings key in the given tree. The first call of the process decides; a failure is logged once
// and leaves every setting at its default.
void OpenSettingsKey(bool formerMaker) noexcept;

// Reads the map anew and puts it in the place of the old one as a whole. The old map stays while the key is not open.
void LoadSettings();

// What is stored for a setting of the map, as last loaded.
std::optional<DWORD> FindSetting(const settings::Setting& setting) noexcept;

// What that comes to, with the setting's default.
DWORD SettingInForce(const settings::Setting& setting) noexcept;

// Copies the name rule's bound out of the map into the state of the process.
void CopyHighestValidNameChar() noexcept ZD_TAKES_AGAIN;

}  // namespace zd
