#include "RequestLog.h"

#include <charconv>

#include "NameCodec.h"

namespace zd::engine {

namespace {

// Takes the text up to the next `separator` off the front.
std::string_view TakeField(std::string_view& text, char separator) {
    const std::size_t end = text.find(separator);
    const std::string_view field = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return field;
}

template <class Number>
bool ReadNumber(std::string_view text, Number& value) {
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    return problem == std::errc() && end == text.data() + text.size();
}

}  // namespace

CRequestLog::CRequestLog(std::string_view text) {
    while (!text.empty()) {
        std::string_view line = TakeField(text, '\n');
        std::int64_t request = 0;
        Entry entry;
        if (!ReadNumber(TakeField(line, ' '), request)) continue;
        entry.value = TakeField(line, ' ');
        if (!ReadNumber(TakeField(line, ' '), entry.count) || !ReadNumber(TakeField(line, ' '), entry.time)) continue;
        entry.path = line;
        m_entries[request] = std::move(entry);
    }
}

void CRequestLog::Note(int request, std::string_view value, std::string_view path, std::int64_t time) {
    Entry& entry = m_entries[request];
    entry.value = value.empty() ? "-" : Escape(value, IsWordText);
    entry.path = Escape(path, IsLineText);
    entry.time = time;
    ++entry.count;
}

std::string CRequestLog::Format() const {
    std::string text;
    for (const auto& [request, entry] : m_entries) {
        text += std::to_string(request) + ' ' + entry.value + ' ' + std::to_string(entry.count) + ' ' +
                std::to_string(entry.time) + ' ' + entry.path + '\n';
    }
    return text;
}

std::string CRequestLog::FormatForQuery() const {
    std::string text;
    for (const auto& [request, entry] : m_entries) {
        text +=
            std::to_string(request) + ' ' + entry.value + ' ' + std::to_string(entry.count) + ' ' + entry.path + '\n';
    }
    return text;
}

}  // namespace zd::engine
