#include <windows.h>

#include <memory>
#include <vector>

#include "Shell.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/Text.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

CommandAction DescribeEnter(CSyntax command) {
    auto remote = std::make_shared<std::string>("/");
    command.AddOption("DIR", *remote, "The directory in the pool (default: the top of the pool)").TypeName("");
    command.Footer(
        "Names without a separator in front are taken from the current directory; \".\" is that directory, \"..\" the\n"
        "one above it.\n"
        "\n"
        "Examples:\n"
        "  cd docs/2026\n"
        "  cd ..");
    return [remote](CommandContext& context) {
        std::wstring name = RemoteName(*remote, context.directory);
        if (!IsDirectory(QueryPath(context.session.Manager(), name))) {
            throw CFailure("cd: that is a file: " + ToUtf8(name));
        }
        context.directory = std::move(name);
    };
}

CommandAction DescribeWhere(CSyntax command) {
    command.Footer("Example:\n  pwd");
    return [](CommandContext& context) { WriteLine(ToUtf8(context.directory)); };
}

CommandAction DescribeLocalEnter(CSyntax command) {
    auto local = std::make_shared<std::string>();
    command.AddOption("DIR", *local, "The local directory").Required().TypeName("");
    command.Footer("Local names of put, get and write are taken from there.\n\nExample:\n  lcd C:\\data");
    return [local](CommandContext&) {
        const std::wstring path = ToWide(*local);
        if (::SetCurrentDirectoryW(path.c_str()) == FALSE) ThrowFailure("lcd", ::GetLastError(), path);
    };
}

CommandAction DescribeLocalWhere(CSyntax command) {
    command.Footer("Example:\n  lpwd");
    return [](CommandContext&) {
        std::wstring path(32768, L'\0');
        const DWORD length = ::GetCurrentDirectoryW(static_cast<DWORD>(path.size()), path.data());
        if (length == 0 || length >= path.size()) ThrowFailure("lpwd", ::GetLastError(), L"");
        path.resize(length);
        WriteLine(ToUtf8(path));
    };
}

CommandAction DescribeReconnect(CSyntax command) {
    command.Footer("The next command that needs a connection makes a new one.\n\nExample:\n  reconnect");
    return [](CommandContext& context) { context.session.Disconnect(); };
}

CommandAction DescribeHelp(CSyntax command) {
    auto names = std::make_shared<std::vector<std::string>>();
    command.AddOption("COMMAND", *names, "The command; without it, all of them are listed").TypeName("");
    command.Footer("Examples:\n  help\n  help put\n  help acl set");
    return [names, command](CommandContext&) {
        CSyntax about = command.Parent();
        for (const std::string& name : *names) {
            const auto found = about.Find(name);
            if (!found) throw CUsageError("there is no command \"" + name + "\"");
            about = *found;
        }
        const std::string text = about.Help();
        WriteOutput(text.data(), text.size());
        FlushOutput();
    };
}

CommandAction DescribeEnd(CSyntax command) {
    command.Footer("The end of the input, Ctrl-Z and Enter on a console, does the same.\n\nExample:\n  exit");
    return [](CommandContext& context) { context.ended = true; };
}

constexpr Command kShellCommands[] = {
    {"cd", "Change the current directory in the pool", &DescribeEnter},
    {"pwd", "Show the current directory in the pool", &DescribeWhere},
    {"lcd", "Change the local current directory", &DescribeLocalEnter},
    {"lpwd", "Show the local current directory", &DescribeLocalWhere},
    {"reconnect", "Give the connection up", &DescribeReconnect},
    {"help", "Show the commands, or one of them", &DescribeHelp},
    {"exit", "End the shell", &DescribeEnd},
    {"quit", "End the shell", &DescribeEnd},
};

}  // namespace

std::span<const Command> ShellCommands() {
    return kShellCommands;
}

}  // namespace zd::host
