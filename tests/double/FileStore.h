// The objects that the double of the storage client library keeps, in memory.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Double.h"

namespace zd::test {

// Bytes of a file; stretches never written take no memory.
class CSparseBytes {
public:
    std::int64_t Size() const { return m_size; }
    void Resize(std::int64_t size);
    // Copies up to `length` bytes from `offset`; answers how many there were.
    std::int64_t Read(void* buffer, std::int64_t length, std::int64_t offset) const;
    void Write(const void* buffer, std::int64_t length, std::int64_t offset);

private:
    static constexpr std::int64_t kPageSize = 65536;
    std::int64_t m_size = 0;
    std::map<std::int64_t, std::vector<char>> m_pages;
};

struct Node;
using NodePointer = std::shared_ptr<Node>;

struct Node {
    NodeState state;
    CSparseBytes bytes;
    std::vector<std::pair<std::string, NodePointer>> entries;  // in the order of creation
    std::vector<std::string> listing;                          // answers a stream instead of `entries`, where not empty

    NodePointer Find(const std::string& name) const;
    void Erase(const std::string& name);
};

NodePointer NewNode(bool directory);

// Where a path leads. `error` is 0 where the parent exists; `node` is null where only the last component is missing.
struct Place {
    NodePointer parent;  // null for the place where the pools stand
    std::string leaf;
    NodePointer node;
    int error = 0;
    bool isPoolRoot = false;
};

// Not guarded: the caller holds the double's lock.
class CFileStore {
public:
    CFileStore();

    // The pools that the plug-in may reach, by name, with the count of their mounts.
    std::map<std::string, int> mounts;

    // Follows a path through mounted pools, or, `anyPool`, through all.
    Place Follow(const std::string& path, bool anyPool = false) const;
    // Puts an object at a path, with missing parents.
    NodePointer Put(const std::string& path, bool directory);
    const NodePointer& Root() const { return m_root; }

private:
    NodePointer m_root;
};

}  // namespace zd::test
