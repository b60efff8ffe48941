#include "log/LogOutput.h"

#include <windows.h>

#include <algorithm>

#include "text/Json.h"
#include "text/Output.h"
#include "text/Text.h"

namespace zd::host {

namespace {

// The log's texts are bytes: UTF-8 as names mostly are, or else the system's code page, as names of processes are.
std::string AsUtf8(const std::string& text) {
    if (TryToWide(text)) return text;
    const int bytes = static_cast<int>(text.size());
    const int units = ::MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    ::MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, wide.data(), units);
    return ToUtf8(wide);
}

// Line ends and tabs stay, and further lines are indented.
void AppendShown(std::string& line, const std::string& text) {
    const std::string whole = AsUtf8(text);
    for (std::size_t at = 0; at <= whole.size(); ++at) {
        const std::size_t end = std::min(whole.find_first_of("\n\t", at), whole.size());
        line += Printable(std::string_view(whole).substr(at, end - at));
        if (end < whole.size()) line += whole[end] == '\n' ? "\n    " : "\t";
        at = end;
    }
}

// One line with its end, or several: "1  2026/11/16 03:29:25 (1234:host.exe, 5678) - text". The level stands in front,
// or "-", with "=" behind it for a summary. Further lines of a text are indented. Control characters show by their
// code.
std::string LineOfEntry(const LogEntry& entry) {
    std::string line = entry.level ? std::to_string(*entry.level) : "-";
    line += entry.summary ? "= " : "  ";
    if (const auto& beginning = entry.beginning) {
        line += beginning->time + " (" + std::to_string(beginning->process) + ":";
        AppendShown(line, beginning->processName);
        line += ", " + std::to_string(beginning->thread) + ") - ";
    }
    AppendShown(line, entry.text);
    return line + "\n";
}

// One object, and a line end.
std::string JsonOfEntry(const LogEntry& entry) {
    CJson json;
    for (const char* name : {"time", "pid", "process", "thread"}) json.Set(name, CJson());
    if (const auto& beginning = entry.beginning) {
        std::string time = beginning->time;
        time[4] = time[7] = '-';
        time[10] = 'T';
        json.Set("time", time);
        json.Set("pid", beginning->process);
        json.Set("process", AsUtf8(beginning->processName));
        json.Set("thread", beginning->thread);
    }
    json.Set("level", entry.level ? CJson(*entry.level) : CJson());
    json.Set("text", AsUtf8(entry.text));
    if (entry.summary)
        json.Set("summary", CJson().Set("messages", entry.summary->messages).Set("times", entry.summary->times));
    return json.Line() + "\n";
}

}  // namespace

void CLogOutput::Take(const LogEntry& entry) {
    if (entry.level ? m_options.level && *entry.level > *m_options.level : m_options.knownOnly) return;
    std::string line = m_options.json ? JsonOfEntry(entry) : LineOfEntry(entry);
    if (!m_keeps) return WriteOutput(line.data(), line.size());
    m_kept.push_back(std::move(line));
    if (m_kept.size() > *m_options.last) m_kept.pop_front();
}

void CLogOutput::EndPast() {
    for (const std::string& line : m_kept) WriteOutput(line.data(), line.size());
    m_kept.clear();
    m_keeps = false;
}

}  // namespace zd::host
