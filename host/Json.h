// JSON for scripts that read what zdhost writes.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "IProtocolManager.h"

namespace zd {

using Json = nlohmann::ordered_json;

// On one line, without control characters. Text that is no UTF-8 (a name with half a character) has U+FFFD in its
// place.
std::string JsonLine(const Json& value);

// "directory", "size", "attributes", the four times and "mode" of a record; a missing time is null.
Json JsonOf(const FileInformation& record);
Json JsonOf(const DirectoryEntry& record);

// The time as text, null for 0.
Json JsonOfTime(std::uint64_t fileTime);

}  // namespace zd
