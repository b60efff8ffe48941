#include <algorithm>
#include <memory>

#include "CommandTable.h"
#include "text/Failure.h"
#include "text/Text.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"
#include "transfer/Transfer.h"

namespace zd::host {

namespace {

// Large enough to cost nothing, small enough for the progress to move.
constexpr std::int64_t kAppendPiece = 16 * static_cast<std::int64_t>(kPieceSize);

struct AppendOptions {
    std::string source;
    std::string target;
};

// Adds the whole source to the target inside the storage; `disposition` says what becomes of the target before.
void AppendWhole(CommandContext& context, const char* verb, const AppendOptions& options, DWORD disposition) {
    const std::wstring sourceName = RemoteName(options.source, context.directory);
    const std::wstring targetName = RemoteName(options.target, context.directory);
    if (SameRemoteName(sourceName, targetName)) {
        throw CUsageError(std::string(verb) + ": source and target are the same file (case does not count)");
    }
    IProtocolManager& manager = context.session.Manager();
    CRemoteFile source(manager, {sourceName});
    CRemoteFile target(manager, {targetName, ObjectKind::File, disposition, FILE_WRITE_DATA});
    const std::int64_t length = source.Size();
    const std::int64_t begin = target.Size();
    CTransfer transfer(verb, ToUtf8(targetName), static_cast<std::uint64_t>(length), context.quiet);
    for (std::int64_t done = 0; done < length;) {
        const std::int64_t piece = std::min(length - done, kAppendPiece);
        target.Append(begin + done, source, done, piece);
        done += piece;
        transfer.Advance(static_cast<std::uint64_t>(piece));
    }
    target.Finish();
    source.Finish();
    // The operation tells no count, so the size is what shows that everything arrived.
    CRemoteFile written(manager, {targetName});
    if (written.Size() != begin + length) {
        throw CFailure("ZdAppendFile left " + std::to_string(written.Size()) + " bytes where " +
                       std::to_string(begin + length) + " are due: " + ToUtf8(targetName));
    }
    written.Finish();
    transfer.Report();
}

std::shared_ptr<AppendOptions> AddNames(CSyntax command) {
    auto options = std::make_shared<AppendOptions>();
    command.AddOption("SOURCE", options->source, "The file in the pool to copy from").Required().TypeName("");
    command.AddOption("TARGET", options->target, "The file in the pool to copy to").Required().TypeName("");
    return options;
}

CommandAction DescribeCopy(CSyntax command) {
    auto options = AddNames(command);
    command.Footer(
        "The storage copies by itself; no data comes to this machine. A file that exists under TARGET is overwritten.\n"
        "\n"
        "Example:\n"
        "  zdhost cp /docs/report.pdf /docs/report-2.pdf");
    return [options](CommandContext& context) { AppendWhole(context, "cp", *options, kZdOverwriteIf); };
}

CommandAction DescribeAppend(CSyntax command) {
    auto options = AddNames(command);
    command.Footer(
        "The storage copies by itself; no data comes to this machine. TARGET is created where it is missing.\n"
        "\n"
        "Example:\n"
        "  zdhost append /logs/today.log /logs/all.log");
    return [options](CommandContext& context) { AppendWhole(context, "append", *options, kZdOpenIf); };
}

}  // namespace

extern const Command kCopyCommand;
extern const Command kAppendCommand;
const Command kCopyCommand{"cp", "Copy a file inside the pool", &DescribeCopy};
const Command kAppendCommand{"append", "Add a file of the pool to the end of another", &DescribeAppend};

}  // namespace zd::host
