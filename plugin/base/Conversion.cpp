#include "base/Conversion.h"

#include <windows.h>

#include <algorithm>
#include <limits>

#include "base/Format.h"

namespace zd {
namespace {

bool IsControl(unsigned unit) {
    return unit < 0x20 || unit == 0x7f;
}

constexpr std::size_t kLongestPiece = 0x10000000;  // keeps every length within the system's int

int Length(std::size_t size) {
    return static_cast<int>(std::min(size, kLongestPiece));
}

template <class Out, class View, class Convert>
Out ConvertText(View text, Convert&& convert) {
    Out out;
    if (text.empty()) return out;
    const int needed = convert(text.data(), Length(text.size()), nullptr, 0);
    if (needed <= 0) return out;
    out.resize(static_cast<std::size_t>(needed));
    const int written = convert(text.data(), Length(text.size()), out.data(), needed);
    out.resize(static_cast<std::size_t>(std::max(written, 0)));
    return out;
}

}  // namespace

std::string WideToUtf8(std::wstring_view text) {
    return ConvertText<std::string>(text, [](const wchar_t* from, int units, char* to, int size) {
        return ::WideCharToMultiByte(CP_UTF8, 0, from, units, to, size, nullptr, nullptr);
    });
}

std::wstring Utf8ToWide(std::string_view text) {
    return ConvertText<std::wstring>(text, [](const char* from, int bytes, wchar_t* to, int size) {
        return ::MultiByteToWideChar(CP_UTF8, 0, from, bytes, to, size);
    });
}

std::string NameForLog(std::string_view path) {
    std::string line;
    line.reserve(path.size());
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (IsControl(byte)) {
            AppendFormat(line, "<%04hx>", static_cast<unsigned short>(byte));
        } else {
            line.push_back(c);
        }
    }
    return line;
}

std::string NameForLog(const char* path) {
    if (path == nullptr) return "(null)";
    return NameForLog(std::string_view(path));
}

// Control characters are single units in both forms, so the conversion may come first.
std::string NameForLog(std::wstring_view name) {
    return NameForLog(std::string_view(WideToUtf8(name)));
}

std::string NameForLog(const wchar_t* name) {
    if (name == nullptr) return "(null)";
    return NameForLog(std::wstring_view(name));
}

std::string_view CutAtCharacter(std::string_view text, std::size_t maxBytes) {
    if (text.size() <= maxBytes) return text;
    std::size_t end = maxBytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    return text.substr(0, end);
}

int CompareNoCase(std::wstring_view first, std::wstring_view second) noexcept {
    const std::size_t common = std::min(first.size(), second.size());
    for (std::size_t i = 0; i < common; ++i) {
        const int difference = FoldCase(first[i]) - FoldCase(second[i]);
        if (difference != 0) return difference;
    }
    if (first.size() == second.size()) return 0;
    return first.size() < second.size() ? -1 : 1;
}

}  // namespace zd
