#include <memory>
#include <vector>

#include "commands/Arguments.h"
#include "CommandTable.h"
#include "config/RegistrySettings.h"
#include "text/Failure.h"
#include "text/LocalPath.h"
#include "text/Output.h"
#include "text/Text.h"

namespace zd::host {

namespace {

struct SetupOptions {
    std::vector<std::string> values;     // by position in SettingOptions()
    std::vector<CArgument> given;        // the same
    std::vector<std::string> poolFiles;  // POOL=FILE
    bool former = false;
    bool show = false;
    bool clear = false;
};

void Store(SettingsTree tree, const Setting& setting, const std::string& value) {
    if (setting.IsNumber()) {
        return StoreNumber(tree, setting, NumberOf(value));
    }
    std::wstring path = AbsolutePath(ToWide(value));
    if (setting.kind == settings::Kind::Folder && path.back() != L'\\') path.push_back(L'\\');
    StoreText(tree, setting, path);
}

void StorePool(SettingsTree tree, const std::string& pair) {
    const std::size_t middle = pair.find('=');
    if (middle == 0 || middle == std::string::npos || middle + 1 == pair.size()) {
        throw CUsageError("--pool-config: \"" + pair + "\" is not of the form POOL=FILE");
    }
    const std::wstring pool = ToWide(std::string_view(pair).substr(0, middle));
    if (pool.find(L'\\') != std::wstring::npos) throw CUsageError("--pool-config: a pool's name holds no \"\\\"");
    StorePoolFile(tree, pool, AbsolutePath(ToWide(std::string_view(pair).substr(middle + 1))));
}

void Show() {
    bool any = false;
    for (const SettingsTree tree : {SettingsTree::Present, SettingsTree::Former}) {
        std::vector<std::wstring> lines;
        if (!ShowSettings(tree, [&lines](const std::wstring& line) { lines.push_back(line); })) continue;
        any = true;
        const bool used = (tree == SettingsTree::Former) == FormerTreeInUse();
        WriteLine("HKEY_LOCAL_MACHINE\\" + ToUtf8(RootOf(tree)) + (used ? "" : " (not in use)"));
        for (const std::wstring& line : lines) WriteLine("  " + ToUtf8(line));
    }
    if (!any) WriteLine("Nothing is set.");
}

void Setup(const SetupOptions& options) {
    const SettingsTree tree = options.former ? SettingsTree::Former : SettingsTree::Present;
    bool asked = options.show || options.clear || !options.poolFiles.empty();
    if (options.clear) ClearSettings(tree);
    const auto known = SettingOptions();
    for (std::size_t i = 0; i < known.size(); ++i) {
        if (!options.given[i].IsGiven()) continue;
        Store(tree, known[i].setting, options.values[i]);
        asked = true;
    }
    for (const std::string& pair : options.poolFiles) StorePool(tree, pair);
    if (!asked) throw CUsageError("setup: nothing to do; see zdhost setup --help");
    if (options.show) Show();
}

CommandAction DescribeSetup(CSyntax command) {
    auto options = std::make_shared<SetupOptions>();
    const auto known = SettingOptions();
    options->values.resize(known.size());
    for (std::size_t i = 0; i < known.size(); ++i) {
        const settings::Description& description = DescriptionOf(known[i].setting);
        std::string help = description.help;
        std::string standard = StandardOf(description);
        std::erase(standard, '`');
        help += " (default: " + standard + ")";
        const CArgument option = command.AddOption(known[i].option, options->values[i], help);
        option.TypeName(known[i].shownAs);
        if (known[i].setting.IsNumber()) option.Check(&CheckNumber);
        options->given.push_back(option);
    }
    command.AddOption("--pool-config", options->poolFiles, "Configuration file of a pool for agent types 1 to 3")
        .TypeName("POOL=FILE")
        .OneValueEach();
    command.AddFlag("--former-tree", options->former, "Write the former maker's tree, used where the other is missing");
    command.AddFlag("--clear", options->clear, "First remove every value that this command knows, and the pools' keys");
    command.AddFlag("--show", options->show, "Show what is set, after the changes");
    command.Footer(
        "Writes what the plug-in reads from HKEY_LOCAL_MACHINE when it starts, which takes administrator rights. "
        "Numbers\n"
        "may be hexadecimal (0x7f). Paths are stored whole.\n"
        "\n"
        "Examples:\n"
        "  zdhost setup --agent-path C:\\agent --log-path C:\\logs --max-file-size-mb 1 --debug-level 6\n"
        "  zdhost setup --agent-type 1 --pool-config pool=C:\\agent\\pool.cfg\n"
        "  zdhost setup --show\n"
        "  zdhost setup --clear");
    return [options](CommandContext&) { Setup(*options); };
}

}  // namespace

extern const Command kSetupCommand;
const Command kSetupCommand{"setup", "Write, show or remove the plug-in's settings in the registry", &DescribeSetup};

}  // namespace zd::host
