// Arguments that several commands take.
#pragma once

#include <cstdint>
#include <string>

#include "Parser.h"
#include "transfer/Tree.h"

namespace zd::host {

// Accepts a size or an offset; the text stays as it is and is read with SizeOf.
std::string CheckSize(const std::string& text);
// Text that CheckSize has accepted.
std::int64_t SizeOf(const std::string& text);

// Accepts a 32-bit number, decimal or hexadecimal; the text stays as it is and is read with NumberOf.
std::string CheckNumber(const std::string& text);
// Text that CheckNumber has accepted.
std::uint32_t NumberOf(const std::string& text);

// -r, -t and --json, as put and get have them.
void AddCopyOptions(CSyntax command, CopyOptions& options);

}  // namespace zd::host
