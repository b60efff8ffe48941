#include "Bytes.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace zd::memory {
namespace {

constexpr int kFirstBits = 12;  // the first segment holds 4 KiB

// Where a byte stands: the segment, the place in it, and how many bytes the segment holds from there.
struct CPosition {
    int segment;
    std::int64_t inner;
    std::int64_t left;
};

CPosition Locate(std::int64_t offset) noexcept {
    const auto unit = (static_cast<std::uint64_t>(offset) >> kFirstBits) + 1;
    const int segment = static_cast<int>(std::bit_width(unit)) - 1;
    const std::int64_t start = ((std::int64_t{1} << segment) - 1) << kFirstBits;
    const std::int64_t length = std::int64_t{1} << (segment + kFirstBits);
    return {segment, offset - start, length - (offset - start)};
}

}  // namespace

CBytes::~CBytes() {
    const std::unique_ptr<CSegments> segments(m_segments.load(std::memory_order_relaxed));
    if (segments == nullptr) return;
    for (const std::atomic<char*>& segment : segments->at) std::free(segment.load(std::memory_order_relaxed));
}

char* CBytes::Segment(int index) const noexcept {
    const CSegments* const segments = m_segments.load(std::memory_order_acquire);
    return segments == nullptr ? nullptr : segments->at[index].load(std::memory_order_acquire);
}

char* CBytes::MakeSegment(int index) noexcept {
    CSegments* segments = m_segments.load(std::memory_order_acquire);
    if (segments == nullptr) {
        std::unique_ptr<CSegments> made(new (std::nothrow) CSegments());
        if (made == nullptr) return nullptr;
        // Whoever comes second takes what the first has made.
        if (m_segments.compare_exchange_strong(segments, made.get(), std::memory_order_acq_rel)) {
            segments = made.release();
        }
    }
    char* segment = segments->at[index].load(std::memory_order_acquire);
    if (segment != nullptr) return segment;
    char* const made = static_cast<char*>(std::calloc(1, std::size_t{1} << (index + kFirstBits)));
    if (made == nullptr) return nullptr;
    if (segments->at[index].compare_exchange_strong(segment, made, std::memory_order_acq_rel)) return made;
    std::free(made);
    return segment;
}

std::int64_t CBytes::Read(char* buffer, std::int64_t length, std::int64_t offset) const noexcept {
    const std::int64_t count = std::max<std::int64_t>(0, std::min(length, Size() - offset));
    for (std::int64_t done = 0; done < count;) {
        const CPosition at = Locate(offset + done);
        const auto piece = static_cast<std::size_t>(std::min(count - done, at.left));
        const char* const segment = at.segment < kSegments ? Segment(at.segment) : nullptr;
        if (segment != nullptr) {
            std::memcpy(buffer + done, segment + at.inner, piece);
        } else {
            std::memset(buffer + done, 0, piece);
        }
        done += static_cast<std::int64_t>(piece);
    }
    return count;
}

bool CBytes::Write(const char* buffer, std::int64_t length, std::int64_t offset) noexcept {
    for (std::int64_t done = 0; done < length;) {
        const CPosition at = Locate(offset + done);
        if (at.segment >= kSegments) return false;
        char* segment = Segment(at.segment);
        if (segment == nullptr) segment = MakeSegment(at.segment);
        if (segment == nullptr) return false;
        const std::int64_t piece = std::min(length - done, at.left);
        std::memcpy(segment + at.inner, buffer + done, static_cast<std::size_t>(piece));
        done += piece;
    }
    std::int64_t size = Size();
    while (length > 0 && offset + length > size &&
           !m_size.compare_exchange_weak(size, offset + length, std::memory_order_acq_rel)) {
    }
    return true;
}

void CBytes::Resize(std::int64_t size) noexcept {
    const std::int64_t before = m_size.exchange(size, std::memory_order_acq_rel);
    for (std::int64_t offset = size; offset < before;) {
        const CPosition at = Locate(offset);
        if (at.segment >= kSegments) break;
        const std::int64_t piece = std::min(before - offset, at.left);
        char* const segment = Segment(at.segment);
        if (segment != nullptr) std::memset(segment + at.inner, 0, static_cast<std::size_t>(piece));
        offset += piece;
    }
}

}  // namespace zd::memory
