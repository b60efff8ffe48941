// Names in the storage, as the user writes them and as the plug-in takes them.
#pragma once

#include <string>
#include <string_view>

namespace zd {

// "/dir/x", "dir/x", "\dir\x" (UTF-8) to "\dir\x": names begin with a separator, and one behind the last component is
// dropped. Throws CUsageError for an empty name.
std::wstring RemoteName(std::string_view text);

// True where two names lead to one place: "." and ".." and doubled separators do not count, nor does case, because the
// plug-in's table of open files does not tell such names apart.
bool SameRemoteName(const std::wstring& left, const std::wstring& right);

}  // namespace zd
