#include <memory>
#include <vector>

#include "CommandTable.h"
#include "text/Failure.h"
#include "text/Times.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct TouchOptions {
    std::vector<std::string> remotes;
    std::string access;
    std::string write;
    bool noCreate = false;
};

OpenRequest RequestFor(IProtocolManager& manager, const std::wstring& name, bool noCreate) {
    constexpr DWORD kAccess = FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES;
    FileInformation information{};
    const DWORD code = manager.ZdQueryPathInfo(name.c_str(), &information);
    if (code == ERROR_SUCCESS) {
        return {name, IsDirectory(information) ? ObjectKind::Directory : ObjectKind::File, kZdOpen, kAccess};
    }
    if (code != ERROR_FILE_NOT_FOUND) ThrowFailure("ZdQueryPathInfo", code, name);
    return {name, ObjectKind::File, noCreate ? kZdOpen : kZdOpenIf, kAccess};
}

void Touch(CommandContext& context, const TouchOptions& options) {
    const bool both = options.access.empty() && options.write.empty();
    const std::int64_t now = TimeNow();
    IProtocolManager& manager = context.session.Manager();
    for (const std::string& remote : options.remotes) {
        CRemoteFile object(manager, RequestFor(manager, RemoteName(remote, context.directory), options.noCreate));
        // The two times are set together; the one that is not asked for keeps its value.
        const FileInformation before = object.Query();
        auto access = both ? now : static_cast<std::int64_t>(before.lastAccessTime);
        auto write = both ? now : static_cast<std::int64_t>(before.lastWriteTime);
        if (!options.access.empty()) access = ParseTime(options.access).value();
        if (!options.write.empty()) write = ParseTime(options.write).value();
        object.SetBasic(access, write, /*attributes=*/0);
        object.Finish();
    }
}

std::string CheckTime(const std::string& text) {
    if (ParseTime(text).value_or(0) > 0) return "";
    return "\"" + text + "\" is no time: now, @SECONDS since 1970, or 2026-11-21T05:44:42Z";
}

CommandAction DescribeTouch(CSyntax command) {
    auto options = std::make_shared<TouchOptions>();
    command.AddOption("REMOTE", options->remotes, "Files and directories").Required().TypeName("");
    command.AddOption("--access", options->access, "The time of the last access").TypeName("TIME").Check(&CheckTime);
    command.AddOption("--write", options->write, "The time of the last write").TypeName("TIME").Check(&CheckTime);
    command.AddFlag("-c,--no-create", options->noCreate, "A missing file is a failure, not made");
    command.Footer(
        "Without a time both become the present. With one of them the other keeps its value. A TIME is \"now\", "
        "@SECONDS\n"
        "since 1970, or a date with an optional clock time, in UTC. The storage keeps whole seconds.\n"
        "\n"
        "Examples:\n"
        "  zdhost touch /docs/new.txt\n"
        "  zdhost touch /docs/report.pdf --write 2026-11-21T05:44:42Z\n"
        "  zdhost touch /docs --access @0 --write 2026-11-21");
    return [options](CommandContext& context) { Touch(context, *options); };
}

}  // namespace

extern const Command kTouchCommand;
const Command kTouchCommand{"touch", "Set access and write times", &DescribeTouch};

}  // namespace zd::host
