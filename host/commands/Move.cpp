#include <memory>

#include "CommandTable.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct MoveOptions {
    std::string from;
    std::string to;
    bool replace = false;
};

void Move(CommandContext& context, const MoveOptions& options) {
    const std::wstring name = RemoteName(options.from, context.directory);
    const std::wstring newName = RemoteName(options.to, context.directory);
    IProtocolManager& manager = context.session.Manager();
    CRemoteFile object(manager, {name, KindOf(manager, name, DELETE), kZdOpen, DELETE});
    object.Rename(newName, options.replace);
    object.Finish();
}

CommandAction DescribeMove(CSyntax command) {
    auto options = std::make_shared<MoveOptions>();
    command.AddOption("OLD", options->from, "The file or directory").Required().TypeName("");
    command.AddOption("NEW", options->to, "Its whole new name, directory included").Required().TypeName("");
    command.AddFlag("-f,--force", options->replace, "Replace a file or an empty directory under NEW");
    command.Footer(
        "A file takes all its fragments along. Without -f nothing is replaced. With it, what stands under NEW is "
        "removed\n"
        "before OLD is renamed.\n"
        "\n"
        "Examples:\n"
        "  zdhost mv /docs/report.pdf /docs/2026/report.pdf\n"
        "  zdhost mv -f /docs/report.new /docs/report.pdf");
    return [options](CommandContext& context) { Move(context, *options); };
}

}  // namespace

extern const Command kMoveCommand;
const Command kMoveCommand{"mv", "Rename a file or directory", &DescribeMove};

}  // namespace zd::host
