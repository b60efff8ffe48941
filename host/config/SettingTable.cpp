#include "config/SettingTable.h"

#include <algorithm>
#include <cwchar>

#include "text/Failure.h"
#include "text/Text.h"

namespace zd::host {

namespace {

using enum SettingKind;
using Key = SettingsKey;

constexpr std::int64_t kMostUnsigned = 4294967295;
constexpr std::int64_t kMostSigned = 2147483647;
constexpr char kDword[] = "REG_DWORD";
constexpr char kLogMoment[] = "object, refresh; at most once an interval";

// clang-format off
constexpr Setting kSettings[] = {
    {"--agent-path", Key::Agent, L"path", nullptr, Folder, "FOLDER",
     "Folder of zd.conf and of the pools' .cfg files",
     "REG_SZ, REG_EXPAND_SZ", "folder, at most 1023 characters, a `\\` at its end", kNoNumber, kNoNumber,
     kNoNumber, "the folder of the host program", Zero::Counts, "process; for the log as `logpath`"},
    {"--log-path", Key::Agent, L"logpath", nullptr, Path, "FOLDER",
     "Folder of the log files",
     "REG_SZ, REG_EXPAND_SZ", "folder, at most 766 bytes in the system's code page", kNoNumber, kNoNumber,
     kNoNumber, "`log` below `Agent`: `path`; none without it", Zero::Counts,
     "first line of the process that passes the level; each new file after 100 MiB"},
    {"--config-file", Key::Agent, L"ConfigFilePath", nullptr, Path, "FILE",
     "Configuration file of agent types other than 1 to 3",
     "REG_SZ", "path, at most 32767 characters", kNoNumber, kNoNumber,
     kNoNumber, "none", Zero::Counts, "connect"},
    {"--agent-key-type", Key::Agent, L"AgentType", nullptr, Choice, "N",
     "Agent type, read where the key ZDVFS has none",
     kDword, "agent type", 0, 3, 0, nullptr, Zero::Counts, "connect"},
    {"--agent-type", Key::Zdvfs, L"AgentType", nullptr, Choice, "N",
     "Agent type; other than 0 makes connections look for a configuration file",
     kDword, "agent type", 0, 3, 0, "that of `Agent`", Zero::Counts, "connect"},
    {"--max-file-size-mb", Key::Zdvfs, L"MaxFileSizeMB", nullptr, Number, "N",
     "Size of a fragment in MiB",
     kDword, "MiB", 1, kMostUnsigned, 51200, "51200 (50 GiB)", Zero::IsDefault, "object"},
    {"--max-open-fragments", Key::Zdvfs, L"MaxOpenFragments", nullptr, Number, "N",
     "Fragments of one handle that are open at once",
     kDword, "fragments", 1, kMostSigned, 100, nullptr, Zero::IsDefault, "connect"},
    {"--local-cache-off", Key::Zdvfs, L"LocalCacheOff", nullptr, Switch, "0|1",
     "1 opens files past the storage library's cache",
     kDword, "", kNoNumber, kNoNumber, 0, nullptr, Zero::Counts, "object"},
    {"--edb-direct-io", Key::Zdvfs, L"EDB DIRECT IO", nullptr, Switch, "0|1",
     "0 opens written .edb files for reading too, and through the cache",
     kDword, "", kNoNumber, kNoNumber, 1, nullptr, Zero::Counts, "map, at each open"},
    {"--highest-valid-name-char", Key::Zdvfs, L"HighestValidNameChar", nullptr, Number, "N",
     "Highest character that names may hold; 0 allows all",
     kDword, "UTF-16 code unit", 0, 65535, 0, "0: no rule", Zero::Counts,
     "connect, refresh, activity (as the map has it)"},
    {"--sync-file-count", Key::Zdvfs, L"SyncFileCount", nullptr, Number, "N",
     "File count handed to the storage library",
     kDword, "files", 0, kMostUnsigned, 1000, nullptr, Zero::Counts, "connect, activity"},
    {"--task-close-wait", Key::Zdvfs, L"TaskCloseWait", nullptr, Number, "SECONDS",
     "Time since the first report of activity after which the storage task may stop",
     kDword, "seconds", 1, kMostUnsigned, 900, nullptr, Zero::IsDefault, "map, at activity"},
    {"--task-time-add", Key::Zdvfs, L"TaskTimeAdd", nullptr, Number, "SECONDS",
     "Time added when the storage task is renewed; 0 turns renewal off",
     kDword, "seconds", 1, kMostSigned, 600, nullptr, Zero::TurnsOff, "map, at activity"},
    {"--debug-level", Key::Zdvfs, L"DebugLevel", nullptr, Number, "N",
     "Level of the log: 1 errors, 2 warnings, 3 notices, 6 everything",
     kDword, "level", 1, 6, 1, nullptr, Zero::IsDefault, "object, refresh; activity for the storage's lines"},
    {"--log-suppress", Key::Zdvfs, L"LogSuppressRepeatedMessages", nullptr, Switch, "0|1",
     "1 leaves repeated lines out of the log",
     kDword, "", kNoNumber, kNoNumber, 0, "as the host set it: 0", Zero::Counts, kLogMoment},
    {"--log-num-msgs", Key::Zdvfs, L"LogNumMsgs", nullptr, Number, "N",
     "Different lines remembered when looking for repetition",
     kDword, "lines", 1, kMostUnsigned, 16, "as the host set it: 16", Zero::IsDefault, kLogMoment},
    {"--log-occur-limit", Key::Zdvfs, L"LogOccurLimit", nullptr, Number, "N",
     "Repetitions after which a summary is written",
     kDword, "repetitions", 1, kMostSigned, 1000, "as the host set it: 1000", Zero::IsDefault, kLogMoment},
    {"--log-time-limit", Key::Zdvfs, L"LogTimeLimit", nullptr, Number, "SECONDS",
     "Time after which a summary is written",
     kDword, "seconds", 1, kMostUnsigned, 60, "as the host set it: 60", Zero::IsDefault, kLogMoment},
    {"--log-chars-for-match", Key::Zdvfs, L"LogNumCharsForMatch", nullptr, Number, "N",
     "Leading characters that make two lines equal",
     kDword, "bytes", 1, kMostSigned, 256, "as the host set it: 256", Zero::IsDefault, kLogMoment},
    {"--log-update-interval", Key::Zdvfs, L"LogSuppressorUpdateInterval", nullptr, Number, "SECONDS",
     "How often these log settings are read again",
     kDword, "seconds", 1, kMostUnsigned, 60, nullptr, Zero::IsDefault, kLogMoment},
    // What follows has no option of its own.
    {nullptr, Key::Pool, L"ConfigFilePath", nullptr, Path, "FILE",
     "Configuration file of the pool, for agent types 1 to 3",
     "REG_SZ", "path, at most 32767 characters", kNoNumber, kNoNumber,
     kNoNumber, "none; written by the pool scan", Zero::Counts, "connect"},
    {nullptr, Key::Pool, L"TopLevelDirectory", nullptr, Text, "NAME",
     "Written by the plug-in, never read",
     "REG_SZ", "a name in the pool's root", kNoNumber, kNoNumber, kNoNumber, "none", Zero::Counts, "written at connect"},
    {nullptr, Key::AgentFile, L"IFS_COMPRESSION", nullptr, Choice, "N",
     "Compression, sent to the pool's root as request 10",
     "integer", "what the storage library knows", kNoNumber, kNoNumber, 0, nullptr, Zero::Counts, "connect"},
    {nullptr, Key::AgentFile, L"ENCRYPTION", nullptr, Choice, "N",
     "Encryption, sent to the pool's root as request 9",
     "integer", "what the storage library knows", kNoNumber, kNoNumber, 0, nullptr, Zero::Counts, "connect"},
    {nullptr, Key::AgentFile, L"RESTORE_DECRYPT_LOCAL", nullptr, Switch, "0|1",
     "1 sets the mount flag 0x200",
     "integer", "", kNoNumber, kNoNumber, 1, nullptr, Zero::Counts, "connect"},
    {nullptr, Key::AgentFile, L"PREFERRED_EXT_SEGKSIZE", nullptr, Text, "LIST",
     "Segment sizes by extension",
     "list, at most 255 bytes", "KiB an item", 1, 2097151, kNoNumber, "empty", Zero::Counts, "connect"},
    {nullptr, Key::PoolFile, L"AgentID", nullptr, Number, "N",
     "Registers the pool",
     "integer", "", 0, 4294967294, 4294967295, "0xFFFFFFFF: none", Zero::Counts, "connect, activity"},
    {nullptr, Key::Environment, L"ZDVFS_LOCAL_ROOT", nullptr, Folder, "FOLDER",
     "The folder that holds the pools and engine.ini",
     "text", "a Windows path", kNoNumber, kNoNumber, kNoNumber, "`%LOCALAPPDATA%\\Zdvfs\\pools`", Zero::Counts, "pool"},
    {nullptr, Key::Environment, L"LOCALAPPDATA", nullptr, Folder, "FOLDER",
     "Used where ZDVFS_LOCAL_ROOT is not set",
     "text", "a Windows path", kNoNumber, kNoNumber, kNoNumber, "none: mounting fails with 2", Zero::Counts, "pool"},
    {nullptr, Key::EngineFile, L"create_pools", "ZDVFS_LOCAL_CREATE", Switch, "0|1",
     "1 makes a missing pool when it is mounted",
     "integer", "", kNoNumber, kNoNumber, 0, nullptr, Zero::Counts, "pool"},
    {nullptr, Key::EngineFile, L"top_level", "ZDVFS_LOCAL_TOP_LEVEL", Text, "NAME",
     "A new pool gets a directory of this name with a QBX_ZD_MARKER in it",
     "text, UTF-8", "a name of at most 240 characters on disk", kNoNumber, kNoNumber, kNoNumber, "none", Zero::Counts, "pool"},
    {nullptr, Key::EngineFile, L"max_open_files", nullptr, Number, "N",
     "Open descriptors of the process",
     "integer", "descriptors", 1, kMostSigned, 16384, nullptr, Zero::Counts, "pool"},
    {nullptr, Key::EngineFile, L"durable_metadata", nullptr, Switch, "0|1",
     "0: changes of metadata do not wait for the disk",
     "integer", "", kNoNumber, kNoNumber, 1, nullptr, Zero::Counts, "pool"},
};
// clang-format on

}  // namespace

std::span<const Setting> AllSettings() {
    return kSettings;
}

std::span<const Setting> Settings() {
    static const auto kWritten = std::count_if(std::begin(kSettings), std::end(kSettings),
                                               [](const Setting& setting) { return setting.option != nullptr; });
    return AllSettings().first(static_cast<std::size_t>(kWritten));
}

const Setting& FindSetting(SettingsKey key, const std::wstring& value) {
    for (const Setting& setting : kSettings) {
        if (setting.key == key && value == setting.value) return setting;
    }
    throw CFailure("there is no setting " + ToUtf8(value));
}

const wchar_t* NameOf(SettingsKey key) {
    switch (key) {
        case SettingsKey::Zdvfs:
            return L"ZDVFS";
        case SettingsKey::Agent:
            return L"Agent";
        case SettingsKey::Pool:
            return L"SpaList\\POOL";
        case SettingsKey::AgentFile:
            return L"zd.conf";
        case SettingsKey::PoolFile:
            return L"POOL.cfg [Main]";
        case SettingsKey::EngineFile:
            return L"engine.ini";
        case SettingsKey::Environment:
            break;
    }
    return L"environment";
}

bool IsNumber(const Setting& setting) {
    return setting.kind == Number || setting.kind == Switch || setting.kind == Choice;
}

std::string RangeOf(const Setting& setting) {
    if (setting.kind == Switch) return "0, or any other number for 1";
    if (setting.least == kNoNumber) return "";
    return std::to_string(setting.least) + " to " + std::to_string(setting.most);
}

std::string StandardOf(const Setting& setting) {
    std::string text = setting.standardText != nullptr ? setting.standardText : std::to_string(setting.standard);
    if (setting.zero == Zero::IsDefault) text += "; so does 0";
    return text;
}

}  // namespace zd::host
