#include "Script.h"

#include <cstdio>

#include "CommandLine.h"
#include "Failure.h"
#include "Interrupt.h"
#include "Output.h"
#include "Text.h"

namespace zd {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// The next line of standard input without its end; false at the end of the input.
bool ReadLine(std::string& line) {
    line.clear();
    for (int c = std::fgetc(stdin); c != EOF; c = std::fgetc(stdin)) {
        if (c == '\n') return true;
        line.push_back(static_cast<char>(c));
    }
    if (std::ferror(stdin) != 0) throw CFailure("cannot read standard input");
    return !line.empty();
}

int RunLine(std::string_view line, CommandContext& context, const std::string& where) {
    if (!TryToWide(line)) {
        WriteError(where + "the line is not UTF-8");
        return kExitUsage;
    }
    const auto words = SplitLine(line);
    if (!words) {
        WriteError(where + "a quote is not closed");
        return kExitUsage;
    }
    return words->empty() ? kExitOk : RunScriptCommand(*words, context, where);
}

}  // namespace

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

int RunScript(CommandContext& context, bool keepGoing) {
    CommandContext inner{context.session, context.quiet, /*standardInputFree=*/false};
    int status = kExitOk;
    std::string line;
    for (unsigned long long number = 1; ReadLine(line); ++number) {
        CheckInterrupted();
        std::string_view text = line;
        if (number == 1 && text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
        const std::string where = "line " + std::to_string(number) + ": ";
        int result = kExitFailed;
        bool fatal = false;
        try {
            result = RunLine(text, inner, where);
        } catch (const CFatalFailure&) {
            fatal = true;
        }
        if (status == kExitOk) status = result;
        if (fatal || (result != kExitOk && !keepGoing)) return status;
    }
    return status;
}

}  // namespace zd
