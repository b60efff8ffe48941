#include <memory>

#include "commands/Arguments.h"
#include "CommandTable.h"
#include "text/Failure.h"
#include "text/LocalPath.h"
#include "text/Text.h"
#include "transfer/FileCopy.h"
#include "transfer/LocalFile.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"
#include "transfer/Transfer.h"
#include "transfer/Tree.h"

namespace zd::host {

namespace {

void PutOne(CommandContext& context, const CopyOptions& options) {
    const std::wstring name = RemoteName(options.to, context.directory);
    if (options.times && options.from == "-") throw CUsageError("put: standard input has no time for --times");
    CLocalReader local(ToWide(options.from), context.standardInputFree);
    CRemoteFile remote(context.session.Manager(), RequestToPut(name, options.times));
    CTransfer transfer("put", ToUtf8(name), local.Size(), context.quiet);
    PutFile(local, remote, options.times, transfer);
    transfer.Report();
}

void PutTree(CommandContext& context, const CopyOptions& options) {
    const std::wstring name = RemoteName(options.to, context.directory);
    const std::wstring top = LongPath(ToWide(options.from));
    IProtocolManager& manager = context.session.Manager();
    CTreeTransfer tree("put", ToUtf8(name), options, context.quiet);
    const auto entries =
        ScanLocalTree(top, [&tree](const std::wstring& path, const std::string& why) { tree.Fail(path, why); });
    MakeDirectory(manager, name, kZdOpenIf);
    tree.Run(
        entries, [&](const TreeEntry& entry) { MakeDirectory(manager, Below(name, entry.path), kZdOpenIf); },
        [&](const TreeEntry& entry) {
            CLocalReader local(Below(top, entry.path), /*standardInputFree=*/false);
            CRemoteFile remote(manager, RequestToPut(Below(name, entry.path), options.times));
            PutFile(local, remote, options.times, tree.Transfer());
        });
}

CommandAction DescribePut(CSyntax command) {
    auto options = std::make_shared<CopyOptions>();
    command.AddOption("LOCAL", options->from, "The local file; - is standard input. With -r a directory")
        .Required()
        .TypeName("");
    command.AddOption("REMOTE", options->to, "Its name in the pool").Required().TypeName("");
    AddCopyOptions(command, *options);
    command.Footer(
        "A file that exists under REMOTE is overwritten. A put that fails midway leaves the file incomplete.\n"
        "With -r what is in LOCAL goes into REMOTE, which is made where it is missing; what is there already stays or "
        "is\n"
        "overwritten. What fails is told and left out, and the exit status is 1.\n"
        "\n"
        "Examples:\n"
        "  zdhost put report.pdf /docs/report.pdf\n"
        "  zdhost put -r -t C:\\docs /docs\n"
        "  tar -c src | zdhost put - /backup/src.tar");
    return
        [options](CommandContext& context) { options->tree ? PutTree(context, *options) : PutOne(context, *options); };
}

}  // namespace

extern const Command kPutCommand;
const Command kPutCommand{"put", "Copy a local file, or a tree with -r, into the pool", &DescribePut};

}  // namespace zd::host
