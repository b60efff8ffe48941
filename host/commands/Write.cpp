#include <memory>

#include "commands/Arguments.h"
#include "CommandTable.h"
#include "text/Text.h"
#include "transfer/FileCopy.h"
#include "transfer/LocalFile.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"
#include "transfer/Transfer.h"

namespace zd::host {

namespace {

struct WriteOptions {
    std::string remote;
    std::string local;
    std::string offset;
};

void Write(CommandContext& context, const WriteOptions& options) {
    const std::wstring name = RemoteName(options.remote, context.directory);
    CLocalReader local(ToWide(options.local), context.standardInputFree);
    CRemoteFile remote(context.session.Manager(), {name, ObjectKind::File, kZdOpen, FILE_WRITE_DATA});
    CTransfer transfer("write", ToUtf8(name), local.Size(), context.quiet);
    CopyInto(remote, SizeOf(options.offset), local, transfer);
    remote.Finish();
    transfer.Report();
}

CommandAction DescribeWrite(CSyntax command) {
    auto options = std::make_shared<WriteOptions>();
    command.AddOption("REMOTE", options->remote, "The file in the pool; it must exist").Required().TypeName("");
    command.AddOption("LOCAL", options->local, "The local file with the new bytes; - is standard input")
        .Required()
        .TypeName("");
    command.AddOption("--offset", options->offset, "Where the first byte goes (K, M, G, T for powers of 1024)")
        .Required()
        .TypeName("N")
        .Check(&CheckSize);
    command.Footer(
        "What stands before and behind the new bytes stays. Behind the end the file grows; bytes between read as "
        "zero.\n"
        "\n"
        "Examples:\n"
        "  zdhost write /images/big.iso patch.bin --offset 1M\n"
        "  printf abc | zdhost write /docs/notes.txt - --offset 10");
    return [options](CommandContext& context) { Write(context, *options); };
}

}  // namespace

extern const Command kWriteCommand;
const Command kWriteCommand{"write", "Overwrite bytes in the middle of a file", &DescribeWrite};

}  // namespace zd::host
