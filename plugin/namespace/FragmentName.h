// How the parts of a file are called: fragment 0 is the file itself, fragment n above 0 has ";F" and n behind the name.
//
// Two readings of such a name differ on purpose. The plug-in writes, opens, removes and guards the exact spelling
// alone, so BaseOfFragmentShape takes no other: "a;F01" is a file of its own. A listing is to show no part as a file,
// whoever has written it, and folds whatever reads as a number behind ";F" (LengthOfListedBase).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/SharedString.h"

namespace zd {

// The name of fragment `number`: the file's own for 0 and below.
CWideString FragmentName(const CWideString& name, std::int32_t number);

// The storage path of fragment `number` of the file with that storage path.
CUtf8String FragmentPath(const CUtf8String& path, std::int32_t number);

// The storage path of the file, from that of one of its further fragments.
std::string_view PathWithoutFragment(std::string_view fragmentPath) noexcept;

// The storage paths of one further fragment after another, in one buffer.
class CFragmentPaths {
public:
    // `path`: the file's own.
    explicit CFragmentPaths(std::string_view path);

    // `number` is 1 or more. Valid until the next call.
    const char* Of(std::int32_t number);

private:
    std::string m_path;
    std::size_t m_length;
};

// The name without the ";F" and number above 0 of a fragment, empty where the name is not of that shape. Separators
// behind the number are left out, and "." and ".." components are resolved first, as the storage does.
CWideString BaseOfFragmentShape(const CWideString& name);

// The length of an entry's name without a fragment's suffix as a listing takes it, the whole length where it has none.
std::size_t LengthOfListedBase(const char* name, std::size_t length) noexcept;

}  // namespace zd
