// The settings of zd.conf, read with the ini reader that the plug-in uses.
#include <windows.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "Configuration.h"
#include "Failure.h"
#include "Text.h"

namespace zd {

namespace {

// Loose keys stand in this section for the reader.
constexpr char kSection[] = "__dummy__section__";
// A default that no file holds.
constexpr char kAbsent[] = "\x01";
constexpr int kLongestList = 256;
constexpr long kWrapsAt = 4194304;  // KiB

class CIniReader {
public:
    explicit CIniReader(const std::wstring& folder)
        : m_module(::LoadLibraryExW((folder + L"hul.dll").c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)) {
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
    std::optional<std::string> Value(const std::string& file, const char* key) const {
        std::array<char, kLongestList> text{};
        m_value(file.c_str(), kSection, key, kAbsent, text.data(), kLongestList);
        text.back() = '\0';
        if (std::strcmp(text.data(), kAbsent) == 0) return std::nullopt;
        return text.data();
    }

    // Nothing where the value is no number.
    std::optional<int> Integer(const std::string& file, const char* key) const {
        const int first = m_integer(file.c_str(), kSection, key, 1);
        if (first != m_integer(file.c_str(), kSection, key, 2)) return std::nullopt;
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

std::string AnsiPath(const std::wstring& path) {
    const int units = static_cast<int>(path.size());
    const int size = ::WideCharToMultiByte(CP_THREAD_ACP, 0, path.data(), units, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_THREAD_ACP, 0, path.data(), units, narrow.data(), size, nullptr, nullptr);
    return narrow;
}

// Says where a list of sizes is not what its writer may have meant.
void JudgeList(const std::string& list, std::vector<std::string>& warnings) {
    if (list.size() + 1 >= kLongestList) warnings.push_back("only the first 255 bytes count");
    for (const char* at = list.c_str(); *at != '\0';) {
        while (*at == ' ') ++at;
        const char* const colon = std::strchr(at, ':');
        if (colon == nullptr) {
            if (*at != '\0') warnings.push_back(std::string("there is no size in \"") + at + "\"");
            return;
        }
        const std::string extension(at, colon);
        char* end = nullptr;
        const long size = std::strtol(colon + 1, &end, 0);
        if (extension.empty()) warnings.push_back("an extension is missing before \":\"");
        if (end == colon + 1) {
            warnings.push_back("the size of \"" + extension + "\" is no number and counts as 0");
        } else if (size < 0 || size >= kWrapsAt) {
            warnings.push_back("the size of \"" + extension + "\" does not fit: KiB from 0 to 4194303");
        }
        if (*end == '\0') return;
        if (*end != ',') {
            warnings.push_back(std::string("the list ends before \"") + end + "\"");
            return;
        }
        at = end + 1;
    }
}

}  // namespace

void AddFileRows(Configuration& configuration, const std::wstring& libraryFolder, const std::wstring& agentFolder) {
    const CIniReader reader(libraryFolder);
    if (!reader) {
        configuration.warnings.push_back("zd.conf cannot be told: there is no hul.dll in " + ToUtf8(libraryFolder));
        return;
    }
    struct CNumber {
        const char* key;
        std::int64_t defaultValue;
    };
    const std::wstring wideFile = agentFolder + L"zd.conf";
    const std::string file = AnsiPath(wideFile);
    for (const CNumber& number :
         {CNumber{"IFS_COMPRESSION", 0}, CNumber{"ENCRYPTION", 0}, CNumber{"RESTORE_DECRYPT_LOCAL", 1}}) {
        ConfigRow row{number.key, number.defaultValue, "default", "", number.defaultValue, {}};
        if (const auto text = reader.Value(file, number.key)) {
            if (const auto value = reader.Integer(file, number.key)) {
                row.value = std::int64_t{*value};
                row.source = "zd.conf";
                row.place = ToUtf8(wideFile);
            } else {
                row.warnings.push_back("\"" + *text + "\" is no number: it has no effect");
            }
        }
        configuration.rows.push_back(std::move(row));
    }
    ConfigRow row{"PREFERRED_EXT_SEGKSIZE", std::string(), "default", "", std::string(), {}};
    if (const auto text = reader.Value(file, "PREFERRED_EXT_SEGKSIZE")) {
        row.value = *text;
        row.source = "zd.conf";
        row.place = ToUtf8(wideFile);
        JudgeList(*text, row.warnings);
    }
    configuration.rows.push_back(std::move(row));
}

}  // namespace zd
