#include "Lines.h"

#include <cstdio>

#include "text/Failure.h"
#include "text/Output.h"
#include "text/Text.h"

namespace zd::host {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// Splits a line into words: blanks separate, "double" and 'single' quotes hold words together, a doubled quote inside
// them is the quote itself. Empty for a blank line and for a comment; nothing where a quote is not closed.
std::optional<std::vector<std::string>> SplitLine(std::string_view line) {
    std::vector<std::string> words;
    std::size_t at = 0;
    while (true) {
        while (at < line.size() && IsBlank(line[at])) ++at;
        if (at == line.size()) return words;
        if (words.empty() && line[at] == '#') return words;
        std::string word;
        while (at < line.size() && !IsBlank(line[at])) {
            const char quote = line[at++];
            if (quote != '"' && quote != '\'') {
                word.push_back(quote);
                continue;
            }
            while (true) {
                if (at == line.size()) return std::nullopt;
                const char c = line[at++];
                if (c == quote) {
                    if (at == line.size() || line[at] != quote) break;
                    ++at;
                }
                word.push_back(c);
            }
        }
        words.push_back(std::move(word));
    }
}

}  // namespace

bool CInputLines::Next() {
    m_text.clear();
    int c = std::fgetc(stdin);
    if (c != EOF) ++m_number;
    const bool any = c != EOF;
    for (; c != EOF && c != '\n'; c = std::fgetc(stdin)) m_text.push_back(static_cast<char>(c));
    if (std::ferror(stdin) != 0) throw CFailure("cannot read standard input");
    if (m_number == 1 && m_text.starts_with("\xEF\xBB\xBF")) m_text.erase(0, 3);
    return any;
}

int RunLine(std::string_view line, CommandContext& context, const std::string& where, WordsRunner run) {
    if (!TryToWide(line)) {
        WriteError(where + "the line is not UTF-8");
        return kExitUsage;
    }
    const auto words = SplitLine(line);
    if (!words) {
        WriteError(where + "a quote is not closed");
        return kExitUsage;
    }
    return words->empty() ? kExitOk : run(*words, context, where);
}

}  // namespace zd::host
