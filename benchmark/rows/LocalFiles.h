// Many files for a pool of the local engine, without its calls: making them would take minutes under Wine, which looks
// through the whole directory for every name that is not there yet.
#pragma once

#include <string>
#include <vector>

#include "benchmark/harness/Bench.h"

namespace zd::bench {

// The folder's name is the engine's.
inline constexpr char kLocalEngine[] = "local";

// Makes files of those names and that content in a directory of the pool that is there, as the engine keeps them.
// Throws std::runtime_error.
void MakeLocalFiles(const CBench& bench, const std::wstring& directory, const std::vector<std::string>& names,
                    const std::string& content = std::string());
void RemoveLocalFiles(const CBench& bench, const std::wstring& directory, const std::vector<std::string>& names);

}  // namespace zd::bench
