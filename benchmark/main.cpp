// zdbench.exe: measures the plug-in beside the direct calls of the storage library that stands in its folder.
#include <windows.h>

#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <iterator>

#include "benchmark/rows/Groups.h"
#include "benchmark/rows/LocalFiles.h"

namespace zd::bench {
namespace {

struct CGroupEntry {
    const char* name;
    CGroup run;
    bool onLocalEngine;  // false: over the memory engine only, or no storage library takes part: once is enough
    const char* about;
};

constexpr CGroupEntry kGroups[] = {
    {"transfers", &RunTransfers, true, "reads and writes, within one fragment and across fragments"},
    {"opening", &RunOpening, true, "opening, creating, closing and releasing"},
    {"queries", &RunQueries, true, "information of a handle, a path and the volume"},
    {"fragments", &RunFragments, true, "a file of 10,000 fragments, 100 of them open at once"},
    {"growth", &RunGrowth, false, "calls with up to 10,000 handles or fragments open"},
    {"threads", &RunThreads, true, "throughput of 1 to 16 threads"},
    {"lifecycle", &RunLifecycle, true, "connections, and the memory of handles and fragments"},
    {"listing", &RunListing, true, "listings of directories, up to 1,000,000 entries"},
    {"log", &RunLog, false, "the log call and its writer, beside fprintf and another asynchronous logger"},
};

struct CArguments {
    std::vector<std::string> groups;
    bool list = false;
    int rounds = 0;
    int milliseconds = 0;
    CReportOptions report;
};

// The folder of the program is called after the engine in it.
std::string FolderName() {
    char path[4096];
    const DWORD length = ::GetModuleFileNameA(nullptr, path, sizeof path);
    std::string folder(path, length);
    folder.resize(std::min(folder.rfind('\\'), folder.size()));
    return folder.substr(folder.rfind('\\') + 1);
}

bool IsWanted(const CGroupEntry& group, const CArguments& arguments) {
    if (arguments.groups.empty()) return group.onLocalEngine || arguments.report.engine != kLocalEngine;
    return std::find(arguments.groups.begin(), arguments.groups.end(), group.name) != arguments.groups.end();
}

void Describe(CLI::App& app, CArguments& arguments) {
    std::vector<std::string> names;
    for (const CGroupEntry& group : kGroups) names.emplace_back(group.name);
    app.add_option("--group", arguments.groups, "Only this group; may be given again")->check(CLI::IsMember(names));
    app.add_option("--row", arguments.report.row, "Only rows whose name contains this text");
    app.add_option("--contestant", arguments.report.contestant, "Only the turns of this contestant, as plugin");
    app.add_flag("--quick", arguments.report.quick, "Tiny counts: shows that the rows work, measures nothing well");
    app.add_option("--engine", arguments.report.engine, "How the engine is called in the rows (the folder's name)");
    app.add_option("--rounds", arguments.rounds, "Rounds of a row (101; with --quick 3)")->check(CLI::PositiveNumber);
    app.add_option("--milliseconds", arguments.milliseconds, "Length of a contestant's turn (2; with --quick 1)")
        ->check(CLI::PositiveNumber);
    app.add_flag("--list", arguments.list, "Names the groups and ends");
}

int Run(CArguments& arguments) {
    if (arguments.list) {
        for (const CGroupEntry& group : kGroups) {
            std::printf("%-12s%s%s\n", group.name, group.about, group.onLocalEngine ? "" : " (memory only)");
        }
        return 0;
    }
    CReportOptions& options = arguments.report;
    if (options.engine.empty()) options.engine = FolderName();
    if (options.quick) {
        options.rounds = 3;
        options.milliseconds = 1;
    }
    if (arguments.rounds != 0) options.rounds = arguments.rounds;
    if (arguments.milliseconds != 0) options.milliseconds = arguments.milliseconds;
    CBench bench;
    CReport report(options);
    for (const CGroupEntry& group : kGroups) {
        if (!IsWanted(group, arguments)) continue;
        report.BeginGroup(group.name);
        group.run(report, bench);
    }
    return 0;
}

}  // namespace
}  // namespace zd::bench

int main(int argc, char** argv) {
    CLI::App app(
        "Measures the plug-in beside direct calls of the storage library. Rows go to standard output as JSON.");
    zd::bench::CArguments arguments;
    zd::bench::Describe(app, arguments);
    CLI11_PARSE(app, argc, argv);
    try {
        return zd::bench::Run(arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zdbench: %s\n", error.what());
    } catch (DWORD code) {
        std::fprintf(stderr, "zdbench: the plug-in let %lu through\n", code);
    }
    return 1;
}
