// From a host's name to a storage path.
#pragma once

#include <string_view>

#include "base/SharedString.h"

namespace zd {

// The storage path of `name` (null counts as empty): the prefix and the name as they stand, every backslash turned into
// a slash, in UTF-8. Throws 2 where the result needs more than two bytes per UTF-16 unit.
CUtf8String TranslatePath(const CWideString& rootPrefix, const wchar_t* name);

// The name of a file without the separators behind it, which the storage passes over: its fragments go by what is left.
std::wstring_view WithoutTrailingSeparators(std::wstring_view name) noexcept;

}  // namespace zd
