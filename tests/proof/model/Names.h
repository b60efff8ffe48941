// The names that random sequences use. No two differ only in case, and none has the shape of a fragment's name.
#pragma once

#include <string>
#include <vector>

namespace zd::test {

// Index 0 is the root of the share, 1 to kDirectoryNames - 1 are meant for directories, the others for files; every
// name may be used for either.
inline constexpr std::int64_t kDirectoryNames = 4;
const std::vector<std::wstring>& ModelNames();

std::wstring ParentOf(const std::wstring& name);
std::wstring LeafOf(const std::wstring& name);

// Descriptors to give to objects; index 0 stands for none.
const std::vector<std::string>& ModelDescriptors();

// Orders as listings are ordered: ASCII letters without regard to case.
struct NameOrder {
    bool operator()(const std::wstring& first, const std::wstring& second) const;
};

}  // namespace zd::test
