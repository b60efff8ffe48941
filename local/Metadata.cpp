#include "Metadata.h"

#include <charconv>
#include <cstdio>

#include "NameCodec.h"

namespace zd::engine {
namespace {

constexpr std::string_view kHead = "zdvfs metadata 1\n";
constexpr std::string_view kEnd = "end\n";

template <class Number>
bool ReadNumber(std::string_view text, Number& value, int base) {
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return problem == std::errc() && end == text.data() + text.size();
}

bool ReadText(std::string_view text, std::string& value) {
    std::optional<std::string> plain = Unescape(text);
    if (!plain) return false;
    value = *std::move(plain);
    return true;
}

// Keys of a later version are passed over.
bool ReadField(std::string_view key, std::string_view value, Metadata& metadata) {
    if (key == "attributes") return ReadNumber(value, metadata.attributes, 16);
    if (key == "created") return ReadNumber(value, metadata.creationTime, 10);
    if (key == "sddl") return ReadText(value, metadata.descriptor);
    if (key == "name") return ReadText(value, metadata.longName);
    return true;
}

}  // namespace

std::string FormatMetadata(const Metadata& metadata) {
    char numbers[80];
    std::snprintf(numbers, sizeof numbers, "attributes=%08x\ncreated=%lld\n", metadata.attributes,
                  static_cast<long long>(metadata.creationTime));
    std::string text(kHead);
    text += numbers;
    if (!metadata.descriptor.empty()) text += "sddl=" + Escape(metadata.descriptor, IsLineText) + "\n";
    if (!metadata.longName.empty()) text += "name=" + Escape(metadata.longName, IsLineText) + "\n";
    text += kEnd;
    return text;
}

std::optional<Metadata> ParseMetadata(std::string_view text) {
    if (!text.starts_with(kHead) || !text.ends_with(kEnd)) return std::nullopt;
    text.remove_prefix(kHead.size());
    Metadata metadata;
    while (text != kEnd) {
        const std::size_t end = text.find('\n');
        if (end == std::string_view::npos) return std::nullopt;
        const std::string_view line = text.substr(0, end);
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) return std::nullopt;
        if (!ReadField(line.substr(0, equals), line.substr(equals + 1), metadata)) return std::nullopt;
        text.remove_prefix(end + 1);
    }
    return metadata;
}

}  // namespace zd::engine
