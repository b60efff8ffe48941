#include "NameCodec.h"

#include <algorithm>

namespace zd::engine {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

// "~" is left out: the file system answers to generated short names such as "longna~1" too.
bool IsPlainNameByte(unsigned char byte) {
    if ((byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9')) return true;
    return std::string_view(" .-_;,=+@#$&!'()[]{}^`").find(static_cast<char>(byte)) != std::string_view::npos;
}

void AppendEscaped(std::string& text, char byte) {
    const auto value = static_cast<unsigned char>(byte);
    text += '%';
    text += kDigits[value >> 4];
    text += kDigits[value & 15];
}

// The system takes "con", "con.txt" and "con .txt" for a device in every directory.
bool IsDeviceName(std::string_view name) {
    std::string_view base = name.substr(0, name.find('.'));
    while (!base.empty() && base.back() == ' ') base.remove_suffix(1);
    static constexpr std::string_view kDevices[] = {"con", "prn", "aux", "nul", "conin$", "conout$", "clock$"};
    if (std::find(std::begin(kDevices), std::end(kDevices), base) != std::end(kDevices)) return true;
    return base.size() == 4 && (base.starts_with("com") || base.starts_with("lpt")) && base[3] >= '0' && base[3] <= '9';
}

std::string EncodeWhole(std::string_view name) {
    std::string encoded;
    encoded.reserve(name.size() + 8);
    const bool device = IsDeviceName(name);
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char byte = name[i];
        const bool last = i + 1 == name.size();
        // The system drops trailing dots and blanks, and many tools drop leading blanks.
        const bool atEdge = (byte == ' ' && (i == 0 || last)) || (byte == '.' && last);
        if (!IsPlainNameByte(static_cast<unsigned char>(byte)) || atEdge || (device && i == 0)) {
            AppendEscaped(encoded, byte);
        } else {
            encoded += byte;
        }
    }
    return encoded;
}

std::string HexOf(std::uint64_t value) {
    std::string text(16, '0');
    for (std::size_t i = 16; i-- > 0; value >>= 4) text[i] = kDigits[value & 15];
    return text;
}

int DigitValue(char digit) {
    const char* found = std::find(std::begin(kDigits), std::end(kDigits) - 1, digit);
    return found == std::end(kDigits) - 1 ? -1 : static_cast<int>(found - kDigits);
}

}  // namespace

std::string NameOnDisk(std::string_view name) {
    std::string encoded = EncodeWhole(name);
    if (encoded.size() <= kMaximumEncodedLength) return encoded;
    std::size_t cut = 120;
    // An escape is kept whole or left out, for people who read the directory.
    for (std::size_t back = 1; back <= 2; ++back) {
        if (encoded[cut - back] == '%') cut -= back;
    }
    return kHashedPrefix + encoded.substr(0, cut) + "-" + HexOf(StableHash(name)) +
           HexOf(StableHash(name, 0x9e3779b97f4a7c15u));
}

bool IsHashedName(std::string_view onDisk) {
    return onDisk.starts_with(kHashedPrefix);
}

std::optional<std::string> NameFromDisk(std::string_view onDisk) {
    std::optional<std::string> name = Unescape(onDisk);
    // Another spelling of a name would be a second object of that name.
    if (!name || name->empty() || name->size() > kMaximumNameBytes || EncodeWhole(*name) != onDisk) return std::nullopt;
    if (onDisk.size() > kMaximumEncodedLength || *name == "." || *name == "..") return std::nullopt;
    if (name->find('/') != std::string::npos || name->find('\0') != std::string::npos) return std::nullopt;
    return name;
}

std::uint64_t StableHash(std::string_view bytes, std::uint64_t seed) {
    std::uint64_t hash = seed;
    for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3u;
    // The multiplication alone leaves the last bytes' high bits badly mixed.
    hash ^= hash >> 33;
    hash *= 0xff51afd7ed558ccdu;
    return hash ^ (hash >> 33);
}

std::string Escape(std::string_view text, bool (*isPlain)(unsigned char)) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char byte : text) {
        if (isPlain(static_cast<unsigned char>(byte))) {
            escaped += byte;
        } else {
            AppendEscaped(escaped, byte);
        }
    }
    return escaped;
}

std::optional<std::string> Unescape(std::string_view text) {
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            plain += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        const int high = DigitValue(text[i + 1]);
        const int low = DigitValue(text[i + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        plain += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return plain;
}

bool IsShownText(unsigned char byte) {
    return byte >= 0x20 && byte != 0x7f;
}

bool IsLineText(unsigned char byte) {
    return IsShownText(byte) && byte != '%';
}

bool IsWordText(unsigned char byte) {
    return IsLineText(byte) && byte != ' ';
}

}  // namespace zd::engine
