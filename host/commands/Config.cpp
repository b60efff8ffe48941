#include <algorithm>
#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>

#include "CommandTable.h"
#include "Configuration.h"
#include "Json.h"
#include "Output.h"
#include "Text.h"

namespace zd {

namespace {

Json JsonOf(const ConfigValue& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    return nullptr;
}

std::string TextOf(const ConfigValue& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
    if (const auto* text = std::get_if<std::string>(&value)) return "\"" + *text + "\"";
    return "none";
}

void ShowJson(const Configuration& configuration) {
    Json all;
    all["tree"] = "HKEY_LOCAL_MACHINE\\" + ToUtf8(RootOf(configuration.tree));
    all["settings"] = Json::array();
    for (const ConfigRow& row : configuration.rows) {
        Json json;
        json["name"] = row.name;
        json["value"] = JsonOf(row.value);
        json["source"] = row.source;
        json["place"] = row.place.empty() ? Json(nullptr) : Json(row.place);
        json["default"] = JsonOf(row.defaultValue);
        json["warnings"] = row.warnings;
        all["settings"].push_back(std::move(json));
    }
    all["warnings"] = configuration.warnings;
    WriteLine(JsonLine(all));
}

void ShowText(const Configuration& configuration) {
    constexpr std::size_t kNameWidth = 29;
    constexpr std::size_t kValueWidth = 12;
    const auto pad = [](const std::string& text, std::size_t width) {
        return text + std::string(std::max(width, text.size() + 1) - text.size(), ' ');
    };
    WriteLine("HKEY_LOCAL_MACHINE\\" + ToUtf8(RootOf(configuration.tree)));
    for (const ConfigRow& row : configuration.rows) {
        const std::string from = row.place.empty() ? row.source : row.source + " " + row.place;
        WriteLine("  " + pad(row.name, kNameWidth) + pad(TextOf(row.value), kValueWidth) + from);
        for (const std::string& warning : row.warnings) WriteLine("      warning: " + warning);
    }
    for (const std::string& warning : configuration.warnings) WriteLine("warning: " + warning);
}

CommandAction DescribeConfig(CLI::App& command) {
    auto json = std::make_shared<bool>(false);
    command.add_flag("--json", *json, "One object");
    command.footer(
        "Shows what the plug-in would read now for a connection to --pool: the value in force, whether it comes from "
        "the\n"
        "registry, from zd.conf or from nowhere (default), and a warning where a value has no effect. No connection is "
        "made.\n"
        "\n"
        "Examples:\n"
        "  zdhost config\n"
        "  zdhost --pool backup config --json");
    return [json](CommandContext& context) {
        const Configuration configuration =
            ReadConfiguration(context.session.LibraryFolder(), ToWide(context.session.PoolName()));
        *json ? ShowJson(configuration) : ShowText(configuration);
    };
}

}  // namespace

extern const Command kConfigCommand;
const Command kConfigCommand{"config", "Show every setting in force and where it came from", &DescribeConfig};

}  // namespace zd
