// Random numbers that are the same on every machine for one seed.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "harness/RandomBits.h"

namespace zd::test {

class CRandom {
public:
    explicit CRandom(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t Next() { return NextBits(m_state); }
    // From 0 to `limit` - 1; 0 for a limit of 0 or less.
    std::int64_t Below(std::int64_t limit) {
        return limit <= 0 ? 0 : static_cast<std::int64_t>(Next() % static_cast<std::uint64_t>(limit));
    }
    bool OneIn(std::int64_t times) { return Below(times) == 0; }
    template <class Value>
    Value Any(std::initializer_list<Value> values) {
        return values.begin()[Below(static_cast<std::int64_t>(values.size()))];
    }

private:
    std::uint64_t m_state;
};

}  // namespace zd::test
