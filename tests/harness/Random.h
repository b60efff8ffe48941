// Random numbers that are the same on every machine for one seed.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "harness/RandomBits.h"

namespace zd::test {

class CRandom {
public:
    explicit CRandom(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t Next() { return NextBits(m_state); }
    std::uint32_t Word() { return static_cast<std::uint32_t>(Next()); }
    // From 0 to `limit` - 1, of which there has to be one.
    std::uint64_t Number(std::uint64_t limit) { return Next() % limit; }
    // The same for signed arithmetic; 0 for a limit of 0 or less.
    std::int64_t Below(std::int64_t limit) {
        return limit <= 0 ? 0 : static_cast<std::int64_t>(Number(static_cast<std::uint64_t>(limit)));
    }
    // True once in `times`.
    bool OneIn(std::int64_t times) { return Below(times) == 0; }

    std::string Bytes(std::size_t count) {
        std::string bytes(count, '\0');
        for (char& byte : bytes) byte = static_cast<char>(Next());
        return bytes;
    }
    template <class Value>
    const Value& Of(const std::vector<Value>& values) {
        return values[Number(values.size())];
    }
    template <class Value>
    Value Any(std::initializer_list<Value> values) {
        return values.begin()[Number(values.size())];
    }

private:
    std::uint64_t m_state;
};

}  // namespace zd::test
