// Open files by number.
//
// A descriptor is an index into an array, so that finding its file takes no lock. A call on a descriptor and the close
// of the same descriptor are kept apart by the caller.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "NameTable.h"

namespace zd::memory {

struct alignas(64) COpenFile {
    std::atomic<CNode*> node;  // null: not open; else one reference to it
    bool readable = false;
    bool writable = false;
    std::atomic<std::int64_t> position;
    std::atomic<std::uint32_t> nextFree;  // descriptor + 1
};

class CDescriptors {
public:
    // The first free descriptor's file, or null where all are taken. `descriptor` is its number.
    COpenFile* Take(const CNodeRef& node, int& descriptor) noexcept;

    // Null where it is not open.
    COpenFile* Find(int descriptor) noexcept {
        if (static_cast<std::uint32_t>(descriptor) >= kMost) return nullptr;
        COpenFile& file = m_files[static_cast<std::uint32_t>(descriptor)];
        return file.node.load(std::memory_order_acquire) != nullptr ? &file : nullptr;
    }

    // False where it is not open.
    bool Give(int descriptor) noexcept;

private:
    static constexpr std::uint32_t kMost = 1u << 17;

    std::array<COpenFile, kMost> m_files;
    alignas(64) std::atomic<std::uint32_t> m_fresh;  // the first that was never used
    // A stack of those given back: the first one + 1, and above it a number that each change raises, so that a stale
    // head does not pass for the present one.
    alignas(64) std::atomic<std::uint64_t> m_free;
};

CDescriptors& Descriptors() noexcept;

}  // namespace zd::memory
