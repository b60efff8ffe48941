#include <algorithm>
#include <memory>

#include "CommandTable.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct MakeOptions {
    std::string remote;
    bool parents = false;
};

void Make(CommandContext& context, const MakeOptions& options) {
    const std::wstring name = RemoteName(options.remote, context.directory);
    IProtocolManager& manager = context.session.Manager();
    if (!options.parents) return MakeDirectory(manager, name, kZdCreate);
    for (std::size_t end = 0; end < name.size();) {
        end = std::min(name.find(L'\\', end + 1), name.size());
        MakeDirectory(manager, name.substr(0, end), kZdOpenIf);
    }
}

CommandAction DescribeMakeDirectory(CSyntax command) {
    auto options = std::make_shared<MakeOptions>();
    command.AddOption("REMOTE", options->remote, "The directory to make").Required().TypeName("");
    command.AddFlag("-p,--parents", options->parents, "Make missing parents too; what exists is no failure");
    command.Footer(
        "Examples:\n"
        "  zdhost mkdir /docs\n"
        "  zdhost mkdir -p /images/2026/november");
    return [options](CommandContext& context) { Make(context, *options); };
}

}  // namespace

extern const Command kMakeDirectoryCommand;
const Command kMakeDirectoryCommand{"mkdir", "Make a directory", &DescribeMakeDirectory};

}  // namespace zd::host
