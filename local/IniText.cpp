#include "IniText.h"

#include <algorithm>
#include <cstdint>

namespace zd::engine {
namespace {

constexpr char kBlanks[] = " \t\v\f";

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    // The runtime's tolower follows the host's locale.
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    return lower;
}

bool IsComment(std::string_view text) {
    return !text.empty() && (text.front() == ';' || text.front() == '#');
}

std::string_view Unquote(std::string_view value) {
    if (value.size() < 2 || (value.front() != '"' && value.front() != '\'')) return value;
    if (value.back() == value.front()) return value.substr(1, value.size() - 2);
    const std::size_t closing = value.find(value.front(), 1);
    if (closing == std::string_view::npos || !IsComment(Trim(value.substr(closing + 1)))) return value;
    return value.substr(1, closing - 1);
}

}  // namespace

CIniText::CIniText(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    std::string section = kLooseSection;
    while (!text.empty()) {
        const std::size_t end = text.find_first_of("\r\n");
        ReadLine(Trim(text.substr(0, end)), section);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

void CIniText::ReadLine(std::string_view line, std::string& section) {
    if (line.empty() || IsComment(line)) return;
    if (line.front() == '[') {
        const std::size_t end = line.find(']');
        if (end != std::string_view::npos) section = Lower(Trim(line.substr(1, end - 1)));
        return;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return;
    const std::string_view key = Trim(line.substr(0, equals));
    if (key.empty()) return;
    m_values.try_emplace({section, Lower(key)}, Unquote(Trim(line.substr(equals + 1))));
}

const std::string* CIniText::Find(std::string_view section, std::string_view key) const {
    const auto found = m_values.find({Lower(Trim(section)), Lower(Trim(key))});
    return found == m_values.end() ? nullptr : &found->second;
}

std::optional<int> CIniText::FindInteger(std::string_view section, std::string_view key) const {
    const std::string* value = Find(section, key);
    return value ? ParseIniInteger(*value) : std::nullopt;
}

std::optional<int> ParseIniInteger(std::string_view text) {
    text = Trim(text);
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    unsigned base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    std::uint64_t value = 0;
    std::size_t used = 0;
    for (; used < text.size(); ++used) {
        const char c = text[used];
        unsigned digit = 16;
        if (c >= '0' && c <= '9') digit = static_cast<unsigned>(c - '0');
        if (c >= 'a' && c <= 'f') digit = static_cast<unsigned>(c - 'a' + 10);
        if (c >= 'A' && c <= 'F') digit = static_cast<unsigned>(c - 'A' + 10);
        if (digit >= base) break;
        value = value * base + digit;
        if (value > 0xFFFFFFFFu) return std::nullopt;
    }
    const std::string_view rest = Trim(text.substr(used));
    if (used == 0 || (!rest.empty() && !IsComment(rest)) || (negative && value > 0x80000000u)) return std::nullopt;
    const auto bits = static_cast<std::uint32_t>(value);
    return static_cast<int>(negative ? 0u - bits : bits);
}

}  // namespace zd::engine
