#include <windows.h>

#include <sddl.h>

#include <memory>

#include "CommandTable.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/Text.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct AclOptions {
    std::string remote;
    std::string text;
};

void ShowAcl(CommandContext& context, const AclOptions& options) {
    const std::wstring name = RemoteName(options.remote, context.directory);
    IProtocolManager& manager = context.session.Manager();
    CRemoteFile object(manager, {name, KindOf(manager, name, READ_CONTROL), kZdOpen, READ_CONTROL});
    const std::wstring text = object.SecurityText();
    object.Finish();
    WriteLine(ToUtf8(text));
}

void StoreAcl(CommandContext& context, const AclOptions& options) {
    constexpr DWORD kAccess = WRITE_DAC | WRITE_OWNER;
    const std::wstring name = RemoteName(options.remote, context.directory);
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (::ConvertStringSecurityDescriptorToSecurityDescriptorW(ToWide(options.text).c_str(), SDDL_REVISION_1,
                                                               &descriptor, nullptr) == FALSE) {
        ThrowFailure("reading the descriptor's text", ::GetLastError(), ToWide(options.text));
    }
    const std::unique_ptr<void, decltype(&::LocalFree)> owner(descriptor, &::LocalFree);
    IProtocolManager& manager = context.session.Manager();
    CRemoteFile object(manager, {name, KindOf(manager, name, kAccess), kZdOpen, kAccess});
    object.SetSecurity(descriptor);
    object.Finish();
}

CommandAction DescribeAcl(CSyntax command) {
    auto options = std::make_shared<AclOptions>();
    command.RequireCommand();
    const CSyntax get = command.AddCommand("get", "Show the descriptor of a file or directory as SDDL text");
    get.AddOption("REMOTE", options->remote, "The file or directory").Required().TypeName("");
    get.Footer(
        "The first look at an object without a stored descriptor stores one that makes the caller its owner.\n"
        "\n"
        "Example:\n"
        "  zdhost acl get /docs/report.pdf");
    const CSyntax set = command.AddCommand("set", "Replace the descriptor of a file or directory");
    set.AddOption("REMOTE", options->remote, "The file or directory").Required().TypeName("");
    set.AddOption("SDDL", options->text, "The whole new descriptor").Required().TypeName("");
    set.Footer(
        "The text replaces everything that was stored; what it leaves out is gone. Specific rights such as FA or "
        "0x1f01ff\n"
        "are checked as they stand, generic ones such as GA grant an impersonated caller no data access.\n"
        "\n"
        "Example:\n"
        "  zdhost acl set /docs/report.pdf \"O:BAG:BAD:(A;;FA;;;BA)(A;;0x1200a9;;;WD)\"");
    command.Footer(
        "Examples:\n"
        "  zdhost acl get /docs/report.pdf\n"
        "  zdhost acl set /docs/report.pdf \"O:BAG:BAD:(A;;FA;;;BA)\"");
    return [options, get](CommandContext& context) {
        get.IsGiven() ? ShowAcl(context, *options) : StoreAcl(context, *options);
    };
}

}  // namespace

extern const Command kAclCommand;
const Command kAclCommand{"acl", "Show or replace a security descriptor", &DescribeAcl};

}  // namespace zd::host
