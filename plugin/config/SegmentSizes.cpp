#include <windows.h>

#include <cstdlib>
#include <cstring>

#include "base/Conversion.h"
#include "config/Agent.h"

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

}  // namespace zd
