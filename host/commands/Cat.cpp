#include <algorithm>
#include <CLI/CLI.hpp>
#include <memory>

#include "Arguments.h"
#include "CommandTable.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Output.h"
#include "ReadRange.h"
#include "RemoteFile.h"
#include "RemoteName.h"

namespace zd {

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

CommandAction DescribeCat(CLI::App& command) {
    auto options = std::make_shared<CatOptions>();
    command.add_option("REMOTE", options->remote, "The file in the pool")->required()->type_name("");
    command.add_option("--offset", options->offset, "Where to begin, in bytes (K, M, G, T for powers of 1024)")
        ->type_name("N")
        ->check(SizeValidator());
    command.add_option("--length", options->length, "How many bytes at most (default: to the end)")
        ->type_name("N")
        ->check(SizeValidator());
    command.footer(
        "Examples:\n"
        "  zdhost cat /docs/notes.txt\n"
        "  zdhost cat /images/big.iso --offset 1M --length 512 > part");
    return [options](CommandContext& context) { Cat(context, *options); };
}

}  // namespace

extern const Command kCatCommand;
const Command kCatCommand{"cat", "Write a file of the pool, or a part of it, to standard output", &DescribeCat};

}  // namespace zd
