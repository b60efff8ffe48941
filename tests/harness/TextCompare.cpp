#include "TextCompare.h"

#include <windows.h>

#include <algorithm>

namespace zd::test {

namespace {

// The length of the longest common subsequence of the rests, for every pair of starts.
std::vector<std::vector<int>> CommonLengths(const std::vector<std::string>& patterns,
                                            const std::vector<std::string>& lines) {
    std::vector<std::vector<int>> common(patterns.size() + 1, std::vector<int>(lines.size() + 1, 0));
    for (std::size_t i = patterns.size(); i-- > 0;) {
        for (std::size_t j = lines.size(); j-- > 0;) {
            common[i][j] =
                Fits(patterns[i], lines[j]) ? common[i + 1][j + 1] + 1 : std::max(common[i + 1][j], common[i][j + 1]);
        }
    }
    return common;
}

// A line end inside a line would tear the report.
std::string OneLine(const std::string& text) {
    std::string shown;
    for (const char next : text) {
        if (next == '\n') {
            shown += "\\n";
        } else {
            shown += next;
        }
    }
    return shown;
}

}  // namespace

bool Fits(const std::string& pattern, const std::string& text) {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = std::string::npos;
    std::size_t resume = 0;
    while (t < text.size()) {
        const bool escaped = p + 1 < pattern.size() && pattern[p] == '\\' && pattern[p + 1] == '*';
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            resume = t;
        } else if (p < pattern.size() && pattern[p + (escaped ? 1 : 0)] == text[t]) {
            p += escaped ? 2 : 1;
            ++t;
        } else if (star != std::string::npos) {
            p = star + 1;
            t = ++resume;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

::testing::AssertionResult LinesFit(const std::vector<std::string>& patterns, const std::vector<std::string>& lines) {
    const bool equal = std::equal(patterns.begin(), patterns.end(), lines.begin(), lines.end(),
                                  [](const auto& pattern, const auto& line) { return Fits(pattern, line); });
    if (equal) return ::testing::AssertionSuccess();
    const auto common = CommonLengths(patterns, lines);
    std::string report = "  - expected and missing, + not expected\n";
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < patterns.size() || j < lines.size()) {
        if (i < patterns.size() && j < lines.size() && Fits(patterns[i], lines[j])) {
            report += "    " + OneLine(lines[j++]) + "\n";
            ++i;
        } else if (i < patterns.size() && (j == lines.size() || common[i + 1][j] >= common[i][j + 1])) {
            report += "  - " + OneLine(patterns[i++]) + "\n";
        } else {
            report += "  + " + OneLine(lines[j++]) + "\n";
        }
    }
    return ::testing::AssertionFailure() << "\n" << report;
}

std::string Joined(const std::vector<std::string>& lines) {
    std::string joined;
    for (const std::string& line : lines) joined += line + "\n";
    return joined;
}

std::string Narrow(const std::wstring& text) {
    const int length = static_cast<int>(text.size());
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, narrow.data(), size, nullptr, nullptr);
    return narrow;
}

std::wstring Widen(const std::string& text) {
    const int length = static_cast<int>(text.size());
    const int size = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), size);
    return wide;
}

}  // namespace zd::test
