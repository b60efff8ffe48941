// What zd.conf says of a connection.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ZdvfsSettings.h"

namespace zd {

// The preferred segment size of one extension. An extension carries no dot.
struct CExtensionSegment {
    std::wstring extension;
    std::uint32_t bytes;
};

struct CAgentConfiguration {
    std::int32_t compression = zdvfs::settings::kIfsCompression.Standard<std::int32_t>();
    std::int32_t encryption = zdvfs::settings::kEncryption.Standard<std::int32_t>();
    std::int32_t restoreDecryptLocal = zdvfs::settings::kRestoreDecryptLocal.Standard<std::int32_t>();
    std::vector<CExtensionSegment> segments;
    std::uint32_t edbSegmentSize = 0;  // bytes
};

// Reads zd.conf.
CAgentConfiguration ReadAgentConfiguration();

// Parses a list of extension:KiB items such as "edb:1024,vhd:4096" into the configuration's segment sizes, which are
// emptied first. Sizes are computed in 32 bits and wrap around.
void ParseSegmentSizes(const char* list, CAgentConfiguration& configuration);

}  // namespace zd
