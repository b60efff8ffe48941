// The storage agent: its directory, its type, its configuration files and the pools registered for it.
#pragma once

#include <windows.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/SharedString.h"

namespace zd {

// The preferred segment size of one extension. An extension carries no dot.
struct CExtensionSegment {
    std::wstring extension;
    std::uint32_t bytes;
};

// What zd.conf says of a connection.
struct CAgentConfiguration {
    std::int32_t compression = 0;
    std::int32_t encryption = 0;
    std::int32_t restoreDecryptLocal = 1;
    std::vector<CExtensionSegment> segments;
    std::uint32_t edbSegmentSize = 0;  // bytes
};

// Agent types that keep the configuration files of pools in the pool list.
constexpr DWORD kFirstPoolAgent = 1;
constexpr DWORD kLastPoolAgent = 3;

// Finds the agent's directory, once per process: file names are appended to it as it stands.
void DiscoverAgentPath(bool formerMaker);
CWideString AgentPath();

// The agent type, 0 when none is set.
DWORD ReadAgentType() noexcept;

// The configuration file of a pool for that agent type.
std::optional<std::wstring> FindConfigurationFile(DWORD agentType, const std::wstring& pool);

// Registers the pools of the "*.cfg" files in the agent's directory that are new or have changed.
void ScanForPools();

// Inserts the names of the registered pools; 0 or the registry's error.
DWORD EnumeratePools(std::set<std::wstring>& names);

// Reads zd.conf.
CAgentConfiguration ReadAgentConfiguration();

// Parses a list of extension:KiB items such as "edb:1024,vhd:4096" into the configuration's segment sizes, which are
// emptied first. Sizes are computed in 32 bits and wrap around.
void ParseSegmentSizes(const char* list, CAgentConfiguration& configuration);

}  // namespace zd
