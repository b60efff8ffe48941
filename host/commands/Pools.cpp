#include <memory>
#include <set>

#include "CommandTable.h"
#include "text/Failure.h"
#include "text/Json.h"
#include "text/Output.h"
#include "text/Text.h"

namespace zd::host {

namespace {

void ShowPools(CommandContext& context, bool json) {
    std::set<std::wstring> names;
    const DWORD code = context.session.Plugin().ZdEnumerateSpaList(&names);
    // No list has been made yet: no pool is registered.
    if (code != ERROR_FILE_NOT_FOUND) CheckCode("ZdEnumerateSpaList", code, L"");
    CJson all = CJson::Array();
    for (const std::wstring& name : names) {
        json ? all.Add(ToUtf8(name)) : WriteLine(ToUtf8(name));
    }
    if (json) WriteLine(all.Line());
}

CommandAction DescribePools(CSyntax command) {
    auto json = std::make_shared<bool>(false);
    command.AddFlag("--json", *json, "An array of names");
    command.Footer(
        "These are the pools with a key in the registry, which need not exist in the storage. No connection is made.\n"
        "\n"
        "Example:\n"
        "  zdhost pools");
    return [json](CommandContext& context) { ShowPools(context, *json); };
}

CommandAction DescribeTag(CSyntax command) {
    command.Footer(
        "A connection to a pool without a name takes such a tag for one. No connection is made.\n"
        "\n"
        "Example:\n"
        "  zdhost tag");
    return [](CommandContext& context) { WriteLine(ToUtf8(context.session.Plugin().ZdGetRandomTag())); };
}

}  // namespace

extern const Command kPoolsCommand;
extern const Command kTagCommand;
const Command kPoolsCommand{"pools", "List the registered storage pools", &DescribePools};
const Command kTagCommand{"tag", "Show a random tag of the plug-in", &DescribeTag};

}  // namespace zd::host
