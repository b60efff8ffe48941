#include "CommandLine.h"

#include <new>

#include "Impersonation.h"
#include "Script.h"
#include "Shell.h"
#include "text/Failure.h"
#include "text/Output.h"

namespace zd::host {

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

std::string CheckCaller(const std::string& text) {
    return CallerNamed(text) ? "" : "\"" + text + "\" is none of self, restricted, anonymous";
}

// The connection is the service's own, as in a file server; only what is done over it is done for the caller.
CommandAction RunAs(Caller caller, CommandAction action) {
    return [caller, action = std::move(action)](CommandContext& context) {
        context.session.Manager();
        const CImpersonation impersonation(caller);
        action(context);
    };
}

// The commands in one parser, each with what it does.
class CCommandParser {
public:
    CCommandParser(const std::string& description, const std::string& name)
        : m_parser(description, name, "zdhost " ZD_VERSION) {
        Top()
            .AddOption("--as", m_caller, "Connect, then run the command as this caller: self, restricted, anonymous")
            .TypeName("WHO")
            .Check(&CheckCaller);
        for (const Command* command : Commands()) Add(*command);
    }

    CSyntax Top() const { return m_parser.Top(); }

    // Answers kExitOk, and what to run; or an exit status where help was shown or the words make no sense.
    int Parse(const std::vector<std::string>& words, CommandAction& action, const std::string& where) {
        const ParseResult result = m_parser.Parse(words);
        if (result.kind == ParseResult::Kind::Help) {
            WriteOutput(result.text.data(), result.text.size());
            FlushOutput();
            return kExitOk;
        }
        if (result.kind == ParseResult::Kind::Wrong) {
            // Only the shell knows this word.
            const bool hasHelp = Top().Find("help").has_value();
            const std::string hint = hasHelp ? "help" + result.command : "zdhost" + result.command + " --help";
            WriteError(where + result.text + "; see " + hint);
            return kExitUsage;
        }
        for (const auto& [command, run] : m_actions) {
            if (command.IsGiven()) action = run;
        }
        if (const auto caller = CallerNamed(m_caller); action && caller) action = RunAs(*caller, std::move(action));
        return kExitOk;
    }

    void Add(const Command& command) {
        const CSyntax syntax = Top().AddCommand(command.name, command.summary);
        Add(syntax, command.describe(syntax));
    }

    void Add(CSyntax command, CommandAction action) { m_actions.emplace_back(command, std::move(action)); }

private:
    CParser m_parser;
    std::string m_caller;
    std::vector<std::pair<CSyntax, CommandAction>> m_actions;
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
    const CSyntax shell = parser.Top().AddCommand("shell", "Run commands as they are typed, with a current directory");
    shell.AddFlag("--prompt", options.prompt, "Show the prompt even where the input is no console");
    shell.Footer(
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

void DescribeTrace(CSyntax top, TraceOptions& trace) {
    top.AddFlag("--trace", trace.enabled, "Show the storage calls and log lines of each operation");
    const CArgument file =
        top.AddOption("--trace-to", trace.file, "Write the trace to this file, not to standard error");
    file.TypeName("FILE").Check(
        [](const std::string& name) { return name.empty() ? std::string("an empty file name") : std::string(); });
    top.AddFlag("--trace-json", trace.json, "Write it as JSON; with --trace-to").Needs(file);
}

void DescribeProgram(CCommandParser& parser, ProgramOptions& options) {
    const CSyntax top = parser.Top();
    top.Footer(kExamples);
    top.AddOption("--plugin", options.session.plugin, "The plug-in (default: ZdvfsProtocol.dll beside this program)")
        .TypeName("PATH");
    top.AddOption("--pool", options.session.pool, "The storage pool to connect to (default: pool)").TypeName("NAME");
    top.AddOption("--second", options.session.second, "The connection's second name").TypeName("NAME");
    top.AddOption("--third", options.session.third, "The connection's third name").TypeName("NAME");
    top.AddFlag("-q,--quiet", options.quiet, "No progress and no reports");
    DescribeTrace(top, options.session.trace);

    const CSyntax script = top.AddCommand("script", "Run the commands of standard input, one a line (also: -)");
    script.AddFlag("-k,--keep-going", options.keepGoing, "Go on with the next line after a failure");
    script.Footer(
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
    const int parsed = parser.Parse(words, action, "");
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

}  // namespace zd::host
