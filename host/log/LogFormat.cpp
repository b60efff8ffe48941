#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "log/LogTexts.h"

namespace zd::host {

namespace {

constexpr char kSummaryStart[] = "The previous ";

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsHexDigit(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Takes the conversion off the front of a format that begins with "%"; answers its letter.
char TakeConversion(std::string_view& format) {
    std::size_t at = 1;
    while (at < format.size() && std::string_view("-#+ 0123456789.hlz").find(format[at]) != std::string_view::npos)
        ++at;
    const char letter = at < format.size() ? format[at] : '%';
    format.remove_prefix(std::min(at + 1, format.size()));
    return letter;
}

// How many characters at the front of the text are one number as the conversion writes it; 0 for none.
std::size_t NumberLength(std::string_view text, char conversion) {
    const bool hex = conversion == 'x' || conversion == 'X' || conversion == 'p';
    std::size_t at = 0;
    if (hex && (text.starts_with("0x") || text.starts_with("0X"))) at = 2;
    if (!hex && text.starts_with('-')) at = 1;
    const std::size_t digits = at;
    while (at < text.size() && (hex ? IsHexDigit(text[at]) : IsDigit(text[at]))) ++at;
    return at == digits ? 0 : at;
}

// The part of a format between two %s. Its own characters and numbers have but one way to fit at a place.
struct Piece {
    std::string_view format;

    // The length that it takes at the front of the text; nothing where it does not fit.
    std::optional<std::size_t> Fit(std::string_view text) const {
        std::string_view left = format;
        std::size_t at = 0;
        while (!left.empty()) {
            if (left.front() != '%') {
                if (at == text.size() || text[at] != left.front()) return std::nullopt;
                left.remove_prefix(1);
                ++at;
                continue;
            }
            const char conversion = TakeConversion(left);
            if (conversion == '%') {
                if (at == text.size() || text[at] != '%') return std::nullopt;
                ++at;
                continue;
            }
            const std::size_t length = NumberLength(text.substr(at), conversion);
            if (length == 0) return std::nullopt;
            at += length;
        }
        return at;
    }
};

// Splits the format at its first %s: true where there is one.
bool TakePiece(std::string_view& format, Piece& piece) {
    const std::string_view whole = format;
    while (!format.empty()) {
        if (format.front() != '%') {
            format.remove_prefix(1);
            continue;
        }
        const std::size_t before = whole.size() - format.size();
        if (TakeConversion(format) != 's') continue;
        piece.format = whole.substr(0, before);
        return true;
    }
    piece.format = whole;
    return false;
}

// The characters that stand in the format itself.
std::size_t OwnCharacters(std::string_view format) {
    std::size_t count = 0;
    while (!format.empty()) {
        if (format.front() == '%') {
            TakeConversion(format);
        } else {
            format.remove_prefix(1);
            ++count;
        }
    }
    return count;
}

struct IndexedText {
    std::string_view start;  // what stands before the first conversion
    const KnownText* known;
};

// Those with the most characters of their own first.
std::vector<IndexedText> IndexTexts() {
    std::vector<IndexedText> index;
    for (const KnownText& known : KnownTexts()) {
        const std::string_view format = known.format;
        index.push_back({format.substr(0, format.find('%')), &known});
    }
    std::stable_sort(index.begin(), index.end(), [](const IndexedText& one, const IndexedText& other) {
        return OwnCharacters(one.known->format) > OwnCharacters(other.known->format);
    });
    return index;
}

}  // namespace

// Pieces between two %s are taken at the first place where they fit: what is passed over is the %s.
bool FitsFormat(std::string_view text, std::string_view format) {
    Piece piece{};
    bool more = TakePiece(format, piece);
    const auto first = piece.Fit(text);
    if (!first || (!more && *first != text.size())) return false;
    text.remove_prefix(*first);
    while (more) {
        more = TakePiece(format, piece);
        std::size_t at = 0;
        for (;; ++at) {
            if (at > text.size()) return false;
            const auto length = piece.Fit(text.substr(at));
            // The last one has to reach the end.
            if (length && (more || at + *length == text.size())) {
                at += *length;
                break;
            }
        }
        text.remove_prefix(at);
    }
    return true;
}

const KnownText* FindKnownText(std::string_view text) {
    static const std::vector<IndexedText> kIndex = IndexTexts();
    for (const IndexedText& indexed : kIndex) {
        if (text.starts_with(indexed.start) && FitsFormat(text, indexed.known->format)) return indexed.known;
    }
    return nullptr;
}

bool IsTextWithoutEnd(std::string_view text) {
    return std::any_of(KnownTexts().begin(), KnownTexts().end(), [text](const KnownText& known) {
        const std::string_view format = known.format;
        return !format.ends_with('\n') && FitsFormat(text, format);
    });
}

std::optional<LogSummary> ReadSummary(std::string_view text) {
    if (!text.starts_with(kSummaryStart) || !FitsFormat(text, "The previous %d messages have repeated %d times\n")) {
        return std::nullopt;
    }
    const std::string numbers(text.substr(sizeof kSummaryStart - 1));
    char* end = nullptr;
    const std::int64_t messages = std::strtoll(numbers.c_str(), &end, 10);
    const std::string_view rest = end;
    const std::size_t at = rest.find_first_of("-0123456789");
    return LogSummary{messages, std::strtoll(rest.data() + at, nullptr, 10)};
}

}  // namespace zd::host
