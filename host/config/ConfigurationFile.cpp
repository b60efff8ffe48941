// The settings of zd.conf, read with the ini reader that the plug-in uses.
#include <windows.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <set>

#include "config/Configuration.h"
#include "text/Failure.h"
#include "text/LocalPath.h"
#include "text/Text.h"
#include "transfer/LocalFile.h"

namespace zd::host {

namespace {

// Loose keys stand in this section for the reader.
constexpr char kSection[] = "__dummy__section__";
// A default that no file holds.
constexpr char kAbsent[] = "\x01";
constexpr const char* kFile = settings::PlaceOf(settings::Key::AgentFile).narrow;
constexpr int kLongestList = settings::kPreferredExtSegKSize.longest + 1;

class CIniReader {
public:
    explicit CIniReader(const std::wstring& folder)
        : m_module(::LoadLibraryExW((folder + L"hul.dll").c_str(), nullptr,
                                    LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS)) {
        if (m_module == nullptr) return;
        Find("InifileGetValueA", m_value);
        Find("InifileGetIntegerA", m_integer);
    }
    ~CIniReader() {
        if (m_module != nullptr) ::FreeLibrary(m_module);
    }
    CIniReader(const CIniReader&) = delete;
    CIniReader& operator=(const CIniReader&) = delete;

    explicit operator bool() const { return m_value != nullptr && m_integer != nullptr; }

    // Nothing where the key is missing. Cut as the plug-in's own query is.
    std::optional<std::string> Value(const std::string& file, const char* key, const char* section = kSection) const {
        std::array<char, kLongestList> text{};
        m_value(file.c_str(), section, key, kAbsent, text.data(), kLongestList);
        text.back() = '\0';
        if (std::strcmp(text.data(), kAbsent) == 0) return std::nullopt;
        return text.data();
    }

    // Nothing where the value is no number.
    std::optional<int> Integer(const std::string& file, const char* key, const char* section = kSection) const {
        const int first = m_integer(file.c_str(), section, key, 1);
        if (first != m_integer(file.c_str(), section, key, 2)) return std::nullopt;
        return first;
    }

private:
    template <class Function>
    void Find(const char* name, Function& function) {
        const auto address = ::GetProcAddress(m_module, name);
        function = reinterpret_cast<Function>(reinterpret_cast<void*>(address));
    }

    HMODULE m_module;
    int (*m_value)(const char*, const char*, const char*, const char*, char*, int) = nullptr;
    int (*m_integer)(const char*, const char*, const char*, int) = nullptr;
};

// The path in the code page in which the ini reader takes it. The plug-in converts it in the same way.
struct CAnsiPath {
    std::string text;
    bool isWhole;  // no character was lost
};

CAnsiPath AnsiPath(const std::wstring& path) {
    const int units = static_cast<int>(path.size());
    const int size = ::WideCharToMultiByte(CP_THREAD_ACP, 0, path.data(), units, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_THREAD_ACP, 0, path.data(), units, narrow.data(), size, nullptr, nullptr);
    std::wstring back(path.size() + 1, L'\0');
    const int got = ::MultiByteToWideChar(CP_THREAD_ACP, 0, narrow.data(), size, back.data(), units + 1);
    back.resize(static_cast<std::size_t>(got));
    return {narrow, back == path};
}

std::string Trim(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

bool IsSame(const std::string& one, const char* other) {
    return ::_stricmp(one.c_str(), other) == 0;
}

// What the ini reader cannot be asked for: which sections there are, and which keys stand outside them.
struct CFileLayout {
    std::vector<std::string> sections;
    std::vector<std::string> looseKeys;  // one for each line
};

CFileLayout LayoutOf(const std::wstring& file) {
    CFileLayout layout;
    std::string text;
    try {
        CLocalReader reader(AbsolutePath(file), /*standardInputFree=*/false);
        char block[4096];
        while (const DWORD got = reader.Read(block, sizeof block)) text.append(block, got);
    } catch (const CFailure&) {
        return layout;  // a file that cannot be read has nothing for the plug-in either
    }
    bool loose = true;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find_first_of("\r\n", at), text.size());
        const std::string line = Trim(text.substr(at, end - at));
        at = end + 1;
        if (line.starts_with('[') && line.find(']') != std::string::npos) {
            const std::string section = Trim(line.substr(1, line.find(']') - 1));
            loose = IsSame(section, kSection);
            if (!loose) layout.sections.push_back(section);
        } else if (loose && line.find('=') != std::string::npos) {
            layout.looseKeys.push_back(Trim(line.substr(0, line.find('='))));
        }
    }
    return layout;
}

void JudgePlaces(const CIniReader& reader, const std::string& file, const CFileLayout& layout, ConfigRow& row) {
    const char* const key = row.name.c_str();
    std::set<std::string> told;
    for (const std::string& section : layout.sections) {
        if (!reader.Value(file, key, section.c_str()) || !told.insert(section).second) continue;
        row.warnings.push_back("zd.conf holds it in the section [" + section + "], where it is not read");
    }
    const auto lines = std::count_if(layout.looseKeys.begin(), layout.looseKeys.end(),
                                     [key](const std::string& loose) { return IsSame(loose, key); });
    if (lines > 1) row.warnings.push_back("zd.conf holds it " + std::to_string(lines) + " times: one of them counts");
}

void TakeNumber(const CIniReader& reader, const std::string& file, ConfigRow& row) {
    const auto text = reader.Value(file, row.name.c_str());
    if (!text) return;
    if (const auto value = reader.Integer(file, row.name.c_str())) {
        row.value = std::int64_t{*value};
        row.source = kFile;
    } else {
        row.warnings.push_back("\"" + *text + "\" is no number: it has no effect");
    }
}

void TakeList(const CIniReader& reader, const std::string& file, ConfigRow& row) {
    const auto text = reader.Value(file, row.name.c_str());
    if (!text) return;
    row.value = *text;
    row.source = kFile;
    row.warnings = JudgeSizeList(*text);
}

}  // namespace

void AddFileRows(Configuration& configuration, const std::wstring& libraryFolder, const std::wstring& agentFolder) {
    const CIniReader reader(libraryFolder);
    if (!reader) {
        configuration.warnings.push_back("zd.conf cannot be told: there is no hul.dll in " + ToUtf8(libraryFolder));
        return;
    }
    const std::wstring wideFile = agentFolder + settings::PlaceOf(settings::Key::AgentFile).wide;
    const auto [file, isWhole] = AnsiPath(wideFile);
    if (!isWhole) {
        configuration.warnings.push_back(ToUtf8(wideFile) +
                                         " holds characters outside the code page: the plug-in does not find it");
    }
    const CFileLayout layout = LayoutOf(wideFile);
    for (const settings::Description& description : settings::kDescriptions) {
        const Setting& setting = description.setting;
        if (setting.key != settings::Key::AgentFile) continue;
        const ConfigValue standard = setting.IsNumber() ? ConfigValue(setting.standard) : ConfigValue(std::string());
        ConfigRow row{NameOf(setting), standard, "default", "", standard, {}};
        setting.IsNumber() ? TakeNumber(reader, file, row) : TakeList(reader, file, row);
        if (row.source == kFile) row.place = ToUtf8(wideFile);
        JudgePlaces(reader, file, layout, row);
        configuration.rows.push_back(std::move(row));
    }
}

std::string JudgePoolFile(const std::wstring& libraryFolder, const std::wstring& file) {
    const CIniReader reader(libraryFolder);
    const std::string name = ToUtf8(file);
    if (!reader) return "connecting registers the pool where " + name + " holds an AgentID";
    const std::string narrow = AnsiPath(file).text;
    const auto agent = reader.Integer(narrow, settings::kAgentId.name.narrow, settings::kPoolFileSection);
    if (agent && *agent != settings::kAgentId.Standard<int>()) return "connecting registers the pool with " + name;
    std::string text = name + " holds no AgentID in [Main], so that connecting does not register the pool";
    if (reader.Value(narrow, settings::kAgentId.name.narrow)) text += "; the one outside the section is not read";
    return text;
}

}  // namespace zd::host
