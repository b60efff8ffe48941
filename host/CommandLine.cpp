#include "CommandLine.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <memory>
#include <new>
#include <sstream>

#include "Failure.h"
#include "Impersonation.h"
#include "Output.h"
#include "Script.h"
#include "Shell.h"

namespace zd {

namespace {

constexpr char kExamples[] =
    "Remote names may be written /dir/x, dir/x or \\dir\\x. A name that begins with \"-\" goes behind \"--\".\n"
    "Exit status: 0 done, 1 something failed, 2 the arguments make no sense.\n"
    "\n"
    "Examples:\n"
    "  zdhost setup --agent-path C:\\agent --log-path C:\\logs --max-file-size-mb 1\n"
    "  zdhost put big.iso /images/big.iso\n"
    "  zdhost --pool backup get /images/big.iso copy.iso\n"
    "  zdhost script < commands.txt\n"
    "  zdhost --as restricted cat /docs/notes.txt\n"
    "  zdhost --trace cat /docs/notes.txt\n"
    "  zdhost put --help";

CLI::Validator CallerValidator() {
    return CLI::Validator(
        [](std::string& text) {
            return CallerNamed(text) ? std::string() : "\"" + text + "\" is none of self, restricted, anonymous";
        },
        "");
}

// The connection is the service's own, as in a file server; only what is done over it is done for the caller.
CommandAction RunAs(Caller caller, CommandAction action) {
    return [caller, action = std::move(action)](CommandContext& context) {
        context.session.Manager();
        const CImpersonation impersonation(caller);
        action(context);
    };
}

// The commands as subcommands of one parser, each with what it does.
class CCommandParser {
public:
    CCommandParser(const std::string& description, const std::string& name) : m_app(description, name) {
        // Otherwise a name such as /dir would be taken for an option.
        m_app.allow_windows_style_options(false);
        m_app.require_subcommand(1);
        m_app.get_formatter()->column_width(34);
        m_app.set_help_flag("-h,--help", "Show this help");
        m_app.set_version_flag("--version", "zdhost " ZD_VERSION, "Show the version");
        m_app.add_option("--as", m_caller, "Connect, then run the command as this caller: self, restricted, anonymous")
            ->type_name("WHO")
            ->check(CallerValidator());
        for (const Command* command : Commands()) Add(*command);
    }

    CLI::App& App() { return m_app; }

    // Answers kExitOk, and what to run; or an exit status where help was shown or the words make no sense.
    int Parse(std::vector<std::string> words, CommandAction& action, const std::string& where) {
        try {
            std::reverse(words.begin(), words.end());
            m_app.parse(std::move(words));
        } catch (const CLI::ParseError& error) {
            return Explain(error, where);
        }
        for (auto& [sub, run] : m_actions) {
            if (sub->parsed()) action = run;
        }
        if (const auto caller = CallerNamed(m_caller); action && caller) action = RunAs(*caller, std::move(action));
        return kExitOk;
    }

    void Add(const Command& command) {
        CLI::App* sub = m_app.add_subcommand(command.name, command.summary);
        m_actions.emplace_back(sub, command.describe(*sub));
    }

    void Add(CLI::App* sub, CommandAction action) { m_actions.emplace_back(sub, std::move(action)); }

private:
    int Explain(const CLI::ParseError& error, const std::string& where) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            std::ostringstream help;
            m_app.exit(error, help, help);
            const std::string text = help.str();
            WriteOutput(text.data(), text.size());
            FlushOutput();
            return kExitOk;
        }
        std::string command;
        CLI::App* at = &m_app;
        for (; !at->get_subcommands().empty(); command += " " + at->get_name()) at = at->get_subcommands().front();
        const std::vector<std::string> left = at->remaining();
        const bool wantsCommand = at->get_require_subcommand_min() != 0;
        std::string text = error.what();
        if (wantsCommand) text = left.empty() ? "a command is missing" : "there is no command \"" + left.front() + "\"";
        // Only the shell knows this word.
        const bool hasHelp =
            !m_app.get_subcommands([](const CLI::App* app) { return app->get_name() == "help"; }).empty();
        WriteError(where + text + (hasHelp ? "; see help" + command : "; see zdhost" + command + " --help"));
        return kExitUsage;
    }

    CLI::App m_app;
    std::string m_caller;
    std::vector<std::pair<CLI::App*, CommandAction>> m_actions;
};

// Runs an action and tells what went wrong. CFatalFailure passes where `passFatal`.
int RunGuarded(const std::string& where, bool passFatal, const std::function<void()>& action) {
    try {
        action();
        return kExitOk;
    } catch (const CToldFailure& told) {
        return told.Status();
    } catch (const CUsageError& error) {
        WriteError(where + error.what());
        return kExitUsage;
    } catch (const CFatalFailure& failure) {
        WriteError(where + failure.what());
        if (passFatal) throw;
    } catch (const CFailure& failure) {
        WriteError(where + failure.what());
    } catch (const std::bad_alloc&) {
        WriteError(where + "out of memory");
    } catch (const std::exception& error) {
        WriteError(where + error.what());
    }
    return kExitFailed;
}

// "-" in place of a command stands for the script.
void AcceptDash(std::vector<std::string>& arguments) {
    for (std::string& argument : arguments) {
        for (const Command* command : Commands()) {
            if (argument == command->name) return;
        }
        if (argument == "--" || argument == "script" || argument == "shell") return;
        if (argument == "-") {
            argument = "script";
            return;
        }
    }
}

struct ProgramOptions {
    SessionOptions session;
    bool quiet = false;
    bool keepGoing = false;
    bool prompt = false;
};

void DescribeShell(CCommandParser& parser, ProgramOptions& options) {
    CLI::App* shell = parser.App().add_subcommand("shell", "Run commands as they are typed, with a current directory");
    shell->add_flag("--prompt", options.prompt, "Show the prompt even where the input is no console");
    shell->footer(
        "Lines as those of a script, with the console's line editing. Besides the commands there are cd, pwd, lcd, "
        "lpwd,\n"
        "reconnect, help and exit. Remote names without a separator in front are taken from the current directory. A\n"
        "failure is told and the shell goes on; its exit status is that of the first one. Ctrl-C ends a command.\n"
        "\n"
        "Examples:\n"
        "  zdhost --pool backup shell\n"
        "  printf 'cd docs\\nput -r C:\\\\docs .\\nls -l\\n' | zdhost shell");
    parser.Add(shell, [&options](CommandContext& context) {
        const int status = RunShell(context, options.prompt);
        if (status != kExitOk) throw CToldFailure(status);
    });
}

void DescribeTrace(CLI::App& app, TraceOptions& trace) {
    app.add_flag("--trace", trace.enabled, "Show the storage calls and log lines of each operation");
    CLI::Option* file = app.add_option("--trace-to", trace.file, "Write the trace to this file, not to standard error");
    file->type_name("FILE")->check(
        [](const std::string& name) { return name.empty() ? std::string("an empty file name") : std::string(); });
    app.add_flag("--trace-json", trace.json, "Write it as JSON; with --trace-to")->needs(file);
}

void DescribeProgram(CCommandParser& parser, ProgramOptions& options) {
    CLI::App& app = parser.App();
    app.footer(kExamples);
    app.add_option("--plugin", options.session.plugin, "The plug-in (default: ZdvfsProtocol.dll beside this program)")
        ->type_name("PATH");
    app.add_option("--pool", options.session.pool, "The storage pool to connect to (default: pool)")->type_name("NAME");
    app.add_option("--second", options.session.second, "The connection's second name")->type_name("NAME");
    app.add_option("--third", options.session.third, "The connection's third name")->type_name("NAME");
    app.add_flag("-q,--quiet", options.quiet, "No progress and no reports");
    DescribeTrace(app, options.session.trace);

    CLI::App* script = app.add_subcommand("script", "Run the commands of standard input, one a line (also: -)");
    script->add_flag("-k,--keep-going", options.keepGoing, "Go on with the next line after a failure");
    script->footer(
        "A line holds a command and its arguments as on the command line, without \"zdhost\". Blank lines and lines "
        "that\n"
        "begin with # are skipped. Words with blanks stand in \"double\" or 'single' quotes; a doubled quote inside\n"
        "them is the quote itself. All lines run over one connection, which is opened by the first that needs it.\n"
        "The first line that fails ends the script and is named.\n"
        "\n"
        "Example:\n"
        "  printf 'mkdir /d\\nput \"my file\" /d/f\\n' | zdhost script");
    parser.Add(script, [&options](CommandContext& context) {
        const int status = RunScript(context, options.keepGoing);
        if (status != kExitOk) throw CToldFailure(status);
    });
}

int RunWords(CCommandParser& parser, const std::vector<std::string>& words, CommandContext& context,
             const std::string& where) {
    CommandAction action;
    const int parsed = parser.Parse(words, action, where);
    if (!action) return parsed;
    return RunGuarded(where, /*passFatal=*/true, [&] { action(context); });
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments) {
    ProgramOptions options;
    CCommandParser parser("Uses a storage pool through ZdvfsProtocol.dll: puts files in, gets them back, changes them.",
                          "zdhost");
    DescribeProgram(parser, options);
    DescribeShell(parser, options);
    std::vector<std::string> words = arguments;
    AcceptDash(words);
    CommandAction action;
    const int parsed = parser.Parse(std::move(words), action, "");
    if (!action) return parsed;

    CSession session(options.session);
    CommandContext context{session, options.quiet, /*standardInputFree=*/true};
    const int done = RunGuarded("", /*passFatal=*/false, [&] { action(context); });
    const int ended = RunGuarded("", /*passFatal=*/false, [&] { session.End(); });
    return done != kExitOk ? done : ended;
}

int RunScriptCommand(const std::vector<std::string>& words, CommandContext& context, const std::string& where) {
    CCommandParser parser("The commands of a script.", "");
    return RunWords(parser, words, context, where);
}

int RunShellCommand(const std::vector<std::string>& words, CommandContext& context, const std::string& where) {
    CCommandParser parser("The commands of the shell.", "");
    for (const Command& command : ShellCommands()) parser.Add(command);
    return RunWords(parser, words, context, where);
}

}  // namespace zd
