#include <memory>
#include <vector>

#include "CommandTable.h"
#include "text/Attributes.h"
#include "text/Failure.h"
#include "text/Output.h"
#include "text/Text.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

struct AttributeOptions {
    std::vector<std::string> remotes;
    std::string set;
    std::string clear;
    std::string value;
};

// What the attributes are to become. "Normal" stands alone, and 0 would mean to leave them as they are.
DWORD Changed(DWORD attributes, const AttributeOptions& options) {
    if (!options.value.empty()) return ParseAttributes(options.value).value();
    if (!options.clear.empty()) attributes &= ~ParseAttributes(options.clear).value();
    if (!options.set.empty()) attributes |= ParseAttributes(options.set).value();
    if ((attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL)) != 0) {
        attributes &= ~static_cast<DWORD>(FILE_ATTRIBUTE_NORMAL);
    }
    return attributes != 0 ? attributes : FILE_ATTRIBUTE_NORMAL;
}

void Attrib(CommandContext& context, const AttributeOptions& options) {
    if (!options.value.empty() && ParseAttributes(options.value) == 0U) {
        throw CUsageError("attrib: the value 0 would leave the attributes as they are");
    }
    const bool changes = !options.set.empty() || !options.clear.empty() || !options.value.empty();
    const DWORD access = FILE_READ_ATTRIBUTES | (changes ? FILE_WRITE_ATTRIBUTES : 0U);
    IProtocolManager& manager = context.session.Manager();
    for (const std::string& remote : options.remotes) {
        const std::wstring name = RemoteName(remote, context.directory);
        CRemoteFile object(manager, {name, KindOf(manager, name, access), kZdOpen, access});
        const std::uint64_t attributes = object.Query().attributes;
        if (changes) object.SetBasic(0, 0, Changed(static_cast<DWORD>(attributes), options));
        object.Finish();
        if (!changes) WriteLine(AttributeLetters(attributes) + "  " + ToUtf8(name));
    }
}

std::string CheckAttributes(const std::string& text) {
    return ParseAttributes(text) ? "" : "\"" + text + "\": letters of RHSATIN or a number";
}

CommandAction DescribeAttrib(CSyntax command) {
    auto options = std::make_shared<AttributeOptions>();
    command.AddOption("REMOTE", options->remotes, "Files and directories").Required().TypeName("");
    const CArgument set = command.AddOption("--set", options->set, "Attributes to set, as letters or a number");
    const CArgument clear = command.AddOption("--clear", options->clear, "Attributes to clear");
    const CArgument value = command.AddOption("--value", options->value, "The whole value, handed on as it stands");
    for (const CArgument option : {set, clear, value}) option.TypeName("LETTERS").Check(&CheckAttributes);
    value.Excludes(set).Excludes(clear);
    command.Footer(
        "Without --set, --clear and --value the attributes are shown. Letters: Read-only, Hidden, System, Archive,\n"
        "Temporary, not Indexed, Normal; the D of a directory cannot be changed. Other bits are given as a number. "
        "The\n"
        "storage keeps the low 16 bits.\n"
        "\n"
        "Examples:\n"
        "  zdhost attrib /docs/report.pdf\n"
        "  zdhost attrib /docs/report.pdf --set rh --clear a\n"
        "  zdhost attrib /docs/report.pdf --value 0x2020");
    return [options](CommandContext& context) { Attrib(context, *options); };
}

}  // namespace

extern const Command kAttribCommand;
const Command kAttribCommand{"attrib", "Show or change attributes", &DescribeAttrib};

}  // namespace zd::host
