// Lines of commands: from standard input into words.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CommandTable.h"

namespace zd::host {

// Standard input line by line, as UTF-8; a byte order mark in front is dropped.
class CInputLines {
public:
    // Goes to the next line; false at the end of the input. Throws CFailure.
    bool Next();

    // The line without its end.
    const std::string& Text() const { return m_text; }

    // "line 3: ", to stand in front of what is told of it.
    std::string Where() const { return "line " + std::to_string(m_number) + ": "; }

private:
    std::string m_text;
    unsigned long long m_number = 0;
};

using WordsRunner = int (*)(const std::vector<std::string>& words, CommandContext& context, const std::string& where);

// Has `run` do what a line says and answers its status; 0 for a line without words. A line that makes no sense is told.
int RunLine(std::string_view line, CommandContext& context, const std::string& where, WordsRunner run);

}  // namespace zd::host
