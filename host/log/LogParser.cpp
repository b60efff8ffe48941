#include "log/LogParser.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "text/Text.h"

namespace zd::host {

namespace {

constexpr std::size_t kLongestLine = 1 << 20;
constexpr std::size_t kLongestEntry = 4 << 20;
constexpr std::size_t kLongestKnown = 65536;      // the plug-in's own, with the longest of names
constexpr std::size_t kLongestWithoutEnd = 4096;  // these hold no names
constexpr std::size_t kLongestProcessName = 260;
constexpr std::size_t kLongestBeginning = 320;
constexpr std::string_view kTimeForm = "0000/00/00 00:00:00 (";  // a 0 stands for any digit

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// Whether what is there of the text has the form.
bool FitsTimeForm(std::string_view text) {
    for (std::size_t i = 0; i < std::min(text.size(), kTimeForm.size()); ++i) {
        if (kTimeForm[i] == '0' ? !IsDigit(text[i]) : text[i] != kTimeForm[i]) return false;
    }
    return true;
}

bool HasTimeForm(std::string_view text) {
    return text.size() >= kTimeForm.size() && FitsTimeForm(text);
}

// The first place from `from` on where the form stands.
std::size_t FindTimeForm(std::string_view text, std::size_t from) {
    constexpr std::size_t kSlash = 4;
    for (std::size_t at = text.find('/', from + kSlash); at != std::string_view::npos; at = text.find('/', at + 1)) {
        if (HasTimeForm(text.substr(at - kSlash))) return at - kSlash;
    }
    return std::string_view::npos;
}

// Takes a 32-bit number and what has to stand behind it off the front.
std::optional<std::uint32_t> TakeNumber(std::string_view& text, std::string_view behind) {
    std::size_t digits = 0;
    while (digits < text.size() && IsDigit(text[digits])) ++digits;
    const auto number = ParseNumber(text.substr(0, digits), 0xFFFFFFFF);
    if (!number || text.substr(digits, behind.size()) != behind) return std::nullopt;
    text.remove_prefix(digits + behind.size());
    return static_cast<std::uint32_t>(*number);
}

bool EndsAsProgram(std::string_view name) {
    return name.size() >= 4 && ::_strnicmp(name.data() + name.size() - 4, ".exe", 4) == 0;
}

// Reads a beginning at the front of the text. The process's name may hold whatever a file's name may, so the name that
// ends with ".exe" decides where several ends are possible.
std::optional<LogBeginning> ReadBeginning(std::string_view text) {
    if (!HasTimeForm(text)) return std::nullopt;
    LogBeginning result;
    result.time = text.substr(0, kTimeForm.size() - 2);
    std::string_view left = text.substr(kTimeForm.size());
    const auto process = TakeNumber(left, ":");
    if (!process) return std::nullopt;
    result.process = *process;
    bool found = false;
    constexpr std::string_view kComma = ", ";
    for (std::size_t at = left.find(kComma); at <= kLongestProcessName; at = left.find(kComma, at + 1)) {
        std::string_view behind = left.substr(at + kComma.size());
        const auto thread = TakeNumber(behind, ") - ");
        const std::string_view name = left.substr(0, at);
        if (name.find('\n') != std::string_view::npos) break;
        // The next entry begins there, on the same line.
        if (FindTimeForm(name, 0) != std::string_view::npos) break;
        if (!thread || (found && !EndsAsProgram(name))) continue;
        result.thread = *thread;
        result.processName = name;
        result.length = text.size() - behind.size();
        found = true;
        if (EndsAsProgram(name)) break;
    }
    return found ? std::optional(std::move(result)) : std::nullopt;
}

// The first place from `from` on where a beginning stands inside a line.
std::size_t FindBeginning(std::string_view text, std::size_t from) {
    std::size_t at = FindTimeForm(text, from);
    while (at != std::string_view::npos && !ReadBeginning(text.substr(at))) at = FindTimeForm(text, at + 1);
    return at;
}

bool MayBecomeBeginning(std::string_view line) {
    return !line.empty() && line.size() < kLongestBeginning && FitsTimeForm(line) && !ReadBeginning(line);
}

// The level of a text: by all of it, else by its first lines, where lines without a beginning have come behind.
std::optional<std::int32_t> LevelOf(std::string_view text) {
    if (const KnownText* known = FindKnownText(text)) return known->level;
    constexpr int kMostLines = 3;
    std::size_t end = 0;
    for (int i = 0; i < kMostLines; ++i) {
        end = text.find('\n', end);
        if (end == std::string_view::npos || ++end == text.size()) break;
        if (const KnownText* known = FindKnownText(text.substr(0, end))) return known->level;
    }
    return std::nullopt;
}

}  // namespace

void CLogParser::Feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        const std::size_t length = end == std::string_view::npos ? bytes.size() : end + 1;
        m_line.append(bytes.substr(0, length));
        bytes.remove_prefix(length);
        if (m_line.back() == '\n') {
            if (m_line.ends_with("\r\n")) m_line.erase(m_line.size() - 2, 1);
            TakeLine(m_line);
            m_line.clear();
        } else if (m_line.size() >= kLongestLine) {
            TakeFront();
        }
    }
}

// Takes most of a line that is too long to be kept, up to where a beginning stands or may stand behind it.
void CLogParser::TakeFront() {
    const std::size_t end = m_line.size() - kLongestBeginning;
    const std::size_t cut = std::min(FindBeginning(m_line, end - kLongestBeginning), end);
    TakeLine(std::string_view(m_line).substr(0, cut));
    m_line.erase(0, cut);
}

void CLogParser::FlushWhole() {
    if (m_line.empty() && m_open && m_text.ends_with('\n')) Emit();
}

void CLogParser::FlushPart() {
    if (!MayBecomeBeginning(m_line)) return FlushAll();
    if (m_open) Emit();
}

void CLogParser::FlushAll() {
    if (!m_line.empty()) TakeLine(m_line);
    m_line.clear();
    if (m_open) Emit();
}

void CLogParser::TakeLine(std::string_view line) {
    auto beginning = ReadBeginning(line);
    if (beginning || !m_open || m_text.size() + line.size() > kLongestEntry) {
        if (beginning) line.remove_prefix(beginning->length);
        Begin(std::move(beginning));
    }
    while (true) {
        const std::size_t end = EndInside(line);
        m_text.append(line.substr(0, end));
        if (end == std::string_view::npos) return;
        line.remove_prefix(end);
        beginning = ReadBeginning(line);
        line.remove_prefix(beginning->length);
        Begin(std::move(beginning));
    }
}

// Where the entry ends and another one begins inside a line. A known text without a line end may have another one
// behind it; a known text that ends as it should is whole, whatever a name in it looks like.
std::size_t CLogParser::EndInside(std::string_view line) const {
    const std::size_t first = FindBeginning(line, 0);
    if (first == std::string_view::npos) return first;
    for (std::size_t at = first; at <= kLongestWithoutEnd; at = FindBeginning(line, at + 1)) {
        if (IsTextWithoutEnd(m_text + std::string(line.substr(0, at)))) return at;
    }
    const bool canBeKnown = m_text.size() + line.size() <= kLongestKnown;
    return canBeKnown && FindKnownText(m_text + std::string(line)) != nullptr ? std::string_view::npos : first;
}

void CLogParser::Begin(std::optional<LogBeginning> beginning) {
    if (m_open) Emit();
    m_open = true;
    m_beginning = std::move(beginning);
}

void CLogParser::Emit() {
    LogEntry entry;
    entry.beginning = std::move(m_beginning);
    entry.text = std::move(m_text);
    m_open = false;
    m_beginning.reset();
    m_text.clear();
    if (entry.beginning) {
        entry.level = LevelOf(entry.text);
        // Lines without a beginning may have come behind it.
        entry.summary = ReadSummary(std::string_view(entry.text).substr(0, entry.text.find('\n') + 1));
    }
    if (entry.text.ends_with('\n')) entry.text.pop_back();
    m_sink(std::move(entry));
}

}  // namespace zd::host
