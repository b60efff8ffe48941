// Every setting of the product: the values of the registry, the keys of zd.conf, POOL.cfg and engine.ini, and the
// variables. This is the one place of their names, types, bounds and defaults. The plug-in and zdhost take them from
// here, zdhost prints the table (`config --list-settings`), and the documents and templates are written from that.
//
// Two parts. A Setting is what a program needs to read or write the value: a constant each, told apart by its address.
// kDescriptions says the rest in words; its order is the one in which settings are listed. A program that mentions no
// description holds none of the words, and a setting that is not mentioned costs nothing.
//
// Reading. A number of the registry is a REG_DWORD and any 32-bit number may be stored; a value of another type counts
// as absent. Bounds tell the numbers that have a meaning of their own. Nothing here refuses the others: what they do is
// the reader's, and docs/settings.md tells it. Setting::InForce is the rule for what is absent or 0.
//
// A further setting is a constant and a row of kDescriptions: see "Adding a setting" in CONTRIBUTING.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace zdvfs::settings {

// ---- What a setting is ------------------------------------------------------------------------------------------

// Where a setting stands: a key of the registry below the tree's root, a file, or the environment.
enum class Key { Zdvfs, Agent, Pool, AgentFile, PoolFile, EngineFile, Environment };

// Switch is 0, or any other number for 1. Choice is a number that stands for something. Folder and Path are texts.
enum class Kind { Number, Switch, Choice, Text, Folder, Path };

// What a stored 0 comes to.
enum class Zero { Counts, IsDefault, TurnsOff };

// The ASCII text of a name in both forms in which the system is asked.
struct Name {
    static constexpr std::size_t kSize = 32;

    wchar_t wide[kSize] = {};
    char narrow[kSize] = {};

    template <std::size_t Size>
    constexpr Name(const char (&text)[Size]) {
        static_assert(Size <= kSize, "a longer name needs more room");
        for (std::size_t i = 0; i < Size; ++i) {
            narrow[i] = text[i];
            wide[i] = static_cast<wchar_t>(text[i]);
        }
    }
};

// Stands for a number that there is not.
inline constexpr std::int64_t kNoNumber = -1;

struct Setting {
    Key key;
    Name name;
    Kind kind;
    std::int64_t least;     // of the numbers with a meaning of their own; kNoNumber for switches and most texts
    std::int64_t most;      // the same
    std::int64_t standard;  // the default; kNoNumber for texts
    Zero zero;
    std::uint32_t longest;  // characters or bytes of a text without its end, 0 where nothing limits it
    // Whether the value belongs to the plug-in's map, which is read as a whole when an object is made, at connect and
    // at refresh. All others are read where they are wanted.
    bool isInMap;

    constexpr bool IsNumber() const { return kind == Kind::Number || kind == Kind::Switch || kind == Kind::Choice; }

    // The default of a number, as its readers want it: -1 for 4294967295 where Value is signed.
    template <class Value>
    constexpr Value Standard() const {
        return static_cast<Value>(standard);
    }

    // What a stored number, or none, comes to.
    constexpr std::uint32_t InForce(std::optional<std::uint32_t> stored) const {
        if (!stored || (*stored == 0 && zero == Zero::IsDefault)) return Standard<std::uint32_t>();
        return *stored;
    }
};

constexpr Setting Number(Key key, const Name& name, std::int64_t least, std::int64_t most, std::int64_t standard,
                         Zero zero = Zero::Counts) {
    return {key, name, Kind::Number, least, most, standard, zero, /*longest=*/0, /*isInMap=*/false};
}

constexpr Setting Switch(Key key, const Name& name, std::int64_t standard) {
    return {key, name, Kind::Switch, kNoNumber, kNoNumber, standard, Zero::Counts, /*longest=*/0, /*isInMap=*/false};
}

// Without bounds, what the numbers mean is not the plug-in's business.
constexpr Setting Choice(Key key, const Name& name, std::int64_t standard, std::int64_t least = kNoNumber,
                         std::int64_t most = kNoNumber) {
    return {key, name, Kind::Choice, least, most, standard, Zero::Counts, /*longest=*/0, /*isInMap=*/false};
}

// Bounds, where there are any, are those of numbers in the text.
constexpr Setting Text(Kind kind, Key key, const Name& name, std::uint32_t longest = 0, std::int64_t least = kNoNumber,
                       std::int64_t most = kNoNumber) {
    return {key, name, kind, least, most, kNoNumber, Zero::Counts, longest, /*isInMap=*/false};
}

constexpr Setting InMap(Setting setting) {
    setting.isInMap = true;
    return setting;
}

inline constexpr std::int64_t kMostUnsigned = 4294967295;
inline constexpr std::int64_t kMostSigned = 2147483647;

// ---- Places -----------------------------------------------------------------------------------------------------

inline constexpr Name kPlaces[] = {"ZDVFS",           "Agent",      "SpaList\\POOL", "zd.conf",
                                   "POOL.cfg [Main]", "engine.ini", "environment"};

// The key below the tree's root, or the file. Those of pools hold POOL for its name.
constexpr const Name& PlaceOf(Key key) {
    return kPlaces[static_cast<int>(key)];
}

// The key below the tree's root that holds a subkey for each pool.
inline constexpr wchar_t kPoolListKey[] = L"ZDVFS\\SpaList";

// The section of a pool's file. The keys of the other files stand outside of all sections.
inline constexpr char kPoolFileSection[] = "Main";

// ---- The registry -----------------------------------------------------------------------------------------------

inline constexpr Setting kAgentPath = Text(Kind::Folder, Key::Agent, "path", 1023);
inline constexpr Setting kLogPath = Text(Kind::Path, Key::Agent, "logpath", 766);
inline constexpr Setting kAgentConfigFile = Text(Kind::Path, Key::Agent, "ConfigFilePath", 32767);
inline constexpr Setting kAgentKeyType = Choice(Key::Agent, "AgentType", 0, 0, 3);
inline constexpr Setting kAgentType = Choice(Key::Zdvfs, "AgentType", 0, 0, 3);

inline constexpr Setting kMaxFileSizeMB = Number(Key::Zdvfs, "MaxFileSizeMB", 1, kMostUnsigned, 51200, Zero::IsDefault);
inline constexpr Setting kMaxOpenFragments =
    InMap(Number(Key::Zdvfs, "MaxOpenFragments", 1, kMostSigned, 100, Zero::IsDefault));
inline constexpr Setting kLocalCacheOff = Switch(Key::Zdvfs, "LocalCacheOff", 0);
inline constexpr Setting kEdbDirectIo = InMap(Switch(Key::Zdvfs, "EDB DIRECT IO", 1));
inline constexpr Setting kHighestValidNameChar = InMap(Number(Key::Zdvfs, "HighestValidNameChar", 0, 65535, 0));

inline constexpr Setting kSyncFileCount = InMap(Number(Key::Zdvfs, "SyncFileCount", 0, kMostUnsigned, 1000));
inline constexpr Setting kTaskCloseWait =
    InMap(Number(Key::Zdvfs, "TaskCloseWait", 1, kMostUnsigned, 900, Zero::IsDefault));
inline constexpr Setting kTaskTimeAdd = InMap(Number(Key::Zdvfs, "TaskTimeAdd", 1, kMostSigned, 600, Zero::TurnsOff));

inline constexpr Setting kDebugLevel = InMap(Number(Key::Zdvfs, "DebugLevel", 1, 6, 1, Zero::IsDefault));
inline constexpr Setting kLogSuppressRepeatedMessages = Switch(Key::Zdvfs, "LogSuppressRepeatedMessages", 0);
inline constexpr Setting kLogNumMsgs = Number(Key::Zdvfs, "LogNumMsgs", 1, kMostUnsigned, 16, Zero::IsDefault);
inline constexpr Setting kLogOccurLimit = Number(Key::Zdvfs, "LogOccurLimit", 1, kMostSigned, 1000, Zero::IsDefault);
inline constexpr Setting kLogTimeLimit = Number(Key::Zdvfs, "LogTimeLimit", 1, kMostUnsigned, 60, Zero::IsDefault);
inline constexpr Setting kLogNumCharsForMatch =
    Number(Key::Zdvfs, "LogNumCharsForMatch", 1, kMostSigned, 256, Zero::IsDefault);
inline constexpr Setting kLogSuppressorUpdateInterval =
    Number(Key::Zdvfs, "LogSuppressorUpdateInterval", 1, kMostUnsigned, 60, Zero::IsDefault);

inline constexpr Setting kPoolConfigFile = Text(Kind::Path, Key::Pool, "ConfigFilePath", 32767);
inline constexpr Setting kTopLevelDirectory = Text(Kind::Text, Key::Pool, "TopLevelDirectory");

// ---- The files and the environment --------------------------------------------------------------------------------

inline constexpr Setting kIfsCompression = Choice(Key::AgentFile, "IFS_COMPRESSION", 0);
inline constexpr Setting kEncryption = Choice(Key::AgentFile, "ENCRYPTION", 0);
inline constexpr Setting kRestoreDecryptLocal = Switch(Key::AgentFile, "RESTORE_DECRYPT_LOCAL", 1);
inline constexpr Setting kPreferredExtSegKSize =
    Text(Kind::Text, Key::AgentFile, "PREFERRED_EXT_SEGKSIZE", 255, 1, 2097151);

inline constexpr Setting kAgentId = Number(Key::PoolFile, "AgentID", 0, 4294967294, 4294967295);

// Those of the local engine.
inline constexpr Setting kLocalRoot = Text(Kind::Folder, Key::Environment, "ZDVFS_LOCAL_ROOT");
inline constexpr Setting kLocalAppData = Text(Kind::Folder, Key::Environment, "LOCALAPPDATA");
inline constexpr Setting kCreatePools = Switch(Key::EngineFile, "create_pools", 0);
inline constexpr Setting kTopLevel = Text(Kind::Text, Key::EngineFile, "top_level", 240);
inline constexpr Setting kMaxOpenFiles = Number(Key::EngineFile, "max_open_files", 1, kMostSigned, 16384);
inline constexpr Setting kDurableMetadata = Switch(Key::EngineFile, "durable_metadata", 1);

// ---- In words -----------------------------------------------------------------------------------------------------

// The texts are those of the documents: a piece between ` is shown as it stands.
struct Description {
    const Setting& setting;
    const char* type = "";           // as the documents name it
    const char* unit = "";           // the unit of a number, what a text is; empty for none
    const char* standard = nullptr;  // the default in words; null where the number says it
    const char* when = "";           // the calls with which it takes effect
    const char* help = "";           // what the value does
    const char* variable = nullptr;  // one that wins over it; null for none
};

inline constexpr char kDword[] = "REG_DWORD";
inline constexpr char kText[] = "REG_SZ";
inline constexpr char kAnyText[] = "REG_SZ, REG_EXPAND_SZ";
inline constexpr char kLogMoment[] = "object, refresh; at most once an interval";

inline constexpr Description kDescriptions[] = {
    {kAgentPath, kAnyText, "folder, at most 1023 characters, a `\\` at its end", "the folder of the host program",
     "process; for the log as `logpath`", "Folder of zd.conf and of the pools' .cfg files"},
    {kLogPath, kAnyText, "folder, at most 766 bytes in the system's code page",
     "`log` below `Agent`: `path`; none without it",
     "first line of the process that passes the level; each new file after 100 MiB", "Folder of the log files"},
    {kAgentConfigFile, kText, "path, at most 32767 characters", "none", "connect",
     "Configuration file of agent types other than 1 to 3"},
    {kAgentKeyType, kDword, "agent type", nullptr, "connect", "Agent type, read where the key ZDVFS has none"},
    {kAgentType, kDword, "agent type", "that of `Agent`", "connect",
     "Agent type; other than 0 makes connections look for a configuration file"},
    {kMaxFileSizeMB, kDword, "MiB", "51200 (50 GiB)", "object", "Size of a fragment in MiB"},
    {kMaxOpenFragments, kDword, "fragments", nullptr, "connect", "Fragments of one handle that are open at once"},
    {kLocalCacheOff, kDword, "", nullptr, "object", "1 opens files past the storage library's cache"},
    {kEdbDirectIo, kDword, "", nullptr, "map, at each open",
     "0 opens written .edb files for reading too, and through the cache"},
    {kHighestValidNameChar, kDword, "UTF-16 code unit", "0: no rule", "connect, refresh, activity (as the map has it)",
     "Highest character that names may hold; 0 allows all"},
    {kSyncFileCount, kDword, "files", nullptr, "connect, activity", "File count handed to the storage library"},
    {kTaskCloseWait, kDword, "seconds", nullptr, "map, at activity",
     "Time since the first report of activity after which the storage task may stop"},
    {kTaskTimeAdd, kDword, "seconds", nullptr, "map, at activity",
     "Time added when the storage task is renewed; 0 turns renewal off"},
    {kDebugLevel, kDword, "level", nullptr, "object, refresh; activity for the storage's lines",
     "Level of the log: 1 errors, 2 warnings, 3 notices, 6 everything"},
    {kLogSuppressRepeatedMessages, kDword, "", "as the host set it: 0", kLogMoment,
     "1 leaves repeated lines out of the log"},
    {kLogNumMsgs, kDword, "lines", "as the host set it: 16", kLogMoment,
     "Different lines remembered when looking for repetition"},
    {kLogOccurLimit, kDword, "repetitions", "as the host set it: 1000", kLogMoment,
     "Repetitions after which a summary is written"},
    {kLogTimeLimit, kDword, "seconds", "as the host set it: 60", kLogMoment, "Time after which a summary is written"},
    {kLogNumCharsForMatch, kDword, "bytes", "as the host set it: 256", kLogMoment,
     "Leading characters that make two lines equal"},
    {kLogSuppressorUpdateInterval, kDword, "seconds", nullptr, kLogMoment,
     "How often these log settings are read again"},
    {kPoolConfigFile, kText, "path, at most 32767 characters", "none; written by the pool scan", "connect",
     "Configuration file of the pool, for agent types 1 to 3"},
    {kTopLevelDirectory, kText, "a name in the pool's root", "none", "written at connect",
     "Written by the plug-in, never read"},
    {kIfsCompression, "integer", "what the storage library knows", nullptr, "connect",
     "Compression, sent to the pool's root as request 10"},
    {kEncryption, "integer", "what the storage library knows", nullptr, "connect",
     "Encryption, sent to the pool's root as request 9"},
    {kRestoreDecryptLocal, "integer", "", nullptr, "connect", "1 sets the mount flag 0x200"},
    {kPreferredExtSegKSize, "list, at most 255 bytes", "KiB an item", "empty", "connect", "Segment sizes by extension"},
    {kAgentId, "integer", "", "0xFFFFFFFF: none", "connect, activity", "Registers the pool"},
    {kLocalRoot, "text", "a Windows path", "`%LOCALAPPDATA%\\Zdvfs\\pools`", "pool",
     "The folder that holds the pools and engine.ini"},
    {kLocalAppData, "text", "a Windows path", "none: mounting fails with 2", "pool",
     "Used where ZDVFS_LOCAL_ROOT is not set"},
    {kCreatePools, "integer", "", nullptr, "pool", "1 makes a missing pool when it is mounted", "ZDVFS_LOCAL_CREATE"},
    {kTopLevel, "text, UTF-8", "a name of at most 240 characters on disk", "none", "pool",
     "A new pool gets a directory of this name with a QBX_ZD_MARKER in it", "ZDVFS_LOCAL_TOP_LEVEL"},
    {kMaxOpenFiles, "integer", "descriptors", nullptr, "pool", "Open descriptors of the process"},
    {kDurableMetadata, "integer", "", nullptr, "pool", "0: changes of metadata do not wait for the disk"},
};

}  // namespace zdvfs::settings
