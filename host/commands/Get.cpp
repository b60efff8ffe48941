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

void GetOne(CommandContext& context, const CopyOptions& options) {
    const std::wstring name = RemoteName(options.from, context.directory);
    CRemoteFile remote(context.session.Manager(), {name});
    CLocalWriter local(ToWide(options.to));
    CTransfer transfer("get", ToUtf8(name), static_cast<std::uint64_t>(remote.Size()), context.quiet);
    GetFile(remote, local, options.times, transfer);
    transfer.Report();
}

// What exists as a directory is as good as made.
void MakeLocalDirectory(const std::wstring& path) {
    if (::CreateDirectoryW(path.c_str(), nullptr) != FALSE) return;
    const DWORD code = ::GetLastError();
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    const bool exists = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (!exists) ThrowFailure("making the local directory", code, path);
}

void GetTree(CommandContext& context, const CopyOptions& options) {
    const std::wstring name = RemoteName(options.from, context.directory);
    const std::wstring top = LongPath(ToWide(options.to));
    IProtocolManager& manager = context.session.Manager();
    CTreeTransfer tree("get", ToUtf8(name), options, context.quiet);
    const auto entries = ScanRemoteTree(
        manager, name, [&tree](const std::wstring& path, const std::string& why) { tree.Fail(path, why); });
    MakeLocalDirectory(top);
    tree.Run(
        entries, [&](const TreeEntry& entry) { MakeLocalDirectory(Below(top, entry.path)); },
        [&](const TreeEntry& entry) {
            CRemoteFile remote(manager, {Below(name, entry.path)});
            CLocalWriter local(Below(top, entry.path));
            GetFile(remote, local, options.times, tree.Transfer());
        });
}

CommandAction DescribeGet(CSyntax command) {
    auto options = std::make_shared<CopyOptions>();
    command.AddOption("REMOTE", options->from, "The file in the pool; with -r a directory").Required().TypeName("");
    command.AddOption("LOCAL", options->to, "The local file to write").Required().TypeName("");
    AddCopyOptions(command, *options);
    command.Footer(
        "A local file of that name is replaced when the whole file has arrived; a get that fails leaves it alone.\n"
        "With -r what is in REMOTE goes into LOCAL, which is made where it is missing; what is there already stays or "
        "is\n"
        "replaced. Names that no local file can have, and whatever else fails, are told and left out, and the exit "
        "status\n"
        "is 1.\n"
        "\n"
        "Examples:\n"
        "  zdhost get /docs/report.pdf report.pdf\n"
        "  zdhost get -r -t /docs C:\\docs");
    return
        [options](CommandContext& context) { options->tree ? GetTree(context, *options) : GetOne(context, *options); };
}

}  // namespace

extern const Command kGetCommand;
const Command kGetCommand{"get", "Copy a file of the pool, or a tree with -r, to a local one", &DescribeGet};

}  // namespace zd::host
