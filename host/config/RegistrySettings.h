// The registry values that the plug-in reads: what `zdhost setup` writes, shows and removes.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "config/SettingOptions.h"

namespace zd::host {

// The two trees under HKEY_LOCAL_MACHINE. The plug-in uses the former maker's only where the other one is missing.
enum class SettingsTree { Present, Former };

// "SOFTWARE\Orvane\Zendra" or "SOFTWARE\Halvern\Zendra".
const wchar_t* RootOf(SettingsTree tree);

// True where only the former maker's tree exists, which is then the one in use.
bool FormerTreeInUse();

// These throw CFailure that names the system's code and the key.
void StoreNumber(SettingsTree tree, const Setting& setting, std::uint32_t number);
void StoreText(SettingsTree tree, const Setting& setting, const std::wstring& text);
// Registers a pool's configuration file.
void StorePoolFile(SettingsTree tree, const std::wstring& pool, const std::wstring& file);
// Removes every value of the table, the pools' subkeys, and the keys that are empty then. Other values stay.
void ClearSettings(SettingsTree tree);
// Calls `line` with "ZDVFS\DebugLevel = 6" and so on for every value that is set; true where the tree exists.
bool ShowSettings(SettingsTree tree, const std::function<void(const std::wstring&)>& line);

// A value as the registry holds it.
struct StoredValue {
    DWORD type = REG_NONE;
    std::vector<BYTE> data;

    // The number of a REG_DWORD, the text of a REG_SZ or REG_EXPAND_SZ up to its end; nothing for other types.
    std::optional<std::uint32_t> Number() const;
    std::optional<std::wstring> Text() const;
    // "REG_SZ" and so on.
    std::string TypeName() const;
};

// True where the tree's root can be opened.
bool TreeExists(SettingsTree tree);
// The value under `below` the tree's root; nothing where it is not set. Throws CFailure.
std::optional<StoredValue> ReadValue(SettingsTree tree, const std::wstring& below, const wchar_t* name);
// The names of all values that stand under `below`.
std::vector<std::wstring> ValueNames(SettingsTree tree, const std::wstring& below);

}  // namespace zd::host
