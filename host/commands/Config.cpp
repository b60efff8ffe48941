#include <memory>

#include "commands/ConfigOutput.h"
#include "CommandTable.h"
#include "text/Failure.h"
#include "text/Text.h"

namespace zd::host {

namespace {

CommandAction DescribeConfig(CSyntax command) {
    struct ConfigOptions {
        bool json = false;
        bool check = false;
        bool list = false;
    };
    auto options = std::make_shared<ConfigOptions>();
    const CArgument check =
        command.AddFlag("--check", options->check, "Only the warnings; exit status 1 where there are any");
    command.AddFlag("--list-settings", options->list, "Every setting that there is, with type, range and default")
        .Excludes(check);
    command.AddFlag("--json", options->json, "One object");
    command.Footer(
        "Shows what the plug-in would read now for a connection to --pool: the value in force, whether it comes from "
        "the\n"
        "registry, from zd.conf or from nowhere (default), and a warning where a value has no effect. No connection is "
        "made.\n"
        "\n"
        "Examples:\n"
        "  zdhost config\n"
        "  zdhost config --check || echo \"look at the settings\"\n"
        "  zdhost --pool backup config --json");
    return [options](CommandContext& context) {
        if (options->list) return ShowSettingTable(options->json);
        const Configuration configuration =
            ReadConfiguration(context.session.LibraryFolder(), ToWide(context.session.PoolName()));
        if (!options->check) return ShowConfiguration(configuration, options->json);
        if (ShowWarnings(configuration, options->json)) throw CToldFailure(kExitFailed);
    };
}

}  // namespace

extern const Command kConfigCommand;
const Command kConfigCommand{"config", "Show every setting in force and where it came from", &DescribeConfig};

}  // namespace zd::host
