// Text of zdhost: UTF-8 inside and on its output, UTF-16 towards the system and the plug-in; numbers and sizes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zd::host {

// UTF-16 to UTF-8. An unpaired surrogate becomes its own three bytes, so that every name survives the way to UTF-8 and
// back.
std::string ToUtf8(std::wstring_view text);

// The reverse; nothing where the bytes are not UTF-8 (unpaired surrogates in the form of ToUtf8 are accepted).
std::optional<std::wstring> TryToWide(std::string_view text);

// The reverse for text that came from the user; throws CUsageError where the bytes are not UTF-8.
std::wstring ToWide(std::string_view text);

// UTF-8 in which each control character, those beyond ASCII among them, is replaced by `before`, the four hexadecimal
// digits of its code, and `after`.
std::string ReplaceControls(std::string_view text, std::string_view before, std::string_view after);

// UTF-8 on one line, in which nothing controls a terminal: a control character shows by its code, as <000a>.
std::string Printable(std::string_view text);

// A whole number, decimal or 0x hexadecimal, not above `most`; nothing for anything else.
std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t most);

// A byte count or offset: a number, with a suffix K, M, G or T (either case) for powers of 1024. At most 2^63 - 1.
std::optional<std::int64_t> ParseSize(std::string_view text);

// "512 B", "1.5 KiB", "50.0 MiB".
std::string FormatBytes(double bytes);

// "0:07", "12:30", "1:02:03".
std::string FormatSeconds(double seconds);

}  // namespace zd::host
