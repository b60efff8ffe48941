// Comparison of call logs and log lines, line by line, with readable differences.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zd::test {

// True where `text` fits the pattern: "*" stands for any characters, none included, "\*" for a star itself.
bool Fits(const std::string& pattern, const std::string& text);

// Success where every line fits its pattern and there are as many; otherwise both lists with the differing lines
// marked.
::testing::AssertionResult LinesFit(const std::vector<std::string>& patterns, const std::vector<std::string>& lines);

// The same for text of several lines.
std::string Joined(const std::vector<std::string>& lines);

std::string Narrow(const std::wstring& text);  // to UTF-8
std::wstring Widen(const std::string& text);   // from UTF-8

}  // namespace zd::test
