// The pools that the registry knows, and the configuration files that bring them there.
#pragma once

#include <windows.h>

#include <optional>
#include <set>
#include <string>

namespace zd {

// The configuration file of a pool for that agent type.
std::optional<std::wstring> FindConfigurationFile(DWORD agentType, const std::wstring& pool);

// Registers the pools of the "*.cfg" files in the agent's directory that are new or have changed.
void ScanForPools();

// Inserts the names of the registered pools; 0 or the registry's error.
DWORD EnumeratePools(std::set<std::wstring>& names);

}  // namespace zd
