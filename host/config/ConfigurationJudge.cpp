// Warnings on settings that are read and yet do not do what they say.
#include <cwchar>
#include <iterator>

#include "config/Configuration.h"
#include "text/Failure.h"
#include "text/Text.h"

namespace zd::host {

namespace {

constexpr std::int64_t kHighestSuppressed = 2;
constexpr std::int64_t kLargestSigned = 0x7FFFFFFF;
constexpr std::int64_t kNotice = 3;
constexpr std::int64_t kTrace = 6;

bool IsName(const wchar_t* one, const std::wstring& other) {
    return ::_wcsicmp(one, other.c_str()) == 0;
}

class CJudge {
public:
    explicit CJudge(Configuration& configuration) : m_configuration(configuration) {}

    void Judge() {
        JudgeAgentType();
        JudgeNames();
        JudgeFragments();
        JudgeTask();
        JudgeLog();
        JudgeKeys();
        JudgeTrees();
    }

private:
    ConfigRow& Row(const Setting& setting) {
        for (ConfigRow& row : m_configuration.rows) {
            if (row.name == setting.name.narrow) return row;
        }
        throw CFailure("no row " + NameOf(setting));
    }

    // Whether the number in force is above those that have a meaning of their own.
    bool IsAbove(const Setting& setting) { return Number(setting) > setting.most; }

    std::int64_t Number(const Setting& setting) { return std::get<std::int64_t>(Row(setting).value); }

    void WarnIfSet(const Setting& setting, const std::string& text) {
        ConfigRow& row = Row(setting);
        if (row.source != "default") row.warnings.push_back(text);
    }

    void JudgeAgentType() {
        // Above 3, a type is how one asks for the agent's own file.
        if (!IsAbove(settings::kAgentType) || Row(settings::kAgentConfigFile).source != "default") return;
        WarnIfSet(settings::kAgentType,
                  std::to_string(Number(settings::kAgentType)) +
                      " is no agent type with a meaning of its own (0 to 3): it only hands over the file "
                      "of Agent\\ConfigFilePath");
    }

    void JudgeNames() {
        const std::int64_t highest = Number(settings::kHighestValidNameChar);
        const std::int64_t counts = highest & 0xFFFF;
        if (IsAbove(settings::kHighestValidNameChar)) {
            Row(settings::kHighestValidNameChar).value = counts;
            WarnIfSet(settings::kHighestValidNameChar, "only the low 16 bits of " + std::to_string(highest) + " count");
        }
        if (counts != 0 && counts < L'\\') {
            WarnIfSet(settings::kHighestValidNameChar,
                      "\"\\\" is a higher character: every name that holds one is refused");
        }
    }

    void JudgeFragments() {
        if (IsAbove(settings::kMaxOpenFragments)) {
            WarnIfSet(settings::kMaxOpenFragments,
                      "as a signed number it is below 0: a handle keeps one fragment open");
        }
        if (Number(settings::kEdbDirectIo) == 0 && Number(settings::kLocalCacheOff) != 0) {
            WarnIfSet(settings::kEdbDirectIo, "LocalCacheOff opens written .edb files past the cache all the same");
        }
    }

    void JudgeTask() {
        if (Number(settings::kTaskTimeAdd) != 0 && !IsAbove(settings::kTaskTimeAdd)) return;
        WarnIfSet(settings::kTaskTimeAdd, "the renewal of the storage task is off");
        WarnIfSet(settings::kTaskCloseWait, "it has no effect: TaskTimeAdd turns the renewal off");
    }

    void JudgeLog() {
        const std::int64_t level = Number(settings::kDebugLevel);
        if (level > kLargestSigned) {
            WarnIfSet(settings::kDebugLevel, "as a signed number it is below 1 and counts as 1");
        } else if (level > kNotice && level != kTrace) {
            WarnIfSet(settings::kDebugLevel,
                      "the plug-in's own lines have the levels 1, 2, 3 and 6: " + std::to_string(level) +
                          " shows the same as " + std::to_string(level < kTrace ? kNotice : kTrace));
        }
        std::string off;
        if (Number(settings::kLogSuppressRepeatedMessages) == 0) {
            off = "it has no effect: LogSuppressRepeatedMessages is 0";
        } else if (level > kHighestSuppressed && level <= kLargestSigned) {
            // The level in force before a reading is what switches the folding off.
            off =
                "DebugLevel is above 2: folding ends at the GetProtocol or refresh after the one that brings this "
                "level "
                "into force";
            WarnIfSet(settings::kLogSuppressRepeatedMessages, off);
        }
        if (!off.empty()) {
            for (const Setting* limit : {&settings::kLogNumMsgs, &settings::kLogOccurLimit, &settings::kLogTimeLimit,
                                         &settings::kLogNumCharsForMatch}) {
                WarnIfSet(*limit, off);
            }
        }
        for (const Setting* limit : {&settings::kLogOccurLimit, &settings::kLogNumCharsForMatch}) {
            if (IsAbove(*limit)) WarnIfSet(*limit, "as a signed number it is below 0");
        }
    }

    // A known name in a key that is not its own. The agent keeps values of its own beside the plug-in's, so others are
    // let alone there.
    void JudgeKeys() {
        const std::wstring zdvfs = PlaceOf(settings::Key::Zdvfs).wide;
        const std::wstring agent = PlaceOf(settings::Key::Agent).wide;
        for (const std::wstring& below : {std::wstring(), zdvfs, agent, std::wstring(settings::kPoolListKey)}) {
            for (const std::wstring& name : ValueNames(m_configuration.tree, below)) {
                std::string elsewhere;
                bool known = false;
                for (const SettingOption& option : SettingOptions()) {
                    if (!IsName(option.setting.name.wide, name)) continue;
                    const settings::Name& place = PlaceOf(option.setting.key);
                    known = known || place.wide == below;
                    elsewhere.append(elsewhere.empty() ? "" : " and ").append(place.narrow);
                }
                if (known || (elsewhere.empty() && below != zdvfs)) continue;
                std::string text = ToUtf8(below);
                if (!below.empty()) text += "\\";
                text += ToUtf8(name);
                text += " is not read by the plug-in";
                if (!elsewhere.empty()) text.append("; in the key ").append(elsewhere).append(" it is");
                m_configuration.warnings.push_back(std::move(text));
            }
        }
    }

    void JudgeTrees() {
        if (m_configuration.tree == SettingsTree::Former || !TreeExists(SettingsTree::Former)) return;
        m_configuration.warnings.push_back(ToUtf8(RootOf(SettingsTree::Former)) + " has no effect beside " +
                                           ToUtf8(RootOf(SettingsTree::Present)));
    }

    Configuration& m_configuration;
};

}  // namespace

void JudgeConfiguration(Configuration& configuration) {
    CJudge(configuration).Judge();
}

}  // namespace zd::host
