// What a connect does at the root of the pool that it has mounted.
#pragma once

#include <string>

#include "config/AgentConfiguration.h"
#include "files/OpenFiles.h"
#include "protocol/Mount.h"

namespace zd {

// Looks for the directory that carries the marker and tells the registry of it. What cannot be looked at is passed
// over.
void FindTopLevelDirectory(const CMount& mount, const COpenFiles& files, const std::wstring& pool);

// Hands both values to the storage; what it refuses is logged.
void SetCompressionAndEncryption(const CMount& mount, const CAgentConfiguration& configuration);

}  // namespace zd
