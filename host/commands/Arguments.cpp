#include "commands/Arguments.h"

#include <limits>
#include <optional>

#include "text/Text.h"

namespace zd::host {

namespace {

std::optional<std::uint64_t> ParseUnsigned(const std::string& text) {
    return ParseNumber(text, std::numeric_limits<std::uint32_t>::max());
}

}  // namespace

std::string CheckSize(const std::string& text) {
    if (ParseSize(text)) return "";
    return "\"" + text + "\" is no size: a number from 0 on, with K, M, G or T behind it";
}

std::int64_t SizeOf(const std::string& text) {
    return ParseSize(text).value();
}

std::string CheckNumber(const std::string& text) {
    return ParseUnsigned(text) ? "" : "\"" + text + "\" is no number from 0 to 4294967295";
}

std::uint32_t NumberOf(const std::string& text) {
    return static_cast<std::uint32_t>(ParseUnsigned(text).value());
}

void AddCopyOptions(CSyntax command, CopyOptions& options) {
    const CArgument tree = command.AddFlag("-r,--recursive", options.tree, "Copy a directory with all that is in it");
    command.AddFlag("-t,--times", options.times, "Keep the files' times of the last write");
    command.AddFlag("--json", options.json, "With -r: the summary as a JSON object").Needs(tree);
}

}  // namespace zd::host
