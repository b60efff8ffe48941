// Contents of files in tests.
#pragma once

#include <cstdint>
#include <string>

namespace zd::test {

// Bytes that show where they belong; another seed gives others.
inline std::string Pattern(std::size_t length, std::uint32_t seed = 0) {
    std::string pattern(length, '\0');
    std::uint32_t state = seed * 2654435761U + 12345U;
    for (char& byte : pattern) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return pattern;
}

}  // namespace zd::test
