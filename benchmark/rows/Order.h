// The order in which a row uses what it may choose from.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/harness/RandomBits.h"

namespace zd::bench {

// Numbers from 0 below `choices`, `length` of them, one after another or drawn with repetition; the last is followed
// by the first.
class COrder {
public:
    COrder(std::int64_t choices, bool random, std::int64_t length, std::uint64_t seed) {
        std::uint64_t state = seed;
        for (std::int64_t i = 0; i < length; ++i) {
            const auto any = static_cast<std::int64_t>(test::NextBits(state) % static_cast<std::uint64_t>(choices));
            m_numbers.push_back(random ? any : i % choices);
        }
    }

    std::int64_t Next() {
        const std::int64_t number = m_numbers[m_next];
        if (++m_next == m_numbers.size()) m_next = 0;
        return number;
    }

private:
    std::vector<std::int64_t> m_numbers;
    std::size_t m_next = 0;
};

}  // namespace zd::bench
