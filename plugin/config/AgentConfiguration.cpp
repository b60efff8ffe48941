#include "config/AgentConfiguration.h"

#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "base/Conversion.h"
#include "config/Agent.h"
#include "hul.h"

namespace zd {
namespace settings = zdvfs::settings;

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
    constexpr const settings::Setting& kList = settings::kPreferredExtSegKSize;
    constexpr int kListBytes = kList.longest + 1;
    const std::string file = AnsiPath(std::wstring(AgentPath().view()) + settings::PlaceOf(kList.key).wide);
    const char* const section = kHulSectionOfLooseKeys;
    const auto read = [&](const settings::Setting& setting) {
        return ::InifileGetIntegerA(file.c_str(), section, setting.name.narrow, setting.Standard<int>());
    };
    CAgentConfiguration configuration;
    configuration.compression = read(settings::kIfsCompression);
    configuration.encryption = read(settings::kEncryption);
    configuration.restoreDecryptLocal = read(settings::kRestoreDecryptLocal);
    char list[kListBytes] = {};
    ::InifileGetValueA(file.c_str(), section, kList.name.narrow, "", list, kListBytes);
    list[kListBytes - 1] = '\0';
    ParseSegmentSizes(list, configuration);
    return configuration;
}

}  // namespace zd
