#include "config/Configuration.h"

#include <windows.h>

#include "text/Failure.h"
#include "text/Text.h"

namespace zd::host {

namespace {

constexpr std::size_t kLongestAgentPath = (settings::kAgentPath.longest + 1) * sizeof(wchar_t);

// The key below the tree's root. Not for those of pools.
std::wstring KeyOf(const Setting& setting) {
    return PlaceOf(setting.key).wide;
}

std::string Place(const std::wstring& below, const Setting& setting) {
    return ToUtf8(below + L"\\" + setting.name.wide);
}

std::string Place(const Setting& setting) {
    return Place(KeyOf(setting), setting);
}

std::string WrongType(const std::string& place, const StoredValue& value, const char* wanted) {
    return place + " is " + value.TypeName() + ", not " + wanted + ": it has no effect";
}

std::string IsEmpty(const std::string& place) {
    return place + " is empty: it has no effect";
}

bool IsFolder(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsFile(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

std::wstring FolderOfProgram() {
    std::wstring path(32768, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    path.resize(path.rfind(L'\\') + 1);
    return path;
}

class CReader {
public:
    CReader(std::wstring libraryFolder, std::wstring pool)
        : m_libraryFolder(std::move(libraryFolder)), m_pool(std::move(pool)) {
        m_result.tree = FormerTreeInUse() ? SettingsTree::Former : SettingsTree::Present;
    }

    Configuration Read() {
        AddAgentPath();
        AddLogPath();
        const std::int64_t type = AddAgentType();
        AddConfigurationFile(type);
        for (const settings::Description& description : settings::kDescriptions) {
            const Setting& setting = description.setting;
            // The agent type, the other number of the key, has been looked for in two places.
            if (setting.key == settings::Key::Zdvfs && setting.kind != settings::Kind::Choice) AddNumber(setting);
        }
        AddFileRows(m_result, m_libraryFolder, m_agentFolder);
        JudgeConfiguration(m_result);
        return std::move(m_result);
    }

private:
    ConfigRow& Add(const Setting& setting, const ConfigValue& defaultValue) {
        m_result.rows.push_back({NameOf(setting), defaultValue, "default", "", defaultValue, {}});
        return m_result.rows.back();
    }

    static void Take(ConfigRow& row, ConfigValue value, const std::string& place) {
        row.value = std::move(value);
        row.source = "registry";
        row.place = place;
    }

    std::optional<StoredValue> Stored(const std::wstring& below, const Setting& setting) const {
        return ReadValue(m_result.tree, below, setting.name.wide);
    }
    std::optional<StoredValue> Stored(const Setting& setting) const { return Stored(KeyOf(setting), setting); }

    // The text of a value; a warning where it is of another type.
    std::optional<std::wstring> TextOf(ConfigRow& row, const Setting& setting) const {
        const auto stored = Stored(setting);
        if (!stored) return std::nullopt;
        auto text = stored->Text();
        if (!text) row.warnings.push_back(WrongType(Place(setting), *stored, settings::kText));
        return text;
    }

    void AddAgentPath() {
        m_agentFolder = FolderOfProgram();
        ConfigRow& row = Add(settings::kAgentPath, ToUtf8(m_agentFolder));
        const auto stored = Stored(settings::kAgentPath);
        auto text = TextOf(row, settings::kAgentPath);
        if (!text) return;
        const bool ended = stored->data.size() >= sizeof(wchar_t) && stored->data.size() % sizeof(wchar_t) == 0 &&
                           stored->data[stored->data.size() - 1] == 0 && stored->data[stored->data.size() - 2] == 0;
        if (!ended || stored->data.size() > kLongestAgentPath) {
            row.warnings.push_back(ended ? "it is too long and has no effect"
                                         : "it does not end with a zero character and has no effect");
            return;
        }
        if (text->empty()) {
            row.warnings.push_back(IsEmpty(Place(settings::kAgentPath)));
            return;
        }
        m_agentFolder = std::move(*text);
        Take(row, ToUtf8(m_agentFolder), Place(settings::kAgentPath));
        if (m_agentFolder.back() != L'\\') {
            row.warnings.push_back("there is no \"\\\" at its end, and file names are put behind it as it stands");
        }
        if (!IsFolder(m_agentFolder)) row.warnings.push_back("there is no such folder");
        if (stored->type == REG_EXPAND_SZ && m_agentFolder.find(L'%') != std::wstring::npos) {
            row.warnings.push_back("variables in it are not replaced");
        }
    }

    void AddLogPath() {
        ConfigRow& row = Add(settings::kLogPath, ConfigValue());
        const auto text = TextOf(row, settings::kLogPath);
        if (text && text->empty()) row.warnings.push_back(IsEmpty(Place(settings::kLogPath)));
        const auto folder = FindLogFolder(m_result.tree);
        if (!folder) {
            row.warnings.push_back("neither Agent\\logpath nor Agent\\path names a folder: there is no log file");
            return;
        }
        Take(row, ToUtf8(folder->path), folder->place);
        if (text && text->size() > settings::kLogPath.longest)
            row.warnings.push_back("it is too long: there is no log file");
    }

    std::int64_t AddAgentType() {
        ConfigRow& row = Add(settings::kAgentType, settings::kAgentKeyType.standard);
        bool found = false;
        for (const Setting* setting : {&settings::kAgentType, &settings::kAgentKeyType}) {
            const auto stored = Stored(*setting);
            if (!stored) continue;
            const std::string place = Place(*setting);
            const auto number = stored->Number();
            if (!number) {
                row.warnings.push_back(WrongType(place, *stored, settings::kDword));
            } else if (found) {
                row.warnings.push_back(place + " has no effect beside " + row.place);
            } else {
                Take(row, std::int64_t{*number}, place);
                found = true;
            }
        }
        return std::get<std::int64_t>(row.value);
    }

    void AddConfigurationFile(std::int64_t type) {
        ConfigRow& row = Add(settings::kAgentConfigFile, ConfigValue());
        const std::wstring poolKey = std::wstring(settings::kPoolListKey) + L"\\" + m_pool;
        const bool fromPool = type >= 1 && type <= 3;
        for (const bool pool : {true, false}) {
            const Setting& setting = pool ? settings::kPoolConfigFile : settings::kAgentConfigFile;
            const std::wstring below = pool ? poolKey : KeyOf(setting);
            const std::string place = Place(below, setting);
            if (type == 0 || pool != fromPool) {
                if (Stored(below, setting)) {
                    row.warnings.push_back(place + " has no effect with agent type " + std::to_string(type));
                }
                continue;
            }
            const auto stored = Stored(below, setting);
            if (!stored) continue;
            const auto text = stored->Text();
            if (stored->type != REG_SZ || !text) {
                row.warnings.push_back(WrongType(place, *stored, settings::kText));
                continue;
            }
            if (text->empty()) {
                row.warnings.push_back(IsEmpty(place));
                continue;
            }
            Take(row, ToUtf8(*text), place);
            if (!IsFile(*text)) row.warnings.push_back("there is no such file");
        }
        if (type != 0 && row.source == "default") {
            row.warnings.push_back(fromPool ? JudgePoolFile(m_libraryFolder, m_agentFolder + m_pool + L".cfg")
                                            : "agent type " + std::to_string(type) + " needs Agent\\ConfigFilePath");
        }
    }

    void AddNumber(const Setting& setting) {
        ConfigRow& row = Add(setting, setting.standard);
        const auto stored = Stored(setting);
        if (!stored) return;
        const auto number = stored->Number();
        if (!number) {
            row.warnings.push_back(WrongType(Place(setting), *stored, settings::kDword));
            return;
        }
        if (*number == 0 && setting.zero == settings::Zero::IsDefault) {
            row.warnings.push_back("0 is stored, which counts as the default");
            return;
        }
        Take(row, std::int64_t{*number}, Place(setting));
    }

    std::wstring m_libraryFolder;
    std::wstring m_pool;
    std::wstring m_agentFolder;
    Configuration m_result;
};

}  // namespace

std::optional<LogFolder> FindLogFolder(SettingsTree tree) {
    const auto text = [tree](const Setting& setting) {
        const auto stored = ReadValue(tree, KeyOf(setting), setting.name.wide);
        return stored ? stored->Text().value_or(L"") : std::wstring();
    };
    if (auto folder = text(settings::kLogPath); !folder.empty()) return LogFolder{folder, Place(settings::kLogPath)};
    if (auto agent = text(settings::kAgentPath); !agent.empty()) {
        return LogFolder{agent + L"log", Place(settings::kAgentPath)};
    }
    return std::nullopt;
}

Configuration ReadConfiguration(const std::wstring& libraryFolder, const std::wstring& pool) {
    return CReader(libraryFolder, pool).Read();
}

}  // namespace zd::host
