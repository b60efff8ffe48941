// How the files of a connection are kept. Plain data: set when the object is made and at connect, read by operations.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "config/AgentConfiguration.h"

namespace zd {

struct CFilePolicy {
    bool isLocalCacheOn = true;
    std::int64_t fragmentSize = 53'687'091'200;        // bytes, of a file that is new
    std::vector<CExtensionSegment> extensionSegments;  // segment sizes by the ending of the name
    std::uint32_t edbSegmentSize = 0;                  // bytes, of databases; 0: none of their own
    std::string defaultDescriptor;                     // the text that new objects without one are given
};

// The registry's values of it. What is not set stays as it is.
void ReadFilePolicy(bool formerMaker, CFilePolicy& policy) noexcept;

}  // namespace zd
