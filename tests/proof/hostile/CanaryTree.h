// Everything that stands in a folder but for some of its parts, to be compared with itself later.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace zd::test {

// Path below the folder -> attributes, last write time and content. Directories count too, without their times.
using Tree = std::map<std::wstring, std::string>;

// `folder` ends with a separator. `without`: paths below it that are passed over, with all they hold.
Tree TreeOf(const std::wstring& folder, const std::vector<std::wstring>& without);

// Writes `count` files into `folder` and into a folder in it.
void MakeCanaries(const std::wstring& folder, int count);

}  // namespace zd::test
