// The list of segment sizes of zd.conf, as the plug-in reads it.
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "config/Configuration.h"
#include "text/Text.h"

namespace zd::host {

namespace {

constexpr std::size_t kLongestList = settings::kPreferredExtSegKSize.longest;
// In KiB: the size is a signed 32-bit number of bytes.
constexpr std::int64_t kLargestSize = settings::kPreferredExtSegKSize.most;

// Looks at one item after the other, in the order in which the plug-in compares them with a name.
class CListJudge {
public:
    void Item(const std::string& extension, bool hasSize, long size) {
        const std::string quoted = "\"" + extension + "\"";
        if (!hasSize) {
            Warn("the size of " + quoted + " is no number and counts as 0");
        } else if (size < 0 || size > kLargestSize) {
            Warn("the size of " + quoted + " does not fit: KiB from 0 to " + std::to_string(kLargestSize));
        }
        const auto wide = TryToWide(extension);
        if (extension.empty()) {
            Warn("an extension is missing before \":\"");
        } else if (!wide) {
            Warn("an extension is not UTF-8");
        } else {
            if (extension.back() == ' ') Warn("the blank belongs to the extension " + quoted);
            CompareWithEarlier(quoted, *wide);
        }
    }

    void Warn(const std::string& text) { m_warnings.push_back(text); }
    std::vector<std::string> Warnings() { return std::move(m_warnings); }

private:
    // The first item whose text a name ends with decides.
    void CompareWithEarlier(const std::string& quoted, const std::wstring& extension) {
        for (const std::wstring& earlier : m_extensions) {
            if (earlier.size() > extension.size() ||
                ::_wcsicmp(extension.c_str() + extension.size() - earlier.size(), earlier.c_str()) != 0) {
                continue;
            }
            // This one item is also looked up by its own name, the last one of several.
            const bool isDatabase = ::_wcsicmp(extension.c_str(), L"edb") == 0;
            Warn("names that end with " + quoted + " take the size of the earlier item \"" + ToUtf8(earlier) + "\"" +
                 (isDatabase ? ": this one counts in directories \"vdb_...\" only" : ": this one has no effect"));
            return;
        }
        m_extensions.push_back(extension);
    }

    std::vector<std::wstring> m_extensions;
    std::vector<std::string> m_warnings;
};

}  // namespace

std::vector<std::string> JudgeSizeList(const std::string& list) {
    CListJudge judge;
    if (list.size() >= kLongestList) judge.Warn("only the first 255 bytes count");
    for (const char* at = list.c_str(); *at != '\0';) {
        while (*at == ' ') ++at;
        const char* const colon = std::strchr(at, ':');
        if (colon == nullptr) {
            if (*at != '\0') judge.Warn(std::string("there is no size in \"") + at + "\"");
            break;
        }
        char* end = nullptr;
        const long size = std::strtol(colon + 1, &end, 0);
        judge.Item(std::string(at, colon), end != colon + 1, size);
        if (*end == '\0') break;
        if (*end != ',') {
            judge.Warn(std::string("the list ends before \"") + end + "\"");
            break;
        }
        at = end + 1;
    }
    return judge.Warnings();
}

}  // namespace zd::host
