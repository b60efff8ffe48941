// Every setting that the plug-in reads, as it would read it now.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "config/RegistrySettings.h"

namespace zd::host {

using ConfigValue = std::variant<std::monostate, std::int64_t, std::string>;

struct ConfigRow {
    std::string name;
    ConfigValue value;         // in force; empty for none
    std::string source;        // "registry", "zd.conf" or "default"
    std::string place;         // the registry value or the file that it came from; empty for a default
    ConfigValue defaultValue;  // empty for none
    std::vector<std::string> warnings;
};

struct Configuration {
    SettingsTree tree = SettingsTree::Present;
    std::vector<ConfigRow> rows;
    std::vector<std::string> warnings;  // those that belong to no row
};

// Reads the registry and, through the hul.dll of `libraryFolder`, the agent's zd.conf, for connections to `pool`.
// Throws CFailure where the registry refuses.
Configuration ReadConfiguration(const std::wstring& libraryFolder, const std::wstring& pool);

// The folder of the log files, with or without a separator at its end, and the value that names it. The log does not
// fall back to the program's folder as everything else does.
struct LogFolder {
    std::wstring path;
    std::string place;
};
std::optional<LogFolder> FindLogFolder(SettingsTree tree);

// Adds the rows of zd.conf in the agent's folder.
void AddFileRows(Configuration& configuration, const std::wstring& libraryFolder, const std::wstring& agentFolder);

// What becomes of a pool that is not registered and whose file would be `file`, for a warning.
std::string JudgePoolFile(const std::wstring& libraryFolder, const std::wstring& file);

// Says where a list of segment sizes is not what its writer may have meant.
std::vector<std::string> JudgeSizeList(const std::string& list);

// Adds the warnings that depend on a value itself or on others: needs every row.
void JudgeConfiguration(Configuration& configuration);

}  // namespace zd::host
