// The bytes of a file.
//
// They stand in segments of doubling length that come into being when they are first written and never move, so that
// any number of threads read and write without a lock. Bytes never written read as zero; so does what a file lost by
// getting shorter and gained again, but the memory stays with the file.
#pragma once

#include <atomic>
#include <cstdint>

namespace zd::memory {

class CBytes {
public:
    CBytes() = default;
    ~CBytes();
    CBytes(const CBytes&) = delete;
    CBytes& operator=(const CBytes&) = delete;

    std::int64_t Size() const noexcept { return m_size.load(std::memory_order_acquire); }

    // Copies up to `length` bytes from `offset`, which is not negative; answers how many there were.
    std::int64_t Read(char* buffer, std::int64_t length, std::int64_t offset) const noexcept;

    // False where memory does not suffice; what stands before the first missing segment is written then.
    bool Write(const char* buffer, std::int64_t length, std::int64_t offset) noexcept;

    // Not at the same time as a write to the bytes that it cuts off.
    void Resize(std::int64_t size) noexcept;

private:
    static constexpr int kSegments = 34;  // 64 TiB less a little
    struct CSegments {
        std::atomic<char*> at[kSegments] = {};
    };

    char* Segment(int index) const noexcept;
    char* MakeSegment(int index) noexcept;

    std::atomic<std::int64_t> m_size{0};
    std::atomic<CSegments*> m_segments{nullptr};
};

}  // namespace zd::memory
