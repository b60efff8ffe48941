#include <cstdio>
#include <cwchar>
#include <memory>
#include <vector>

#include "commands/RecordJson.h"
#include "CommandTable.h"
#include "text/Attributes.h"
#include "text/Output.h"
#include "text/Text.h"
#include "text/Times.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct StatOptions {
    std::vector<std::string> remotes;
    bool unopened = false;
    bool json = false;
};

FileInformation Ask(IProtocolManager& manager, const std::wstring& name, bool unopened) {
    if (unopened) return QueryPath(manager, name);
    const ObjectKind kind = KindOf(manager, name, FILE_READ_ATTRIBUTES);
    CRemoteFile object(manager, {name, kind, kZdOpen, FILE_READ_ATTRIBUTES});
    const FileInformation information = object.Query();
    object.Finish();
    return information;
}

std::string ReportedName(const FileInformation& information) {
    return ToUtf8(std::wstring_view(information.name, ::wcsnlen(information.name, std::size(information.name))));
}

CJson ToJson(const std::wstring& name, const FileInformation& information, bool unopened) {
    CJson json;
    json.Set("path", ToUtf8(name));
    if (!unopened) json.Set("name", ReportedName(information));
    json.SetAll(JsonOf(information));
    return json;
}

void Show(const std::wstring& name, const FileInformation& information, bool unopened) {
    char mode[32];
    std::snprintf(mode, sizeof(mode), "0x%x", information.mode);
    WriteLine(ToUtf8(name));
    if (!unopened) WriteLine("  name         " + ReportedName(information));
    WriteLine(std::string("  kind         ") + (IsDirectory(information) ? "directory" : "file"));
    WriteLine("  size         " + std::to_string(information.size));
    WriteLine("  attributes   " + AttributeLetters(information.attributes));
    WriteLine("  created      " + FormatTime(information.creationTime));
    WriteLine("  accessed     " + FormatTime(information.lastAccessTime));
    WriteLine("  written      " + FormatTime(information.lastWriteTime));
    WriteLine("  changed      " + FormatTime(information.changeTime));
    WriteLine(std::string("  mode         ") + mode);
}

void Stat(CommandContext& context, const StatOptions& options) {
    IProtocolManager& manager = context.session.Manager();
    CJson all = CJson::Array();
    for (const std::string& remote : options.remotes) {
        const std::wstring name = RemoteName(remote, context.directory);
        const FileInformation information = Ask(manager, name, options.unopened);
        if (options.json) {
            all.Add(ToJson(name, information, options.unopened));
        } else {
            Show(name, information, options.unopened);
        }
    }
    if (options.json) WriteLine(all.Line());
}

CommandAction DescribeStat(CSyntax command) {
    auto options = std::make_shared<StatOptions>();
    command.AddOption("REMOTE", options->remotes, "Files and directories").Required().TypeName("");
    command.AddFlag("--unopened", options->unopened, "Ask by name, without opening: no name is told back");
    command.AddFlag("--json", options->json, "An array with an object for each");
    command.Footer(
        "The size is that of all fragments. Times are UTC. The first failure ends the command.\n"
        "\n"
        "Examples:\n"
        "  zdhost stat /docs/report.pdf\n"
        "  zdhost stat --json --unopened /docs /docs/report.pdf");
    return [options](CommandContext& context) { Stat(context, *options); };
}

}  // namespace

extern const Command kStatCommand;
const Command kStatCommand{"stat", "Show size, attributes and times", &DescribeStat};

}  // namespace zd::host
