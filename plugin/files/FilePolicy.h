// How the files of a connection are kept. Plain data: set when the object is made and at connect, read by operations.
#pragma once

#include <cstdint>
#include <vector>

#include "base/UniqueHandle.h"
#include "config/AgentConfiguration.h"
#include "ZdvfsSettings.h"

namespace zd {

constexpr std::int64_t kBytesPerMB = 1'048'576;

struct CFilePolicy {
    bool isLocalCacheOn = zdvfs::settings::kLocalCacheOff.standard == 0;
    // Bytes, of a file that is new.
    std::int64_t fragmentSize = zdvfs::settings::kMaxFileSizeMB.standard * kBytesPerMB;
    std::vector<CExtensionSegment> extensionSegments;  // segment sizes by the ending of the name
    std::uint32_t edbSegmentSize = 0;                  // bytes, of databases; 0: none of their own
    CUniqueRuntimeBlock<char> defaultDescriptor;       // the text that new objects without one are given
};

// The registry's values of it, for an object that is new.
void ReadFilePolicy(bool formerMaker, CFilePolicy& policy) noexcept;

}  // namespace zd
