// Paths on the host's own side.
#pragma once

#include <string>

namespace zd::host {

// A local path as the system's calls take it: absolute, "/" turned into "\", in the long form where it needs to be.
// A path in the long form stays as it is. Throws CFailure where the system cannot make it absolute.
std::wstring AbsolutePath(const std::wstring& path);

// The same, always in the long form: what is put behind it with "\" is taken to the letter, "CON" and "a." too.
std::wstring LongPath(const std::wstring& path);

}  // namespace zd::host
