#include "commands/ConfigOutput.h"

#include <algorithm>

#include "text/Json.h"
#include "text/Output.h"
#include "text/Text.h"

namespace zd::host {

namespace {

CJson JsonOf(const ConfigValue& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    return CJson();
}

std::string TextOf(const ConfigValue& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
    if (const auto* text = std::get_if<std::string>(&value)) return "\"" + *text + "\"";
    return "none";
}

void ShowJson(const Configuration& configuration) {
    CJson all;
    all.Set("tree", "HKEY_LOCAL_MACHINE\\" + ToUtf8(RootOf(configuration.tree)));
    CJson settings = CJson::Array();
    for (const ConfigRow& row : configuration.rows) {
        CJson json;
        json.Set("name", row.name);
        json.Set("value", JsonOf(row.value));
        json.Set("source", row.source);
        json.Set("place", row.place.empty() ? CJson() : CJson(row.place));
        json.Set("default", JsonOf(row.defaultValue));
        json.Set("warnings", row.warnings);
        settings.Add(std::move(json));
    }
    all.Set("settings", std::move(settings));
    all.Set("warnings", configuration.warnings);
    WriteLine(all.Line());
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

CJson JsonOf(const settings::Description& description) {
    const Setting& setting = description.setting;
    const auto number = [](std::int64_t value) { return value == settings::kNoNumber ? CJson() : CJson(value); };
    constexpr const char* kKinds[] = {"number", "switch", "choice", "text", "folder", "path"};
    constexpr const char* kZeros[] = {"counts", "default", "off"};
    CJson json;
    json.Set("place", PlaceOf(setting.key).narrow);
    json.Set("name", NameOf(setting));
    json.Set("variable", description.variable);
    json.Set("option", OptionOf(setting));
    json.Set("kind", kKinds[static_cast<int>(setting.kind)]);
    json.Set("type", description.type);
    json.Set("unit", description.unit);
    json.Set("least", number(setting.least));
    json.Set("most", number(setting.most));
    json.Set("range", RangeOf(setting));
    json.Set("default", number(setting.standard));
    json.Set("defaultText", StandardOf(description));
    json.Set("zero", kZeros[static_cast<int>(setting.zero)]);
    json.Set("when", description.when);
    json.Set("help", description.help);
    return json;
}

}  // namespace

void ShowConfiguration(const Configuration& configuration, bool json) {
    json ? ShowJson(configuration) : ShowText(configuration);
}

bool ShowWarnings(const Configuration& configuration, bool json) {
    CJson all = CJson::Array();
    const auto warn = [&all, json](const std::string& name, const std::string& text) {
        all.Add(CJson().Set("setting", name.empty() ? CJson() : CJson(name)).Set("text", text));
        if (!json) WriteLine(name.empty() ? text : name + ": " + text);
    };
    for (const ConfigRow& row : configuration.rows) {
        for (const std::string& warning : row.warnings) warn(row.name, warning);
    }
    for (const std::string& warning : configuration.warnings) warn("", warning);
    const bool any = all.Count() != 0;
    if (json) WriteLine(CJson().Set("warnings", std::move(all)).Line());
    return any;
}

void ShowSettingTable(bool json) {
    CJson all = CJson::Array();
    for (const settings::Description& description : settings::kDescriptions) {
        if (json) {
            all.Add(JsonOf(description));
            continue;
        }
        const Setting& setting = description.setting;
        std::string line = std::string(PlaceOf(setting.key).narrow) + "\\" + NameOf(setting);
        std::string extent = description.unit;
        if (!extent.empty() && !RangeOf(setting).empty()) extent += ", ";
        extent += RangeOf(setting);
        for (const std::string& part : {": " + std::string(description.type), "; " + extent,
                                        "; default " + StandardOf(description), "; " + std::string(description.when)}) {
            line += part;
        }
        std::erase(line, '`');
        WriteLine(line);
    }
    if (json) WriteLine(CJson().Set("settings", std::move(all)).Line());
}

}  // namespace zd::host
