// What the engine keeps about an object beside its data, and its text form on disk.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zd::engine {

struct Metadata {
    std::uint32_t attributes = 0;   // Windows attributes, as the caller gave them
    std::int64_t creationTime = 0;  // seconds since 1970-01-01 UTC
    std::string descriptor;         // SDDL text, empty where none is stored
    std::string longName;           // the object's name where the name on disk does not tell it
};

// The text of a sidecar: a head line, a "key=value" line a field and an end line that shows that nothing is missing.
std::string FormatMetadata(const Metadata& metadata);

// Nothing where the text is not whole.
std::optional<Metadata> ParseMetadata(std::string_view text);

}  // namespace zd::engine
