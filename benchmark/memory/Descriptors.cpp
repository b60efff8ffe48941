#include "Descriptors.h"

namespace zd::memory {
namespace {

constexpr std::uint64_t kIndexMask = 0xFFFFFFFFu;
constexpr std::uint64_t kOneChange = kIndexMask + 1;

CDescriptors g_descriptors{};

}  // namespace

CDescriptors& Descriptors() noexcept {
    return g_descriptors;
}

COpenFile* CDescriptors::Take(const CNodeRef& node, int& descriptor) noexcept {
    std::uint64_t head = m_free.load(std::memory_order_acquire);
    std::uint32_t index = kMost;
    while ((head & kIndexMask) != 0) {
        const auto first = static_cast<std::uint32_t>(head & kIndexMask) - 1;
        const std::uint64_t next = (head & ~kIndexMask) + kOneChange + m_files[first].nextFree;
        if (m_free.compare_exchange_weak(head, next, std::memory_order_acq_rel)) {
            index = first;
            break;
        }
    }
    if (index == kMost) {
        if (m_fresh.load(std::memory_order_relaxed) >= kMost) return nullptr;
        index = m_fresh.fetch_add(1, std::memory_order_relaxed);
        if (index >= kMost) return nullptr;
    }
    COpenFile& file = m_files[index];
    file.position.store(0, std::memory_order_relaxed);
    node->AddReference();
    file.node.store(node.Get(), std::memory_order_release);
    descriptor = static_cast<int>(index);
    return &file;
}

bool CDescriptors::Give(int descriptor) noexcept {
    COpenFile* const file = Find(descriptor);
    CNode* const node = file != nullptr ? file->node.exchange(nullptr, std::memory_order_acq_rel) : nullptr;
    if (node == nullptr) return false;
    node->RemoveReference();
    std::uint64_t head = m_free.load(std::memory_order_acquire);
    std::uint64_t next = 0;
    do {
        file->nextFree.store(static_cast<std::uint32_t>(head & kIndexMask), std::memory_order_relaxed);
        next = (head & ~kIndexMask) + kOneChange + static_cast<std::uint32_t>(descriptor) + 1;
    } while (!m_free.compare_exchange_weak(head, next, std::memory_order_acq_rel));
    return true;
}

}  // namespace zd::memory
