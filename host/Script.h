// Scripts: commands on standard input, one a line.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CommandTable.h"

namespace zd {

// Splits a line into words: blanks separate, "double" and 'single' quotes hold words together, a doubled quote inside
// them is the quote itself. Empty for a blank line and for a comment; nothing where a quote is not closed.
std::optional<std::vector<std::string>> SplitLine(std::string_view line);

// Runs the lines of standard input. Answers 0, or the status of the first line that failed, which has been told with
// its number on standard error and has ended the script unless `keepGoing`.
int RunScript(CommandContext& context, bool keepGoing);

}  // namespace zd
