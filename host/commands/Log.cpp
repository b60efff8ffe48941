#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include "commands/Arguments.h"
#include "CommandTable.h"
#include "config/Configuration.h"
#include "log/LogOutput.h"
#include "log/LogReader.h"
#include "text/Failure.h"
#include "text/Interrupt.h"
#include "text/Output.h"
#include "text/Text.h"

namespace zd::host {

namespace {

constexpr DWORD kPollMilliseconds = 100;

struct LogOptions {
    std::vector<std::string> files;
    std::string level;
    std::string last;
    std::string seconds;
    bool all = false;
    bool follow = false;
    bool knownOnly = false;
    bool json = false;
};

// What is read: files, the oldest first, and the folder in which new ones may come.
struct LogPlaces {
    std::vector<std::wstring> files;
    std::optional<std::wstring> folder;
    std::set<std::wstring> known;  // the names in it that are not new
};

std::wstring NameIn(const std::wstring& path) {
    return path.substr(path.find_last_of(L"\\/:") + 1);
}

LogPlaces PlacesInFolder(const std::wstring& folder, const LogOptions& options) {
    LogPlaces places{{}, folder, {}};
    std::vector<std::wstring> names;
    try {
        names = LogFileNames(folder);
    } catch (const CFailure&) {
        // The log makes it with its first file.
        if (!options.follow) throw;
    }
    if (names.empty() && !options.follow) throw CFailure("there is no log file in " + ToUtf8(folder));
    places.known.insert(names.begin(), names.end());
    if (!options.all && names.size() > 1) names.erase(names.begin(), names.end() - 1);
    for (const std::wstring& name : names) places.files.push_back(PathBelow(folder, name));
    return places;
}

// The folder's log files that are not newer than one of them.
std::set<std::wstring> NamesUpTo(const std::wstring& newest, const std::wstring& folder) {
    std::set<std::wstring> names;
    try {
        for (const std::wstring& name : LogFileNames(folder)) {
            if (name <= newest) names.insert(name);
        }
    } catch (const CFailure&) {
        // Opening the file tells why.
    }
    return names;
}

LogPlaces PlacesOf(const LogOptions& options) {
    if (options.files.empty()) {
        const auto folder = FindLogFolder(FormerTreeInUse() ? SettingsTree::Former : SettingsTree::Present);
        if (!folder) throw CFailure("neither Agent\\logpath nor Agent\\path names a folder: there is no log file");
        return PlacesInFolder(folder->path, options);
    }
    LogPlaces places;
    for (const std::string& file : options.files) {
        if (file.empty()) throw CUsageError("an empty file name");
        places.files.push_back(ToWide(file));
    }
    const DWORD attributes = ::GetFileAttributesW(places.files.front().c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        if (places.files.size() > 1) throw CUsageError("a folder goes alone");
        return PlacesInFolder(places.files.front(), options);
    }
    if (options.all) throw CUsageError("--all goes with a folder, or without a name");
    const auto isNamed = [](const std::wstring& path) { return IsLogFileName(NameIn(path)); };
    if (std::all_of(places.files.begin(), places.files.end(), isNamed)) {
        std::stable_sort(
            places.files.begin(), places.files.end(),
            [](const std::wstring& one, const std::wstring& other) { return NameIn(one) < NameIn(other); });
        const std::wstring newest = NameIn(places.files.back());
        places.folder = places.files.back().substr(0, places.files.back().size() - newest.size());
        if (places.folder->empty()) places.folder = L".";
        places.known = NamesUpTo(newest, *places.folder);
    }
    return places;
}

void Follow(const LogOptions& options, const LogPlaces& places, CLogOutput& output, const CLogParser::Sink& sink) {
    const bool timed = !options.seconds.empty();
    const ULONGLONG until = timed ? ::GetTickCount64() + NumberOf(options.seconds) * 1000ULL : 0;
    CLogFollower follower(places.folder, places.known, sink);
    try {
        for (const std::wstring& file : places.files) follower.Begin(file);
        follower.Read();
        follower.FlushWhole();
        output.EndPast();
        while (!timed || ::GetTickCount64() < until) {
            FlushOutput();
            ::Sleep(kPollMilliseconds);
            CheckInterrupted();
            follower.Read();
        }
    } catch (const CInterrupted&) {
        // That is how one stops following.
    }
    follower.FlushAll();
    output.EndPast();
}

void ShowLog(const LogOptions& options) {
    LogOutputOptions wanted;
    if (!options.level.empty()) wanted.level = static_cast<std::int32_t>(std::min(NumberOf(options.level), 666U));
    if (!options.last.empty()) wanted.last = NumberOf(options.last);
    wanted.knownOnly = options.knownOnly;
    wanted.json = options.json;
    CLogOutput output(wanted);
    const CLogParser::Sink sink = [&output](LogEntry&& entry) { output.Take(entry); };
    const LogPlaces places = PlacesOf(options);
    if (options.follow) {
        Follow(options, places, output, sink);
    } else {
        for (const std::wstring& file : places.files) ReadLogFile(file, sink);
        output.EndPast();
    }
    FlushOutput();
}

CommandAction DescribeLog(CSyntax command) {
    auto options = std::make_shared<LogOptions>();
    command.AddOption("FILE", options->files, "Log files, or their folder (default: where the settings say)")
        .TypeName("");
    command.AddFlag("--all", options->all, "Every log file of the folder, not only the newest");
    const CArgument follow =
        command.AddFlag("-f,--follow", options->follow, "Wait for further lines, and for new files; ends with Ctrl-C");
    command.AddOption("--for", options->seconds, "With --follow: end after so many seconds")
        .TypeName("SECONDS")
        .Check(&CheckNumber)
        .Needs(follow);
    command.AddOption("--last", options->last, "Of what is there already, only the last N")
        .TypeName("N")
        .Check(&CheckNumber);
    command.AddOption("--level", options->level, "Leave out what has a level above N: 1 errors, 2 warnings, 3 notices")
        .TypeName("N")
        .Check(&CheckNumber);
    command.AddFlag("--known-only", options->knownOnly, "Leave out what has no known level");
    command.AddFlag("--json", options->json, "One object a line");
    command.Footer(
        "Reads the newest log file. Its name holds the time, and that is how files are ordered. The level stands in "
        "front\n"
        "of a line. The file does not hold it: it is known from the plug-in's texts. The storage's own lines (\"zdvfs: "
        "\")\n"
        "and those of hosts have none (\"-\") and are shown with every --level unless --known-only is given. \"=\" "
        "marks a\n"
        "summary of folded lines. Further lines of a text are indented; control characters show by their code.\n"
        "\n"
        "Examples:\n"
        "  zdhost log --level 2\n"
        "  zdhost log --follow --last 20\n"
        "  zdhost log --all --json");
    return [options](CommandContext&) { ShowLog(*options); };
}

}  // namespace

extern const Command kLogCommand;
const Command kLogCommand{"log", "Read the plug-in's log", &DescribeLog};

}  // namespace zd::host
