// From words to a running command: the command line, and each line of a script.
#pragma once

#include <string>
#include <vector>

#include "CommandTable.h"

namespace zd::host {

// Runs the program on its arguments (UTF-8, without the program's name) and answers its exit status: 0, 1 where
// something failed, 2 for arguments that make no sense. Failures are told on standard error.
int RunCommandLine(const std::vector<std::string>& arguments);

// Runs one command of a script. Answers as RunCommandLine does, but throws CFatalFailure; `where` ("line 3: ") stands
// in front of what it tells.
int RunScriptCommand(const std::vector<std::string>& words, CommandContext& context, const std::string& where);

// The same for a line of the shell, which knows the words of ShellCommands besides.
int RunShellCommand(const std::vector<std::string>& words, CommandContext& context, const std::string& where);

}  // namespace zd::host
