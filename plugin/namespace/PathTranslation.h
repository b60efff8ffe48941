// From a host's name to a storage path, and the optional rule for characters in names.
#pragma once

#include <string_view>

#include "base/SharedString.h"

namespace zd {

// The storage path of `name` (null counts as empty): the prefix and the name as they stand, every backslash turned into
// a slash, in UTF-8. Throws 2 where the result needs more than two bytes per UTF-16 unit.
CUtf8String TranslatePath(const CWideString& rootPrefix, const wchar_t* name);

// Whether the name rule refuses the name: a character below 0x20 or above the highest valid one. Off while that is 0.
bool NameHasInvalidCharacters(const wchar_t* name) noexcept;

// The name of a file without the separators behind it, which the storage passes over: its fragments go by what is left.
std::wstring_view WithoutTrailingSeparators(std::wstring_view name) noexcept;

// The storage locality of a name: its first directory in UTF-8, empty for an object at the share's root, cut between
// characters to fit 31 bytes.
CUtf8String LocalityOf(const wchar_t* name);

}  // namespace zd
