// Every setting that the plug-in, its log and the local engine read: the one table from which `zdhost` writes, shows
// and judges them, and by which the documents and the templates in admin/ are checked.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace zd::host {

// Where a setting stands: a key of the registry below the tree's root, a file, or the environment.
enum class SettingsKey { Zdvfs, Agent, Pool, AgentFile, PoolFile, EngineFile, Environment };

// Switch is 0, or any other number for 1; Choice is a number that stands for something; Folder ends in a separator.
enum class SettingKind { Number, Switch, Choice, Text, Folder, Path };

// What a stored 0 comes to.
enum class Zero { Counts, IsDefault, TurnsOff };

constexpr std::int64_t kNoNumber = -1;

struct Setting {
    const char* option;        // the option of `zdhost setup`; null where it writes no such setting
    SettingsKey key;           // where the value stands
    const wchar_t* value;      // its name
    const char* variable;      // a variable that wins over it; null for none
    SettingKind kind;          // Number, Switch and Choice are REG_DWORD in the registry, all others REG_SZ
    const char* shownAs;       // the argument in the help
    const char* help;          // what the value does
    const char* type;          // as the documents name it
    const char* unit;          // the unit of a number, what a text is; empty for none
    std::int64_t least;        // of the numbers that have a meaning of their own; kNoNumber for texts and switches
    std::int64_t most;         // the same
    std::int64_t standard;     // the default; kNoNumber for texts
    const char* standardText;  // the default in words; null where the number says it
    Zero zero;
    const char* when;  // the calls with which it takes effect
};

// Every setting.
std::span<const Setting> AllSettings();

// Those that `zdhost setup` has an option for: all of the keys ZDVFS and Agent.
std::span<const Setting> Settings();

// The setting of this name, in the key. Throws CFailure where the table has none.
const Setting& FindSetting(SettingsKey key, const std::wstring& value);

// "ZDVFS", "Agent", "SpaList\POOL", "zd.conf" and so on.
const wchar_t* NameOf(SettingsKey key);

bool IsNumber(const Setting& setting);

// "1 to 4294967295"; empty for texts.
std::string RangeOf(const Setting& setting);

// "51200 (50 GiB); so does 0".
std::string StandardOf(const Setting& setting);

}  // namespace zd::host
