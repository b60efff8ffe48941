// Scripts: commands on standard input, one a line.
#pragma once

#include "CommandTable.h"

namespace zd::host {

// Runs the lines of standard input. Answers 0, or the status of the first line that failed, which has been told with
// its number on standard error and has ended the script unless `keepGoing`.
int RunScript(CommandContext& context, bool keepGoing);

}  // namespace zd::host
