// Names in the storage, as the user writes them and as the plug-in takes them.
#pragma once

#include <string>
#include <string_view>

namespace zd::host {

// "/dir/x", "\dir\x", "dir/x" (UTF-8) to "\dir\x": names begin with a separator, and one behind the last component is
// dropped. In the shell `directory` is the current one, from where a name without a separator in front is taken, and
// "." and ".." are resolved, not above the top. Elsewhere it is empty, and the plug-in gets a name as it stands. Throws
// CUsageError for an empty name.
std::wstring RemoteName(std::string_view text, const std::wstring& directory);

// The name of an entry of a directory.
std::wstring Below(const std::wstring& directory, const std::wstring& name);

// True where two names lead to one place: "." and ".." and doubled separators do not count, nor does case, because the
// plug-in's table of open files does not tell such names apart.
bool SameRemoteName(const std::wstring& left, const std::wstring& right);

}  // namespace zd::host
