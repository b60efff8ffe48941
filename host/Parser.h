// The command-line parser: what a command takes is described here, and words are read by it. The library behind it is
// included by Parser.cpp alone, for its header takes longer to read than all else in a command's file.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace zd::host {

// Answers why a text is not accepted; empty where it is.
using ArgumentCheck = std::function<std::string(const std::string& text)>;

// One option, flag or positional argument: a reference that holds as long as its parser.
class CArgument {
public:
    explicit CArgument(CLI::Option* option) : m_option(option) {}

    CArgument Required() const;
    // What help calls the value; with an empty name it says nothing.
    CArgument TypeName(const char* name) const;
    CArgument Check(const ArgumentCheck& check) const;
    CArgument Needs(CArgument other) const;
    CArgument Excludes(CArgument other) const;
    // Each use takes one value; the words behind it are not its own.
    CArgument OneValueEach() const;

    bool IsGiven() const;

private:
    CLI::Option* m_option;
};

// What a command takes: a reference that holds as long as its parser. The variables that are handed to it are filled
// when words are parsed, and have to live until then.
class CSyntax {
public:
    explicit CSyntax(CLI::App* command) : m_command(command) {}

    // `names` as "-l,--long"; a name without a dash is a positional argument.
    CArgument AddFlag(const char* names, bool& given, const std::string& help) const;
    CArgument AddOption(const char* names, std::string& value, const std::string& help) const;
    CArgument AddOption(const char* names, std::vector<std::string>& values, const std::string& help) const;
    // A command below this one.
    CSyntax AddCommand(const char* name, const char* summary) const;
    // One of the commands below has to follow.
    void RequireCommand() const;
    // What stands below the help.
    void Footer(const char* text) const;

    // True where this command is among the words.
    bool IsGiven() const;
    std::string Help() const;
    CSyntax Parent() const;
    // The command of that name below this one.
    std::optional<CSyntax> Find(const std::string& name) const;

private:
    CLI::App* m_command;
};

struct ParseResult {
    enum class Kind { Parsed, Help, Wrong } kind;
    std::string text;     // the help that was asked for, or what is wrong
    std::string command;  // of wrong words: the command that they name, as " acl get"
};

class CParser {
public:
    CParser(const std::string& description, const std::string& name, const std::string& version);
    ~CParser();
    CParser(const CParser&) = delete;
    CParser& operator=(const CParser&) = delete;

    CSyntax Top() const { return CSyntax(m_top.get()); }

    ParseResult Parse(std::vector<std::string> words);

private:
    std::unique_ptr<CLI::App> m_top;
};

}  // namespace zd::host
