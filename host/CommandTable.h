// The table of zdhost's commands. A further command is one more file in commands/ and one more line in the table.
#pragma once

#include <functional>
#include <span>
#include <string>

#include "Parser.h"
#include "Session.h"

namespace zd::host {

// What a command runs with.
struct CommandContext {
    CSession& session;
    bool quiet;                   // no progress, no reports
    bool standardInputFree;       // false while standard input holds the commands
    std::wstring directory = {};  // the shell's current one, such as "\dir"; empty outside the shell
    bool ended = false;           // the shell has been told to end
};

// Does what the parsed arguments ask for. Throws CFailure or CUsageError.
using CommandAction = std::function<void(CommandContext&)>;

struct Command {
    const char* name;
    const char* summary;  // one line of the help
    // Gives the command its arguments and its help. The answered action owns what they are parsed into.
    CommandAction (*describe)(CSyntax command);
};

// In the order of the help.
std::span<const Command* const> Commands();

}  // namespace zd::host
