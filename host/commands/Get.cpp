#include <CLI/CLI.hpp>
#include <memory>

#include "CommandTable.h"
#include "Failure.h"
#include "LocalFile.h"
#include "ReadRange.h"
#include "RemoteFile.h"
#include "RemoteName.h"
#include "Text.h"
#include "Transfer.h"

namespace zd {

namespace {

struct GetOptions {
    std::string remote;
    std::string local;
};

void Get(CommandContext& context, const GetOptions& options) {
    const std::wstring name = RemoteName(options.remote);
    CRemoteFile remote(context.session.Manager(), {name});
    CLocalWriter local(ToWide(options.local));
    CTransfer transfer("get", ToUtf8(name), static_cast<std::uint64_t>(remote.Size()), context.quiet);
    ReadRange(remote, 0, remote.Size(), [&](const void* data, DWORD size) {
        local.Write(data, size);
        transfer.Advance(size);
    });
    remote.Finish();
    local.Commit();
    transfer.Report();
}

CommandAction DescribeGet(CLI::App& command) {
    auto options = std::make_shared<GetOptions>();
    command.add_option("REMOTE", options->remote, "The file in the pool")->required()->type_name("");
    command.add_option("LOCAL", options->local, "The local file to write")->required()->type_name("");
    command.footer(
        "A local file of that name is replaced when the whole file has arrived; a get that fails leaves it alone.\n"
        "\n"
        "Example:\n"
        "  zdhost get /docs/report.pdf report.pdf");
    return [options](CommandContext& context) { Get(context, *options); };
}

}  // namespace

extern const Command kGetCommand;
const Command kGetCommand{"get", "Copy a file of the pool to a local file", &DescribeGet};

}  // namespace zd
