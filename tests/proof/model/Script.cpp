#include "Script.h"

#include <sstream>
#include <stdexcept>

namespace zd::test {

namespace {

struct Shape {
    const char* name;
    std::array<const char*, 6> args;
};

constexpr Shape kShapes[] = {
    {"plant", {"name", "fragment", "size", "seed"}},
    {"open", {"h", "name", "how", "access", "attributes", "descriptor"}},
    {"opendir", {"h", "name", "how", "attributes"}},
    {"close", {"h", "remove"}},
    {"release", {"h"}},
    {"read", {"h", "at", "length"}},
    {"write", {"h", "at", "length", "seed"}},
    {"size", {"h", "to"}},
    {"append", {"h", "source", "at", "from", "length"}},
    {"rename", {"h", "name", "replace"}},
    {"info", {"h"}},
    {"path", {"name"}},
    {"list", {"h"}},
    {"basic", {"h", "attributes", "access", "write"}},
    {"setsecurity", {"h", "descriptor"}},
    {"getsecurity", {"h"}},
    {"reconnect", {"fresh"}},
    {"restart", {"kill"}},
    {"check", {}},
};
static_assert(std::size(kShapes) == static_cast<std::size_t>(EOp::kCount));

constexpr Shape kSetup = {"setup", {"localengine", "open", "megabytes"}};

std::string Line(const Shape& shape, const std::array<std::int64_t, 6>& args) {
    std::string text = shape.name;
    for (std::size_t i = 0; i < args.size() && shape.args[i] != nullptr; ++i) {
        text += std::string(" ") + shape.args[i] + "=" + std::to_string(args[i]);
    }
    return text;
}

std::array<std::int64_t, 6> ParseArguments(const Shape& shape, std::istringstream& words, const std::string& line) {
    std::array<std::int64_t, 6> args{};
    std::string word;
    for (std::size_t i = 0; i < args.size() && shape.args[i] != nullptr; ++i) {
        const std::string start = std::string(shape.args[i]) + "=";
        if (!(words >> word) || !word.starts_with(start)) throw std::runtime_error("not a step: " + line);
        args[i] = std::stoll(word.substr(start.size()));
    }
    return args;
}

}  // namespace

std::string StepText(const Step& step) {
    return Line(kShapes[static_cast<std::size_t>(step.op)], step.args);
}

std::string ScriptText(const Script& script) {
    const Setup& setup = script.setup;
    std::string text = Line(kSetup, {setup.localEngine, setup.maxOpenFragments, setup.megabytes}) + "\n";
    for (const Step& step : script.steps) text += StepText(step) + "\n";
    return text;
}

Script ParseScript(const std::string& text) {
    Script script;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string name;
        if (!(words >> name) || name[0] == '#') continue;
        if (name == kSetup.name) {
            const auto args = ParseArguments(kSetup, words, line);
            script.setup = Setup{args[0], args[1], args[2]};
            continue;
        }
        std::size_t op = 0;
        while (op < std::size(kShapes) && name != kShapes[op].name) ++op;
        if (op == std::size(kShapes)) throw std::runtime_error("not a step: " + line);
        script.steps.push_back(Step{static_cast<EOp>(op), ParseArguments(kShapes[op], words, line)});
    }
    return script;
}

}  // namespace zd::test
