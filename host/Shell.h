// The shell: commands as they are typed, with a current directory in the pool.
#pragma once

#include <span>

#include "CommandTable.h"

namespace zd::host {

// What the shell knows besides the commands of the command line, in the order of the help.
std::span<const Command> ShellCommands();

// Reads and runs lines until "exit" or the end of the input. A line comes from the console, which edits it, where
// standard input is one; else it is UTF-8. `prompt` shows the prompt in the second case too. Answers 0, or the status
// of the first line that failed; each failure has been told on standard error.
int RunShell(CommandContext& context, bool prompt);

}  // namespace zd::host
