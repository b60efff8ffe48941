#include "config/SettingOptions.h"

#include <algorithm>
#include <iterator>

namespace zd::host {

namespace {

constexpr SettingOption kOptions[] = {
    {settings::kAgentPath, "--agent-path", "FOLDER"},
    {settings::kLogPath, "--log-path", "FOLDER"},
    {settings::kAgentConfigFile, "--config-file", "FILE"},
    {settings::kAgentKeyType, "--agent-key-type", "N"},
    {settings::kAgentType, "--agent-type", "N"},
    {settings::kMaxFileSizeMB, "--max-file-size-mb", "N"},
    {settings::kMaxOpenFragments, "--max-open-fragments", "N"},
    {settings::kLocalCacheOff, "--local-cache-off", "0|1"},
    {settings::kEdbDirectIo, "--edb-direct-io", "0|1"},
    {settings::kHighestValidNameChar, "--highest-valid-name-char", "N"},
    {settings::kSyncFileCount, "--sync-file-count", "N"},
    {settings::kTaskCloseWait, "--task-close-wait", "SECONDS"},
    {settings::kTaskTimeAdd, "--task-time-add", "SECONDS"},
    {settings::kDebugLevel, "--debug-level", "N"},
    {settings::kLogSuppressRepeatedMessages, "--log-suppress", "0|1"},
    {settings::kLogNumMsgs, "--log-num-msgs", "N"},
    {settings::kLogOccurLimit, "--log-occur-limit", "N"},
    {settings::kLogTimeLimit, "--log-time-limit", "SECONDS"},
    {settings::kLogNumCharsForMatch, "--log-chars-for-match", "N"},
    {settings::kLogSuppressorUpdateInterval, "--log-update-interval", "SECONDS"},
};

constexpr bool IsWritten(const settings::Description& description) {
    const settings::Key key = description.setting.key;
    return key == settings::Key::Zdvfs || key == settings::Key::Agent;
}

// The options go with the table: neither has a value of these keys that the other has not.
constexpr bool IsEachWritten() {
    auto option = std::begin(kOptions);
    for (const settings::Description& description : settings::kDescriptions) {
        if (!IsWritten(description)) continue;
        if (option == std::end(kOptions) || &option->setting != &description.setting) return false;
        ++option;
    }
    return option == std::end(kOptions);
}
static_assert(IsEachWritten(), "a value of ZDVFS or Agent has no option of zdhost setup, or not in its place");

}  // namespace

std::span<const SettingOption> SettingOptions() {
    return kOptions;
}

const char* OptionOf(const Setting& setting) {
    const auto* const option =
        std::ranges::find(kOptions, &setting, [](const SettingOption& each) { return &each.setting; });
    return option != std::end(kOptions) ? option->option : nullptr;
}

const settings::Description& DescriptionOf(const Setting& setting) {
    return *std::ranges::find(settings::kDescriptions, &setting,
                              [](const settings::Description& each) { return &each.setting; });
}

std::string RangeOf(const Setting& setting) {
    if (setting.kind == settings::Kind::Switch) return "0, or any other number for 1";
    if (setting.least == settings::kNoNumber) return "";
    return std::to_string(setting.least) + " to " + std::to_string(setting.most);
}

std::string StandardOf(const settings::Description& description) {
    std::string text =
        description.standard != nullptr ? description.standard : std::to_string(description.setting.standard);
    if (description.setting.zero == settings::Zero::IsDefault) text += "; so does 0";
    return text;
}

}  // namespace zd::host
