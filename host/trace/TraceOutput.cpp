#include "trace/TraceOutput.h"

#include <utility>

#include "text/Failure.h"
#include "text/Json.h"
#include "text/LocalPath.h"
#include "text/Text.h"

namespace zd::host {

namespace {

constexpr char kOutside[] = "outside";

// ---- JSON ----

CJson JsonOfValue(const TraceValue& value) {
    return std::visit(
        [](const auto& alternative) -> CJson {
            if constexpr (std::is_same_v<std::decay_t<decltype(alternative)>, std::monostate>) {
                return CJson();
            } else {
                return alternative;
            }
        },
        value);
}

CJson JsonOfFields(const TraceFields& fields) {
    CJson json = CJson::Object();
    for (const TraceField& field : fields) json.Set(field.name, JsonOfValue(field.value));
    return json;
}

CJson JsonOfResult(const std::optional<TraceField>& result) {
    return result ? JsonOfValue(result->value) : CJson();
}

CJson JsonOfCall(const TracedCall& call) {
    CJson json;
    json.Set("call", call.function);
    json.Set("arguments", JsonOfFields(call.arguments));
    json.Set("result", JsonOfResult(call.result));
    json.Set("out", JsonOfFields(call.out));
    if (call.threw) json.Set("threw", true);
    json.Set("errno", call.failed ? CJson(call.error) : CJson());
    json.Set("win32", call.win32 ? CJson(*call.win32) : CJson());
    json.Set("microseconds", call.microseconds);
    return json;
}

CJson JsonOfOperation(const TracedOperation& operation) {
    CJson json;
    json.Set("operation", operation.name.empty() ? kOutside : operation.name);
    json.Set("arguments", JsonOfFields(operation.arguments));
    json.Set("result", JsonOfResult(operation.result));
    json.Set("out", JsonOfFields(operation.out));
    if (operation.threw) json.Set("threw", true);
    json.Set("microseconds", operation.microseconds);
    json.Set("thread", operation.threadId);
    CJson calls = CJson::Array();
    CJson lines = CJson::Array();
    for (const auto& event : operation.events) {
        if (const auto* const call = std::get_if<TracedCall>(&event)) {
            calls.Add(JsonOfCall(*call));
        } else {
            const auto& line = std::get<TracedLine>(event);
            lines.Add(CJson().Set("level", line.level).Set("text", line.text).Set("afterCalls", calls.Count()));
        }
    }
    json.Set("calls", std::move(calls));
    json.Set("log", std::move(lines));
    return json;
}

// ---- Text ----

std::string TextOfFields(const TraceFields& fields, bool named) {
    std::string text;
    for (const TraceField& field : fields) {
        if (!text.empty()) text += ", ";
        // Names of files speak for themselves.
        if (named && !std::holds_alternative<std::string>(field.value)) text += field.name + "=";
        text += field.text;
    }
    return text;
}

std::string TextOfOut(const TraceFields& out) {
    std::string text;
    for (const TraceField& field : out) text += ", " + field.name + "=" + field.text;
    return text;
}

std::string TextOfTime(std::int64_t microseconds) {
    return "  " + std::to_string(microseconds) + " us\n";
}

std::string TextOfCall(const TracedCall& call) {
    std::string text = std::string(call.function) + "(" + TextOfFields(call.arguments, /*named=*/false) + ")";
    if (call.threw) text += " threw";
    if (call.result) text += " = " + call.result->text;
    text += TextOfOut(call.out);
    if (call.failed) text += ", errno " + std::to_string(call.error);
    if (call.win32) text += " -> " + std::to_string(*call.win32);
    return text + TextOfTime(call.microseconds);
}

std::string TextOfOperation(const TracedOperation& operation) {
    if (operation.name.empty()) return "outside of an operation, thread " + std::to_string(operation.threadId) + "\n";
    std::string text = operation.name + "(" + TextOfFields(operation.arguments, /*named=*/true) + ")";
    if (operation.threw) text += " threw";
    if (operation.result) text += (operation.threw ? " " : " = ") + operation.result->text;
    if (operation.code != ERROR_SUCCESS) text += " (" + Win32Text(operation.code) + ")";
    return text + TextOfOut(operation.out) + TextOfTime(operation.microseconds);
}

std::string WholeText(const TracedOperation& operation) {
    std::string text = TextOfOperation(operation);
    for (const auto& event : operation.events) {
        text += "    ";
        if (const auto* const call = std::get_if<TracedCall>(&event)) {
            text += TextOfCall(*call);
        } else {
            const auto& line = std::get<TracedLine>(event);
            text += "log " + std::to_string(line.level) + "  " + Printable(line.text) + "\n";
        }
    }
    return text;
}

FILE* OpenStream(const TraceOptions& options) {
    if (options.file.empty()) return stderr;
    const std::wstring path = AbsolutePath(ToWide(options.file));
    FILE* const stream = ::_wfopen(path.c_str(), L"wb");
    if (stream == nullptr) {
        throw CFailure(DescribeFailure("creating the trace's file", ::GetLastError(), path));
    }
    return stream;
}

}  // namespace

CTraceOutput::CTraceOutput(const TraceOptions& options)
    : m_json(options.json), m_stream(OpenStream(options)), m_ownsStream(!options.file.empty()) {
    if (m_json) Put("[");
}

CTraceOutput::~CTraceOutput() {
    try {
        Finish();
    } catch (const CFailure&) {
        // Whoever wants to know has called Finish before.
    }
}

void CTraceOutput::Write(const TracedOperation& operation) noexcept {
    if (m_stream == nullptr) return;
    try {
        if (m_json) {
            Put((m_first ? "\n" : ",\n") + JsonOfOperation(operation).Line());
        } else {
            Put(WholeText(operation));
        }
        m_first = false;
    } catch (...) {
        m_lost = true;
    }
}

void CTraceOutput::Finish() {
    if (m_stream == nullptr) return;
    if (m_json) Put("\n]\n");
    FILE* const stream = std::exchange(m_stream, nullptr);
    if (m_ownsStream && std::fclose(stream) != 0) m_lost = true;
    if (m_lost) throw CFailure("the trace could not be written completely");
}

void CTraceOutput::Put(std::string_view text) {
    const bool written = std::fwrite(text.data(), 1, text.size(), m_stream) == text.size();
    if (!written || std::fflush(m_stream) != 0) m_lost = true;
}

}  // namespace zd::host
