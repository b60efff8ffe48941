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
    ConfigRow& Row(const std::string& name) {
        for (ConfigRow& row : m_configuration.rows) {
            if (row.name == name) return row;
        }
        throw CFailure("no row " + name);
    }

    // Whether the number in force is above those that have a meaning of their own.
    bool IsAbove(const std::string& name) { return Number(name) > FindSetting(SettingsKey::Zdvfs, ToWide(name)).most; }

    std::int64_t Number(const std::string& name) { return std::get<std::int64_t>(Row(name).value); }

    void WarnIfSet(const std::string& name, const std::string& text) {
        ConfigRow& row = Row(name);
        if (row.source != "default") row.warnings.push_back(text);
    }

    void JudgeAgentType() {
        // Above 3, a type is how one asks for the agent's own file.
        if (!IsAbove("AgentType") || Row("ConfigFilePath").source != "default") return;
        WarnIfSet("AgentType", std::to_string(Number("AgentType")) +
                                   " is no agent type with a meaning of its own (0 to 3): it only hands over the file "
                                   "of Agent\\ConfigFilePath");
    }

    void JudgeNames() {
        const std::int64_t highest = Number("HighestValidNameChar");
        const std::int64_t counts = highest & 0xFFFF;
        if (IsAbove("HighestValidNameChar")) {
            Row("HighestValidNameChar").value = counts;
            WarnIfSet("HighestValidNameChar", "only the low 16 bits of " + std::to_string(highest) + " count");
        }
        if (counts != 0 && counts < L'\\') {
            WarnIfSet("HighestValidNameChar", "\"\\\" is a higher character: every name that holds one is refused");
        }
    }

    void JudgeFragments() {
        if (IsAbove("MaxOpenFragments")) {
            WarnIfSet("MaxOpenFragments", "as a signed number it is below 0: a handle keeps one fragment open");
        }
        if (Number("EDB DIRECT IO") == 0 && Number("LocalCacheOff") != 0) {
            WarnIfSet("EDB DIRECT IO", "LocalCacheOff opens written .edb files past the cache all the same");
        }
    }

    void JudgeTask() {
        if (Number("TaskTimeAdd") != 0 && !IsAbove("TaskTimeAdd")) return;
        WarnIfSet("TaskTimeAdd", "the renewal of the storage task is off");
        WarnIfSet("TaskCloseWait", "it has no effect: TaskTimeAdd turns the renewal off");
    }

    void JudgeLog() {
        const std::int64_t level = Number("DebugLevel");
        if (level > kLargestSigned) {
            WarnIfSet("DebugLevel", "as a signed number it is below 1 and counts as 1");
        } else if (level > kNotice && level != kTrace) {
            WarnIfSet("DebugLevel", "the plug-in's own lines have the levels 1, 2, 3 and 6: " + std::to_string(level) +
                                        " shows the same as " + std::to_string(level < kTrace ? kNotice : kTrace));
        }
        std::string off;
        if (Number("LogSuppressRepeatedMessages") == 0) {
            off = "it has no effect: LogSuppressRepeatedMessages is 0";
        } else if (level > kHighestSuppressed && level <= kLargestSigned) {
            // The level in force before a reading is what switches the folding off.
            off =
                "DebugLevel is above 2: folding ends at the GetProtocol or refresh after the one that brings this "
                "level "
                "into force";
            WarnIfSet("LogSuppressRepeatedMessages", off);
        }
        if (!off.empty()) {
            for (const char* name : {"LogNumMsgs", "LogOccurLimit", "LogTimeLimit", "LogNumCharsForMatch"}) {
                WarnIfSet(name, off);
            }
        }
        for (const char* name : {"LogOccurLimit", "LogNumCharsForMatch"}) {
            if (IsAbove(name)) WarnIfSet(name, "as a signed number it is below 0");
        }
    }

    // A known name in a key that is not its own. The agent keeps values of its own beside the plug-in's, so others are
    // let alone there.
    void JudgeKeys() {
        const std::wstring zdvfs = NameOf(SettingsKey::Zdvfs);
        const std::wstring agent = NameOf(SettingsKey::Agent);
        for (const std::wstring& below : {std::wstring(), zdvfs, agent, std::wstring(kPoolListKey)}) {
            for (const std::wstring& name : ValueNames(m_configuration.tree, below)) {
                std::string elsewhere;
                bool known = false;
                for (const Setting& setting : Settings()) {
                    if (!IsName(setting.value, name)) continue;
                    known = known || NameOf(setting.key) == below;
                    elsewhere += (elsewhere.empty() ? "" : " and ") + ToUtf8(NameOf(setting.key));
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
