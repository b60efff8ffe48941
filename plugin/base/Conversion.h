// UTF-16 and UTF-8, and how names look in log lines.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zd {

// UTF-8 of UTF-16; an unpaired surrogate becomes U+FFFD. Throws std::bad_alloc only.
std::string WideToUtf8(std::wstring_view text);

// UTF-16 of UTF-8; a malformed sequence becomes U+FFFD. Throws std::bad_alloc only.
std::wstring Utf8ToWide(std::string_view text);

// A wide name as it stands in a log line: UTF-8, each control character as "<%04hx>", so that no name can forge a line.
// Null gives "(null)".
std::string NameForLog(const wchar_t* name);
std::string NameForLog(std::wstring_view name);

// The same for a name or path in UTF-8.
std::string NameForLog(const char* path);
std::string NameForLog(std::string_view path);

// The first `maxBytes` bytes of `text` or fewer, cut between characters.
std::string_view CutAtCharacter(std::string_view text, std::size_t maxBytes);

// A unit of a name as names are compared: by the rule of the runtime's C locale, which folds the letters of ASCII only,
// whatever locale the host has set.
constexpr wchar_t FoldCase(wchar_t unit) noexcept {
    return unit >= L'A' && unit <= L'Z' ? static_cast<wchar_t>(unit - L'A' + L'a') : unit;
}

// Case-insensitive comparison of wide names by FoldCase: negative, 0 or positive.
int CompareNoCase(std::wstring_view first, std::wstring_view second) noexcept;

// Orders names by CompareNoCase; for the maps that are keyed by name.
struct CNameLess {
    using is_transparent = void;
    bool operator()(std::wstring_view first, std::wstring_view second) const noexcept {
        return CompareNoCase(first, second) < 0;
    }
};

}  // namespace zd
