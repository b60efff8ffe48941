#include <algorithm>
#include <memory>

#include "commands/Arguments.h"
#include "CommandTable.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/Text.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

constexpr wchar_t kPrefix[] = L"\\\\.zdvfs\\";

// A control path names the pool itself; the user may leave prefix and pool away.
std::wstring ControlPath(const std::string& text, const std::string& pool, const std::wstring& directory) {
    std::wstring path = ToWide(text);
    if (path.empty()) throw CUsageError("an empty control path");
    std::replace(path.begin(), path.end(), L'/', L'\\');
    if (path.starts_with(kPrefix)) return path;
    if (!directory.empty()) {
        // The separator at the end counts here.
        const bool ends = path.back() == L'\\';
        path = RemoteName(text, directory);
        if (ends && path.back() != L'\\') path += L'\\';
    }
    if (path.front() != L'\\') path.insert(path.begin(), L'\\');
    return kPrefix + ToWide(pool) + path;
}

void Control(CommandContext& context, const std::string& text) {
    IProtocolManager& manager = context.session.Manager();
    const std::wstring path = ControlPath(text, context.session.PoolName(), context.directory);
    if (manager.ZdControlPath(path.c_str()) == 0) {
        throw CFailure("ZdControlPath answered 0, not every directory has a .refresh: " + ToUtf8(path));
    }
    if (!context.quiet) WriteLine("control: refreshed: " + ToUtf8(path));
}

CommandAction DescribeControl(CSyntax command) {
    auto path = std::make_shared<std::string>();
    command.AddOption("PATH", *path, "The path whose directories are to be read anew").Required().TypeName("");
    command.Footer(
        "Each directory below the pool's top on the way to the last separator of PATH needs a file named .refresh; "
        "the\n"
        "first without one ends the walk, and the command fails. A whole control path (\\\\.zdvfs\\POOL\\...) may be "
        "given\n"
        "too.\n"
        "\n"
        "Examples:\n"
        "  zdhost control /docs/2026/\n"
        "  zdhost control '\\\\.zdvfs\\pool\\docs\\'");
    return [path](CommandContext& context) { Control(context, *path); };
}

struct RefreshOptions {
    std::string value = "0";
    bool full = false;
};

CommandAction DescribeRefresh(CSyntax command) {
    auto options = std::make_shared<RefreshOptions>();
    command.AddOption("VALUE", options->value, "With --full: seconds added to the task's renewal (default: 0)")
        .TypeName("")
        .Check(&CheckNumber);
    command.AddFlag("--full", options->full, "Report activity: renews or ends the storage task, looks for pools");
    command.Footer(
        "Without --full the settings are read anew. The task's times live as long as the process, so several calls "
        "make\n"
        "sense in a script: the first one with --full renews the task, later ones when its time has come. What was "
        "sent\n"
        "is seen with \"ioctl --show\" and, at level 6, in the log.\n"
        "\n"
        "Examples:\n"
        "  printf 'refresh --full 30\\nrefresh --full 30\\nioctl --show\\n' | zdhost script\n"
        "  zdhost refresh");
    return [options](CommandContext& context) {
        context.session.Manager().ZdRefreshSettings(NumberOf(options->value), options->full);
    };
}

struct SayOptions {
    std::string text;
    std::string level = "3";
};

CommandAction DescribeSay(CSyntax command) {
    auto options = std::make_shared<SayOptions>();
    command.AddOption("TEXT", options->text, "The line").Required().TypeName("");
    command.AddOption("--level", options->level, "1 error, 2 warning, 3 notice (default), 6 trace")
        .TypeName("N")
        .Check(&CheckNumber);
    command.Footer(
        "The line is written where the log's level (DebugLevel) is not below that of the line.\n"
        "\n"
        "Example:\n"
        "  zdhost say --level 1 \"backup begins\"");
    return [options](CommandContext& context) {
        context.session.Plugin().ZdLogMessage(NumberOf(options->level), (options->text + "\n").c_str());
    };
}

}  // namespace

extern const Command kControlCommand;
extern const Command kRefreshCommand;
extern const Command kSayCommand;
const Command kControlCommand{"control", "Have the storage read the directories of a path anew", &DescribeControl};
const Command kRefreshCommand{"refresh", "Read the settings anew, or report activity of the task", &DescribeRefresh};
const Command kSayCommand{"say", "Write a line into the plug-in's log", &DescribeSay};

}  // namespace zd::host
