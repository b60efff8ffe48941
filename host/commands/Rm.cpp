#include <memory>
#include <vector>

#include "CommandTable.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct RemoveOptions {
    std::vector<std::string> remotes;
    bool directory = false;
};

void Remove(CommandContext& context, const RemoveOptions& options) {
    const ObjectKind kind = options.directory ? ObjectKind::Directory : ObjectKind::File;
    for (const std::string& remote : options.remotes) {
        CRemoteFile object(context.session.Manager(), {RemoteName(remote, context.directory), kind, kZdOpen, DELETE});
        object.FinishAndDelete();
    }
}

CommandAction DescribeRemove(CSyntax command) {
    auto options = std::make_shared<RemoveOptions>();
    command.AddOption("REMOTE", options->remotes, "What to remove, in this order").Required().TypeName("");
    command.AddFlag("-d,--directory", options->directory, "Remove empty directories instead of files");
    command.Footer(
        "A file goes with all its fragments. The first failure ends the command.\n"
        "\n"
        "Examples:\n"
        "  zdhost rm /docs/report.pdf\n"
        "  zdhost rm -d /docs");
    return [options](CommandContext& context) { Remove(context, *options); };
}

}  // namespace

extern const Command kRemoveCommand;
const Command kRemoveCommand{"rm", "Remove files or empty directories", &DescribeRemove};

}  // namespace zd::host
