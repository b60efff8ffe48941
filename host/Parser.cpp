#include "Parser.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <sstream>

namespace zd::host {

CArgument CArgument::Required() const {
    return CArgument(m_option->required());
}

CArgument CArgument::TypeName(const char* name) const {
    return CArgument(m_option->type_name(name));
}

CArgument CArgument::Check(const ArgumentCheck& check) const {
    return CArgument(m_option->check(check));
}

CArgument CArgument::Needs(CArgument other) const {
    return CArgument(m_option->needs(other.m_option));
}

CArgument CArgument::Excludes(CArgument other) const {
    return CArgument(m_option->excludes(other.m_option));
}

CArgument CArgument::OneValueEach() const {
    return CArgument(m_option->allow_extra_args(false));
}

bool CArgument::IsGiven() const {
    return m_option->count() != 0;
}

CArgument CSyntax::AddFlag(const char* names, bool& given, const std::string& help) const {
    return CArgument(m_command->add_flag(names, given, help));
}

CArgument CSyntax::AddOption(const char* names, std::string& value, const std::string& help) const {
    return CArgument(m_command->add_option(names, value, help));
}

CArgument CSyntax::AddOption(const char* names, std::vector<std::string>& values, const std::string& help) const {
    return CArgument(m_command->add_option(names, values, help));
}

CSyntax CSyntax::AddCommand(const char* name, const char* summary) const {
    return CSyntax(m_command->add_subcommand(name, summary));
}

void CSyntax::RequireCommand() const {
    m_command->require_subcommand(1);
}

void CSyntax::Footer(const char* text) const {
    m_command->footer(text);
}

bool CSyntax::IsGiven() const {
    return m_command->parsed();
}

std::string CSyntax::Help() const {
    // Asked itself, a parser answers for the command that was parsed last.
    return m_command->get_formatter()->make_help(m_command, "", CLI::AppFormatMode::Normal);
}

CSyntax CSyntax::Parent() const {
    return CSyntax(m_command->get_parent());
}

std::optional<CSyntax> CSyntax::Find(const std::string& name) const {
    try {
        return CSyntax(m_command->get_subcommand(name));
    } catch (const CLI::OptionNotFound&) {
        return std::nullopt;
    }
}

CParser::CParser(const std::string& description, const std::string& name, const std::string& version)
    : m_top(std::make_unique<CLI::App>(description, name)) {
    // Otherwise a name such as /dir would be taken for an option.
    m_top->allow_windows_style_options(false);
    m_top->require_subcommand(1);
    m_top->get_formatter()->column_width(34);
    m_top->set_help_flag("-h,--help", "Show this help");
    m_top->set_version_flag("--version", version, "Show the version");
}

CParser::~CParser() = default;

ParseResult CParser::Parse(std::vector<std::string> words) {
    try {
        std::reverse(words.begin(), words.end());
        m_top->parse(std::move(words));
        return {ParseResult::Kind::Parsed, "", ""};
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            std::ostringstream help;
            m_top->exit(error, help, help);
            return {ParseResult::Kind::Help, help.str(), ""};
        }
        std::string command;
        CLI::App* at = m_top.get();
        for (; !at->get_subcommands().empty(); command += " " + at->get_name()) at = at->get_subcommands().front();
        const std::vector<std::string> left = at->remaining();
        std::string text = error.what();
        if (at->get_require_subcommand_min() != 0) {
            text = left.empty() ? "a command is missing" : "there is no command \"" + left.front() + "\"";
        }
        return {ParseResult::Kind::Wrong, text, command};
    }
}

}  // namespace zd::host
