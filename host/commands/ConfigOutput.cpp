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

CJson JsonOf(const Setting& setting) {
    const auto number = [](std::int64_t value) { return value == kNoNumber ? CJson() : CJson(value); };
    constexpr const char* kKinds[] = {"number", "switch", "choice", "text", "folder", "path"};
    constexpr const char* kZeros[] = {"counts", "default", "off"};
    CJson json;
    json.Set("place", ToUtf8(NameOf(setting.key)));
    json.Set("name", ToUtf8(setting.value));
    json.Set("variable", setting.variable);
    json.Set("option", setting.option);
    json.Set("kind", kKinds[static_cast<int>(setting.kind)]);
    json.Set("type", setting.type);
    json.Set("unit", setting.unit);
    json.Set("least", number(setting.least));
    json.Set("most", number(setting.most));
    json.Set("range", RangeOf(setting));
    json.Set("default", number(setting.standard));
    json.Set("defaultText", StandardOf(setting));
    json.Set("zero", kZeros[static_cast<int>(setting.zero)]);
    json.Set("when", setting.when);
    json.Set("help", setting.help);
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
    for (const Setting& setting : AllSettings()) {
        if (json) {
            all.Add(JsonOf(setting));
            continue;
        }
        std::string line = ToUtf8(NameOf(setting.key)) + "\\" + ToUtf8(setting.value);
        std::string extent = setting.unit;
        if (!extent.empty() && !RangeOf(setting).empty()) extent += ", ";
        extent += RangeOf(setting);
        for (const std::string& part : {": " + std::string(setting.type), "; " + extent,
                                        "; default " + StandardOf(setting), "; " + std::string(setting.when)}) {
            line += part;
        }
        std::erase(line, '`');
        WriteLine(line);
    }
    if (json) WriteLine(CJson().Set("settings", std::move(all)).Line());
}

}  // namespace zd::host
