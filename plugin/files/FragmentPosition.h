// A byte offset of a file as a fragment index and an offset inside that fragment.
#pragma once

#include <cstdint>
#include <limits>

namespace zd {

// Whether the fragment that holds the offset has an index of at most 31 bits. `offset` is 0 or more.
inline bool IndexFits(std::int64_t offset, std::int64_t fragmentSize) noexcept {
    return offset / fragmentSize <= std::numeric_limits<std::int32_t>::max() - 1;
}

// Whether `offset` and `length`, both 0 or more, add up within 63 bits.
inline bool EndFits(std::int64_t offset, std::int64_t length) noexcept {
    return length <= std::numeric_limits<std::int64_t>::max() - offset;
}

class CFragmentPosition {
public:
    // The offset's index must fit.
    CFragmentPosition(std::int64_t offset, std::int64_t fragmentSize) noexcept
        : m_fragmentSize(fragmentSize),
          m_index(static_cast<std::int32_t>(offset / fragmentSize)),
          m_inner(offset - m_index * fragmentSize) {}

    std::int32_t Index() const noexcept { return m_index; }
    std::int64_t Inner() const noexcept { return m_inner; }
    std::int64_t Room() const noexcept { return m_fragmentSize - m_inner; }  // bytes up to the fragment's end

    void Advance(std::int64_t bytes) noexcept { m_inner += bytes; }

    // Goes on to the next fragment when this one's end is reached.
    void Step() noexcept {
        if (m_inner < m_fragmentSize) return;
        m_inner -= m_fragmentSize;
        ++m_index;
    }

private:
    std::int64_t m_fragmentSize;
    std::int32_t m_index;
    std::int64_t m_inner;
};

}  // namespace zd
