// Names of objects as they stand on disk.
//
// A name is any UTF-8 (in fact any byte) text without "/" and NUL, and names that differ only in case are different
// names. The file system underneath compares without case and refuses many names, so a name is stored as text of
// a-z, 0-9 and harmless punctuation, with every other byte as "%" and two lower-case hexadecimal digits. What a name
// does not begin with on disk ("%" and a letter that is no such digit) is free for the engine's own files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zd::engine {

// The longest name in bytes; a directory record holds this and a terminator.
inline constexpr std::size_t kMaximumNameBytes = 1023;

// The longest encoded name. The file system takes 255 units, of which a sidecar's prefix needs a few.
inline constexpr std::size_t kMaximumEncodedLength = 240;

inline constexpr char kSidecarPrefix[] = "%m.";
inline constexpr char kHashedPrefix[] = "%h";
inline constexpr char kPoolFolder[] = "%pool";

// The name on disk: the encoded name, or for one that would be too long its beginning and a hash of the whole, which
// only the metadata turns back into the name.
std::string NameOnDisk(std::string_view name);

// Whether NameOnDisk had to shorten.
bool IsHashedName(std::string_view onDisk);

// The name that `onDisk` encodes; nothing where it is not exactly what NameOnDisk writes for some name, or is hashed.
std::optional<std::string> NameFromDisk(std::string_view onDisk);

// A hash that stays the same between processes and versions.
std::uint64_t StableHash(std::string_view bytes, std::uint64_t seed = 0xcbf29ce484222325u);

// Writes bytes that `isPlain` refuses as %xx, and turns them back. Unescape answers nothing for a bad escape.
std::string Escape(std::string_view text, bool (*isPlain)(unsigned char));
std::optional<std::string> Unescape(std::string_view text);

// For Escape: everything but control characters; without "%" too, so that it can be turned back; without blanks too.
bool IsShownText(unsigned char byte);
bool IsLineText(unsigned char byte);
bool IsWordText(unsigned char byte);

}  // namespace zd::engine
