#include "commands/ConfigOutput.h"

#include <algorithm>
#include <nlohmann/json.hpp>

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

Json JsonOf(const Setting& setting) {
    const auto number = [](std::int64_t value) { return value == kNoNumber ? Json(nullptr) : Json(value); };
    const auto text = [](const char* value) { return value == nullptr ? Json(nullptr) : Json(value); };
    constexpr const char* kKinds[] = {"number", "switch", "choice", "text", "folder", "path"};
    constexpr const char* kZeros[] = {"counts", "default", "off"};
    Json json;
    json["place"] = ToUtf8(NameOf(setting.key));
    json["name"] = ToUtf8(setting.value);
    json["variable"] = text(setting.variable);
    json["option"] = text(setting.option);
    json["kind"] = kKinds[static_cast<int>(setting.kind)];
    json["type"] = setting.type;
    json["unit"] = setting.unit;
    json["least"] = number(setting.least);
    json["most"] = number(setting.most);
    json["range"] = RangeOf(setting);
    json["default"] = number(setting.standard);
    json["defaultText"] = StandardOf(setting);
    json["zero"] = kZeros[static_cast<int>(setting.zero)];
    json["when"] = setting.when;
    json["help"] = setting.help;
    return json;
}

}  // namespace

void ShowConfiguration(const Configuration& configuration, bool json) {
    json ? ShowJson(configuration) : ShowText(configuration);
}

bool ShowWarnings(const Configuration& configuration, bool json) {
    Json all = Json::array();
    const auto warn = [&all, json](const std::string& name, const std::string& text) {
        all.push_back({{"setting", name.empty() ? Json(nullptr) : Json(name)}, {"text", text}});
        if (!json) WriteLine(name.empty() ? text : name + ": " + text);
    };
    for (const ConfigRow& row : configuration.rows) {
        for (const std::string& warning : row.warnings) warn(row.name, warning);
    }
    for (const std::string& warning : configuration.warnings) warn("", warning);
    if (json) WriteLine(JsonLine({{"warnings", all}}));
    return !all.empty();
}

void ShowSettingTable(bool json) {
    Json all = Json::array();
    for (const Setting& setting : AllSettings()) {
        if (json) {
            all.push_back(JsonOf(setting));
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
    if (json) WriteLine(JsonLine({{"settings", all}}));
}

}  // namespace zd
