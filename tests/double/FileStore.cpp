#include "FileStore.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zd::test {

namespace {

// The components of a path with "." and ".." worked out; ".." never removes the pool.
std::vector<std::string> Components(const std::string& path) {
    std::vector<std::string> components;
    std::size_t start = 0;
    while (start < path.size()) {
        const std::size_t end = std::min(path.find('/', start), path.size());
        const std::string part = path.substr(start, end - start);
        start = end + 1;
        if (part.empty() || part == ".") continue;
        if (part != "..") {
            components.push_back(part);
        } else if (components.size() > 1) {
            components.pop_back();
        }
    }
    return components;
}

}  // namespace

void CSparseBytes::Resize(std::int64_t size) {
    if (size < m_size) {
        m_pages.erase(m_pages.upper_bound((size - 1) / kPageSize), m_pages.end());
        if (size == 0) m_pages.clear();
        const auto last = m_pages.find(size / kPageSize);
        if (last != m_pages.end()) std::fill(last->second.begin() + size % kPageSize, last->second.end(), '\0');
    }
    m_size = size;
}

std::int64_t CSparseBytes::Read(void* buffer, std::int64_t length, std::int64_t offset) const {
    const std::int64_t count = std::max<std::int64_t>(0, std::min(length, m_size - offset));
    auto* out = static_cast<char*>(buffer);
    for (std::int64_t done = 0; done < count;) {
        const std::int64_t inner = (offset + done) % kPageSize;
        const std::int64_t piece = std::min(count - done, kPageSize - inner);
        const auto page = m_pages.find((offset + done) / kPageSize);
        if (page == m_pages.end()) {
            std::memset(out + done, 0, static_cast<std::size_t>(piece));
        } else {
            std::memcpy(out + done, page->second.data() + inner, static_cast<std::size_t>(piece));
        }
        done += piece;
    }
    return count;
}

void CSparseBytes::Write(const void* buffer, std::int64_t length, std::int64_t offset) {
    const auto* in = static_cast<const char*>(buffer);
    for (std::int64_t done = 0; done < length;) {
        const std::int64_t inner = (offset + done) % kPageSize;
        const std::int64_t piece = std::min(length - done, kPageSize - inner);
        std::vector<char>& page = m_pages[(offset + done) / kPageSize];
        page.resize(static_cast<std::size_t>(kPageSize));
        std::memcpy(page.data() + inner, in + done, static_cast<std::size_t>(piece));
        done += piece;
    }
    if (length > 0) m_size = std::max(m_size, offset + length);
}

NodePointer Node::Find(const std::string& name) const {
    for (const auto& entry : entries) {
        if (entry.first == name) return entry.second;
    }
    return nullptr;
}

void Node::Erase(const std::string& name) {
    std::erase_if(entries, [&name](const auto& entry) { return entry.first == name; });
}

NodePointer NewNode(bool directory) {
    auto node = std::make_shared<Node>();
    node->state.directory = directory;
    node->state.attributes = directory ? 0x10 : 0x20;
    node->state.mode = directory ? 0x41FF : 0x81FF;
    node->state.accessTime = node->state.modificationTime = node->state.creationTime = 1700000000;
    return node;
}

CFileStore::CFileStore() : m_root(NewNode(true)) {}

Place CFileStore::Follow(const std::string& path, bool anyPool) const {
    Place place;
    place.node = m_root;
    const std::vector<std::string> components = Components(path);
    for (std::size_t i = 0; i < components.size(); ++i) {
        if (place.node == nullptr) return Place{nullptr, "", nullptr, ENOENT};
        if (!place.node->state.directory) return Place{nullptr, "", nullptr, ENOTDIR};
        place.parent = place.node;
        place.leaf = components[i];
        place.node = place.parent->Find(components[i]);
        place.isPoolRoot = i == 0;
        if (i == 0 && !anyPool && !mounts.contains(components[i])) return Place{nullptr, "", nullptr, ENOENT};
    }
    return place;
}

NodePointer CFileStore::Put(const std::string& path, bool directory) {
    NodePointer at = m_root;
    const std::vector<std::string> components = Components(path);
    for (std::size_t i = 0; i < components.size(); ++i) {
        const bool last = i + 1 == components.size();
        NodePointer next = at->Find(components[i]);
        const bool fits = next != nullptr && (last ? directory && next->state.directory : next->state.directory);
        if (!fits) {
            at->Erase(components[i]);
            next = NewNode(last ? directory : true);
            at->entries.emplace_back(components[i], next);
        }
        at = next;
    }
    return at;
}

}  // namespace zd::test
