#include <cstdarg>
#include <cstdio>
#include <memory>
#include <sstream>
#include <vector>

#include "commands/Arguments.h"
#include "CommandTable.h"
#include "text/Failure.h"
#include "text/Json.h"
#include "text/Output.h"
#include "text/Text.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"

namespace zd::host {

namespace {

// The local engine's own request: (char* buffer, int size) receives what it remembers.
constexpr DWORD kQueryRequests = 0x5A440001;
constexpr int kLengthOfValue = 4;
constexpr std::size_t kFirstBuffer = 4096;
constexpr std::size_t kLargestBuffer = 64 << 20;

struct IoctlOptions {
    std::string request;
    std::string value = "0";
    std::string remote;
    bool show = false;
    bool json = false;
};

struct RememberedRequest {
    std::int64_t request = 0;
    std::string value;
    std::uint64_t count = 0;
    std::string path;
};

const char* NameOf(std::int64_t request) {
    switch (request) {
        case 2:
            return "segment size";
        case 9:
            return "encryption";
        case 10:
            return "compression";
        case 14:
            return "task time";
        case 16:
            return "sync file count";
        case 23:
            return "stream segment size";
        case 46:
            return "storage locality";
        default:
            return "";
    }
}

// The operations take the arguments of a request as an argument list; a variadic call is what builds one.
DWORD SendToPools(IProtocolManager& manager, DWORD request, ...) {
    va_list arguments;
    va_start(arguments, request);
    const DWORD result = manager.ZdPathIoctl(request, reinterpret_cast<std::uint64_t>(arguments));
    va_end(arguments);
    return result;
}

DWORD SendToHandle(IProtocolManager& manager, Handle handle, DWORD request, ...) {
    va_list arguments;
    va_start(arguments, request);
    const DWORD result = manager.ZdHandleIoctl(handle, request, reinterpret_cast<std::uint64_t>(arguments));
    va_end(arguments);
    return result;
}

// Results are the storage's own: below 0 it has failed.
void Report(const char* operation, DWORD result, bool quiet) {
    if (static_cast<std::int32_t>(result) < 0) {
        char text[32];
        std::snprintf(text, sizeof(text), "0x%08lX", result);
        throw CFailure(std::string(operation) + " answered " + text + ", the storage's failure");
    }
    if (!quiet) WriteLine("ioctl: " + std::to_string(result));
}

void Send(CommandContext& context, const IoctlOptions& options) {
    IProtocolManager& manager = context.session.Manager();
    const auto request = DWORD{NumberOf(options.request)};
    const auto value = static_cast<int>(NumberOf(options.value));
    if (options.remote.empty()) {
        return Report("ZdPathIoctl", SendToPools(manager, request, value, kLengthOfValue), context.quiet);
    }
    CRemoteFile file(manager, {RemoteName(options.remote, context.directory)});
    const DWORD result = SendToHandle(manager, file.Get(), request, value, kLengthOfValue);
    file.Finish();
    Report("ZdHandleIoctl", result, context.quiet);
}

// The text that the engine answers. The operation does not tell whether the pool took the request, so the buffer does.
std::string QueryText(IProtocolManager& manager) {
    constexpr char kUntouched = '\x01';
    for (std::size_t size = kFirstBuffer; size <= kLargestBuffer; size *= 4) {
        std::vector<char> buffer(size, kUntouched);
        const DWORD result = SendToPools(manager, kQueryRequests, buffer.data(), static_cast<int>(size));
        if (result != 0) throw CFailure("ZdPathIoctl could not reach the pool");
        buffer.back() = '\0';
        if (buffer.front() != kUntouched) return buffer.data();
    }
    throw CFailure("ioctl --show: this zdvfs.dll does not tell what it remembers");
}

std::vector<RememberedRequest> ParseText(const std::string& text) {
    std::vector<RememberedRequest> requests;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        RememberedRequest remembered;
        if (!(fields >> remembered.request >> remembered.value >> remembered.count)) continue;
        fields.get();
        std::getline(fields, remembered.path);
        requests.push_back(std::move(remembered));
    }
    return requests;
}

void Show(CommandContext& context, bool json) {
    const auto requests = ParseText(QueryText(context.session.Manager()));
    CJson all = CJson::Array();
    if (!json) WriteLine("request  value             times  object");
    for (const RememberedRequest& remembered : requests) {
        const std::string name = NameOf(remembered.request);
        if (json) {
            all.Add(CJson()
                        .Set("request", remembered.request)
                        .Set("name", name)
                        .Set("value", remembered.value)
                        .Set("count", remembered.count)
                        .Set("path", remembered.path));
            continue;
        }
        char text[128];
        std::snprintf(text, sizeof(text), "%7lld  %-16s  %5llu  ", static_cast<long long>(remembered.request),
                      remembered.value.c_str(), static_cast<unsigned long long>(remembered.count));
        WriteLine(text + remembered.path + (name.empty() ? "" : "  (" + name + ")"));
    }
    if (json) WriteLine(all.Line());
}

CommandAction DescribeIoctl(CSyntax command) {
    auto options = std::make_shared<IoctlOptions>();
    const CArgument request = command.AddOption("REQUEST", options->request, "The request's number");
    const CArgument value = command.AddOption("VALUE", options->value, "Its 32-bit value (default: 0)");
    for (const CArgument option : {request, value}) option.TypeName("").Check(&CheckNumber);
    const CArgument remote = command.AddOption("--on", options->remote, "Send it to this file, not to the pool");
    remote.TypeName("REMOTE");
    const CArgument show = command.AddFlag("--show", options->show, "Show what the local engine remembers of the pool");
    const CArgument json = command.AddFlag("--json", options->json, "With --show: an array of objects");
    show.Excludes(request).Excludes(remote);
    json.Needs(show);
    command.Footer(
        "The storage library gets the value and its length, 4. Without --on the request goes to the pool's root, and "
        "the\n"
        "answer is that of closing the root; with --on it goes to the open file, and the answer is the request's own.\n"
        "Every connection itself sends requests 10 and 9, compression and encryption.\n"
        "\n"
        "Examples:\n"
        "  zdhost ioctl 16 1000\n"
        "  zdhost ioctl 2 0x100000 --on /images/big.iso\n"
        "  zdhost ioctl --show");
    return [options](CommandContext& context) {
        if (options->show) return Show(context, options->json);
        if (options->request.empty()) throw CUsageError("ioctl: REQUEST or --show is required");
        Send(context, *options);
    };
}

}  // namespace

extern const Command kIoctlCommand;
const Command kIoctlCommand{"ioctl", "Send a control request to the storage, or show those remembered", &DescribeIoctl};

}  // namespace zd::host
