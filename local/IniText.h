// The text of an ini file, parsed.
//
// Lines end with LF, CRLF or CR. A line whose first character other than a blank is ";" or "#" is a comment. Sections
// and keys compare without the case of ASCII letters, blanks around them and around values do not count, and a value
// may stand in double or single quotes. Of a key that stands twice in a section the first counts. Keys before any
// "[section]" line belong to the section kLooseSection.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zd::engine {

class CIniText {
public:
    static constexpr char kLooseSection[] = "__dummy__section__";

    CIniText() = default;
    explicit CIniText(std::string_view text);

    // The value without its quotes; null where section or key is missing. Lives as long as this object.
    const std::string* Find(std::string_view section, std::string_view key) const;

    // The value as a decimal or 0x number with an optional sign, -2^31 to 2^32-1 (the upper half wraps as an int does);
    // nothing where it is missing or no such number.
    std::optional<int> FindInteger(std::string_view section, std::string_view key) const;

private:
    void ReadLine(std::string_view line, std::string& section);

    std::map<std::pair<std::string, std::string>, std::string> m_values;
};

// The value of a number as FindInteger reads it.
std::optional<int> ParseIniInteger(std::string_view text);

}  // namespace zd::engine
