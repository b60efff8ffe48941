// File attributes as the user reads and writes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zd::host {

// One place a letter, "-" where the bit is clear: D directory, R read-only, H hidden, S system, A archive, T temporary,
// I not indexed, N normal. Other bits follow as "+0x10000".
std::string AttributeLetters(std::uint64_t attributes);

// "readonly", "hidden" and so on for every bit that is set; others as "0x10000".
std::vector<std::string> AttributeNames(std::uint64_t attributes);

// Letters in either case, without D, or a number; nothing for anything else.
std::optional<std::uint32_t> ParseAttributes(std::string_view text);

}  // namespace zd::host
