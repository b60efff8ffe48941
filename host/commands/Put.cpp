#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "CommandTable.h"
#include "Failure.h"
#include "LocalFile.h"
#include "RemoteFile.h"
#include "RemoteName.h"
#include "Text.h"
#include "Transfer.h"

namespace zd {

namespace {

struct PutOptions {
    std::string local;
    std::string remote;
};

void Put(CommandContext& context, const PutOptions& options) {
    const std::wstring name = RemoteName(options.remote);
    CLocalReader local(ToWide(options.local), context.standardInputFree);
    CRemoteFile remote(context.session.Manager(), {name, ObjectKind::File, kZdOverwriteIf, FILE_WRITE_DATA});
    CTransfer transfer("put", ToUtf8(name), local.Size(), context.quiet);
    std::vector<char> piece(kPieceSize);
    std::int64_t offset = 0;
    while (const DWORD got = local.Read(piece.data(), kPieceSize)) {
        remote.Write(offset, piece.data(), got);
        offset += got;
        transfer.Advance(got);
    }
    remote.Finish();
    transfer.Report();
}

CommandAction DescribePut(CLI::App& command) {
    auto options = std::make_shared<PutOptions>();
    command.add_option("LOCAL", options->local, "The local file; - is standard input")->required()->type_name("");
    command.add_option("REMOTE", options->remote, "Its name in the pool")->required()->type_name("");
    command.footer(
        "A file that exists under REMOTE is overwritten. A put that fails midway leaves the file incomplete.\n"
        "\n"
        "Examples:\n"
        "  zdhost put report.pdf /docs/report.pdf\n"
        "  tar -c src | zdhost put - /backup/src.tar");
    return [options](CommandContext& context) { Put(context, *options); };
}

}  // namespace

extern const Command kPutCommand;
const Command kPutCommand{"put", "Copy a local file into the pool", &DescribePut};

}  // namespace zd
