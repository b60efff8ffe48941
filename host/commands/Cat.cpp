#include <algorithm>
#include <memory>

#include "commands/Arguments.h"
#include "CommandTable.h"
#include "text/Failure.h"
#include "text/Interrupt.h"
#include "text/Output.h"
#include "transfer/ReadRange.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct CatOptions {
    std::string remote;
    std::string offset = "0";
    std::string length;
};

void Cat(CommandContext& context, const CatOptions& options) {
    CRemoteFile remote(context.session.Manager(), {RemoteName(options.remote, context.directory)});
    const std::int64_t begin = std::min(SizeOf(options.offset), remote.Size());
    std::int64_t end = remote.Size();
    if (!options.length.empty()) end = begin + std::min(SizeOf(options.length), end - begin);
    ReadRange(remote, begin, end, [](const void* data, DWORD size) {
        CheckInterrupted();
        WriteOutput(data, size);
    });
    FlushOutput();
    remote.Finish();
}

CommandAction DescribeCat(CSyntax command) {
    auto options = std::make_shared<CatOptions>();
    command.AddOption("REMOTE", options->remote, "The file in the pool").Required().TypeName("");
    command.AddOption("--offset", options->offset, "Where to begin, in bytes (K, M, G, T for powers of 1024)")
        .TypeName("N")
        .Check(&CheckSize);
    command.AddOption("--length", options->length, "How many bytes at most (default: to the end)")
        .TypeName("N")
        .Check(&CheckSize);
    command.Footer(
        "Examples:\n"
        "  zdhost cat /docs/notes.txt\n"
        "  zdhost cat /images/big.iso --offset 1M --length 512 > part");
    return [options](CommandContext& context) { Cat(context, *options); };
}

}  // namespace

extern const Command kCatCommand;
const Command kCatCommand{"cat", "Write a file of the pool, or a part of it, to standard output", &DescribeCat};

}  // namespace zd::host
