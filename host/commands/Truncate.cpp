#include <memory>

#include "commands/Arguments.h"
#include "CommandTable.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct TruncateOptions {
    std::string remote;
    std::string size;
};

void Truncate(CommandContext& context, const TruncateOptions& options) {
    CRemoteFile remote(context.session.Manager(),
                       {RemoteName(options.remote, context.directory), ObjectKind::File, kZdOpen, FILE_WRITE_DATA});
    remote.SetSize(SizeOf(options.size));
    remote.Finish();
}

CommandAction DescribeTruncate(CSyntax command) {
    auto options = std::make_shared<TruncateOptions>();
    command.AddOption("REMOTE", options->remote, "The file in the pool; it must exist").Required().TypeName("");
    command.AddOption("SIZE", options->size, "Its new size in bytes (K, M, G, T for powers of 1024)")
        .Required()
        .TypeName("")
        .Check(&CheckSize);
    command.Footer(
        "A larger size makes the file grow; the new bytes read as zero.\n"
        "\n"
        "Examples:\n"
        "  zdhost truncate /images/big.iso 10M\n"
        "  zdhost truncate /docs/notes.txt 0");
    return [options](CommandContext& context) { Truncate(context, *options); };
}

}  // namespace

extern const Command kTruncateCommand;
const Command kTruncateCommand{"truncate", "Cut a file, or let it grow, to a size", &DescribeTruncate};

}  // namespace zd::host
