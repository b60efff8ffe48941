// Random bits that are the same on every machine for one seed.
#pragma once

#include <cstdint>

namespace zd::test {

// Answers 64 bits and moves the state on.
inline std::uint64_t NextBits(std::uint64_t& state) {
    std::uint64_t value = (state += 0x9E3779B97F4A7C15);
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

}  // namespace zd::test
