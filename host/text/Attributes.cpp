#include "text/Attributes.h"

#include <windows.h>

#include <cinttypes>
#include <cstdio>
#include <limits>

#include "text/Text.h"

namespace zd::host {

namespace {

struct AttributeBit {
    char letter;
    std::uint32_t bit;
    const char* name;
};

constexpr AttributeBit kBits[] = {
    {'D', FILE_ATTRIBUTE_DIRECTORY, "directory"},
    {'R', FILE_ATTRIBUTE_READONLY, "readonly"},
    {'H', FILE_ATTRIBUTE_HIDDEN, "hidden"},
    {'S', FILE_ATTRIBUTE_SYSTEM, "system"},
    {'A', FILE_ATTRIBUTE_ARCHIVE, "archive"},
    {'T', FILE_ATTRIBUTE_TEMPORARY, "temporary"},
    {'I', FILE_ATTRIBUTE_NOT_CONTENT_INDEXED, "notindexed"},
    {'N', FILE_ATTRIBUTE_NORMAL, "normal"},
};

std::string Hexadecimal(std::uint64_t value) {
    char text[32];
    std::snprintf(text, sizeof(text), "0x%" PRIx64, value);
    return text;
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::string AttributeLetters(std::uint64_t attributes) {
    std::string text;
    for (const AttributeBit& known : kBits) {
        text.push_back((attributes & known.bit) != 0 ? known.letter : '-');
        attributes &= ~static_cast<std::uint64_t>(known.bit);
    }
    return attributes != 0 ? text + "+" + Hexadecimal(attributes) : text;
}

std::vector<std::string> AttributeNames(std::uint64_t attributes) {
    std::vector<std::string> names;
    for (const AttributeBit& known : kBits) {
        if ((attributes & known.bit) != 0) names.emplace_back(known.name);
        attributes &= ~static_cast<std::uint64_t>(known.bit);
    }
    if (attributes != 0) names.push_back(Hexadecimal(attributes));
    return names;
}

std::optional<std::uint32_t> ParseAttributes(std::string_view text) {
    if (text.empty()) return std::nullopt;
    if (const auto number = ParseNumber(text, std::numeric_limits<std::uint32_t>::max())) {
        return static_cast<std::uint32_t>(*number);
    }
    std::uint32_t attributes = 0;
    for (const char c : text) {
        std::uint32_t bit = 0;
        for (const AttributeBit& known : kBits) {
            if (Lower(known.letter) == Lower(c) && known.letter != 'D') bit = known.bit;
        }
        if (bit == 0) return std::nullopt;
        attributes |= bit;
    }
    return attributes;
}

}  // namespace zd::host
