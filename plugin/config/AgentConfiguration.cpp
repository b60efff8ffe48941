#include "config/AgentConfiguration.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "base/Conversion.h"
#include "config/Agent.h"
#include "hul.h"

namespace zd {
namespace {

constexpr int kExtensionUnits = 256;
constexpr wchar_t kEdb[] = L"edb";

// Empty where the text is empty or no UTF-8.
std::wstring Extension(const char* text, std::size_t bytes) {
    wchar_t extension[kExtensionUnits];
    const int units =
        ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, static_cast<int>(bytes), extension, kExtensionUnits);
    return std::wstring(extension, static_cast<std::size_t>(units > 0 ? units : 0));
}

}  // namespace

void ParseSegmentSizes(const char* list, CAgentConfiguration& configuration) {
    configuration.segments.clear();
    configuration.edbSegmentSize = 0;
    while (*list != '\0') {
        while (*list == ' ') ++list;
        const char* const colon = std::strchr(list, ':');
        if (colon == nullptr) return;
        char* end = nullptr;
        const auto kib = static_cast<std::uint32_t>(std::strtol(colon + 1, &end, 0));
        const std::uint32_t bytes = kib * 1024U;
        const std::wstring extension = Extension(list, static_cast<std::size_t>(colon - list));
        if (!extension.empty()) {
            configuration.segments.push_back(CExtensionSegment{extension, bytes});
            if (CompareNoCase(extension.c_str(), kEdb) == 0) configuration.edbSegmentSize = bytes;
        }
        if (*end != ',') return;
        list = end + 1;
    }
}

CAgentConfiguration ReadAgentConfiguration() {
    constexpr int kListBytes = 256;
    const std::string file = AnsiPath(std::wstring(AgentPath().view()) + L"zd.conf");
    const char* const section = kHulSectionOfLooseKeys;
    CAgentConfiguration configuration;
    configuration.compression = ::InifileGetIntegerA(file.c_str(), section, "IFS_COMPRESSION", 0);
    configuration.encryption = ::InifileGetIntegerA(file.c_str(), section, "ENCRYPTION", 0);
    configuration.restoreDecryptLocal = ::InifileGetIntegerA(file.c_str(), section, "RESTORE_DECRYPT_LOCAL", 1);
    char list[kListBytes] = {};
    ::InifileGetValueA(file.c_str(), section, "PREFERRED_EXT_SEGKSIZE", "", list, kListBytes);
    list[kListBytes - 1] = '\0';
    ParseSegmentSizes(list, configuration);
    return configuration;
}

}  // namespace zd
