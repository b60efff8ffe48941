// Names and what they stand for.
//
// The table is split by the hash of the name, so that threads that open and close meet rarely. A lookup is one probe
// with the whole path, which each object carries; only a rename of a directory has to visit what lies below it.
//
// Lock order: parts of the table by their index, then a directory's own lock.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "base/CountedRef.h"
#include "Bytes.h"
#include "SharedLock.h"

namespace zd::memory {

// Objects of a pool are there while it is mounted, and come back with the next mount.
struct CPool {
    std::atomic<std::int32_t> mounts{0};
};

class CNode final : public CCounted {
public:
    CNode(std::string path, CNode* parent, CPool& pool, bool isDirectory, std::uint16_t attributes);

    bool IsPoolRoot() const noexcept { return m_parent != nullptr && m_parent->m_parent == nullptr; }
    bool IsThere() const noexcept { return m_pool.mounts.load(std::memory_order_acquire) > 0; }
    std::string_view Leaf() const noexcept { return std::string_view(m_path).substr(m_path.rfind('/') + 1); }

    CPool& m_pool;
    const bool m_isDirectory;
    std::atomic<std::uint16_t> m_attributes;
    std::atomic<std::int64_t> m_accessTime;
    std::atomic<std::int64_t> m_modificationTime;
    const std::int64_t m_creationTime;
    CBytes m_bytes;
    std::atomic<std::int64_t> m_generated{0};  // entries of a directory that are worked out

    // Changed only by a rename, which holds every lock of the table and those of the two directories.
    std::string m_path;  // without a slash before it; empty for the place where the pools stand
    CNode* m_parent;     // null for that place; alive, since a directory with something in it is not removed

    CSharedLock m_lock;              // guards what follows
    std::string m_descriptor;        // the security descriptor's text
    std::vector<CNode*> m_children;  // in the order of creation; null: removed since
    std::size_t m_removedChildren = 0;
    std::size_t m_streams = 0;  // open on this directory; while there are any, the children keep their places
    bool m_isRemoved = false;

    std::size_t m_place = 0;  // among the parent's children; guarded by the parent's lock

private:
    ~CNode() override = default;
};

using CNodeRef = CRef<CNode>;

// A caller's path as the table knows it: no slash before or behind it, no empty, "." and ".." components.
class CPath {
public:
    explicit CPath(const char* path);
    CPath(const CPath&) = delete;
    CPath& operator=(const CPath&) = delete;

    std::string_view View() const noexcept { return m_view; }

private:
    std::string m_resolved;
    std::string_view m_view;
};

// Failures are errno values, 0 for success. Throws std::bad_alloc, where nothing has changed but by a rename of a
// directory, which may have come half-way.
class CNameTable {
public:
    CNameTable();
    ~CNameTable() = delete;  // it lasts as long as the process
    CNameTable(const CNameTable&) = delete;
    CNameTable& operator=(const CNameTable&) = delete;

    CNodeRef Find(std::string_view path);

    // Runs `body` on the object, which stays where it is meanwhile.
    template <class Body>
    int Visit(std::string_view path, Body&& body) {
        const std::size_t hash = Hash(path);
        CPart& part = PartOf(hash);
        const CReading held(part.lock);
        CNode* const node = part.names.Find(path, hash);
        if (node == nullptr || !node->IsThere()) return ENOENT;
        return body(*node);
    }

    // EEXIST where the name is taken; `node` is what has it then.
    int Create(std::string_view path, bool isDirectory, std::uint16_t attributes, CNodeRef& node);
    int Remove(std::string_view path);
    int Rename(std::string_view from, std::string_view to);

    // Makes the root of a pool unless it is there; answers the pool.
    CPool& MakePool(std::string_view name);

private:
    // Open addressing: a lookup touches one slot, and then the object itself.
    class CNames {
    public:
        CNode* Find(std::string_view path, std::size_t hash) const noexcept;
        void MakeRoom();  // for one more
        void Insert(CNode* node, std::size_t hash) noexcept;
        void Erase(const CNode* node, std::size_t hash) noexcept;

    private:
        struct CSlot {
            std::size_t hash;
            CNode* node;
        };
        std::vector<CSlot> m_slots;  // as many as a power of two, at most half of them taken
        std::size_t m_used = 0;
    };
    struct alignas(64) CPart {
        CSharedLock lock;
        CNames names;
    };
    static constexpr std::size_t kPartBits = 6;

    static std::size_t Hash(std::string_view path) noexcept { return std::hash<std::string_view>()(path); }
    CPart& PartOf(std::size_t hash) noexcept { return m_parts[hash >> (64 - kPartBits)]; }
    // Callers of these hold every part's lock, or that of the name's part.
    CNode* Look(std::string_view path) noexcept;
    void Enter(CNode* node);
    void Leave(const CNode* node) noexcept;
    void Move(CNode& node, std::string path);
    std::vector<CWriting> HoldAll();

    CPart m_parts[std::size_t{1} << kPartBits];
};

CNameTable& NameTable();

}  // namespace zd::memory
