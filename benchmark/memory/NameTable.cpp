#include "NameTable.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <utility>

namespace zd::memory {
namespace {

constexpr std::uint16_t kDirectoryAttributes = 0x10;

std::string_view ParentOf(std::string_view path) noexcept {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

// Whether a path without slashes before it is what the table knows already. Names that begin with a dot are looked at
// more closely.
bool IsPlain(const char* path) noexcept {
    const char* at = path;
    if (*at == '\0') return true;
    for (;;) {
        if (*at == '/' || *at == '.' || *at == '\0') return false;
        at = std::strchr(at, '/');
        if (at == nullptr) return true;
        ++at;
    }
}

std::string Resolved(std::string_view path) {
    std::string resolved;
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(name.size() + 1, path.size()));
        if (name == "..") {
            // The first name is the pool, which a path never leaves again.
            const std::size_t slash = resolved.rfind('/');
            if (slash != std::string::npos) resolved.resize(slash);
        } else if (!name.empty() && name != ".") {
            if (!resolved.empty()) resolved += '/';
            resolved += name;
        }
    }
    return resolved;
}

// Seconds since 1970. Under Wine the runtime's own function asks for the time zone too, which takes long.
std::int64_t Seconds() noexcept {
    constexpr std::int64_t kPerSecond = 10'000'000;
    constexpr std::int64_t kFrom1601To1970 = 11'644'473'600;
    FILETIME time;
    ::GetSystemTimeAsFileTime(&time);
    const auto ticks = static_cast<std::int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    return ticks / kPerSecond - kFrom1601To1970;
}

// Makes `node` the last of the directory's children.
int Attach(CNode& directory, CNode& node) {
    const CWriting held(directory.m_lock);
    if (directory.m_isRemoved) return ENOENT;
    node.m_place = directory.m_children.size();
    directory.m_children.push_back(&node);
    return 0;
}

void Detach(CNode& directory, const CNode& node) noexcept {
    const CWriting held(directory.m_lock);
    std::vector<CNode*>& children = directory.m_children;
    children[node.m_place] = nullptr;
    if (++directory.m_removedChildren * 2 < children.size() || directory.m_streams > 0) return;
    std::erase(children, nullptr);
    for (std::size_t i = 0; i < children.size(); ++i) children[i]->m_place = i;
    directory.m_removedChildren = 0;
}

}  // namespace

CNode::CNode(std::string path, CNode* parent, CPool& pool, bool isDirectory, std::uint16_t attributes)
    : m_pool(pool),
      m_isDirectory(isDirectory),
      m_attributes(attributes),
      m_creationTime(Seconds()),
      m_path(std::move(path)),
      m_parent(parent) {
    m_accessTime = m_creationTime;
    m_modificationTime = m_creationTime;
}

CPath::CPath(const char* path) {
    while (*path == '/') ++path;
    m_view = path;
    if (IsPlain(path)) return;
    m_resolved = Resolved(m_view);
    m_view = m_resolved;
}

CNode* CNameTable::CNames::Find(std::string_view path, std::size_t hash) const noexcept {
    if (m_slots.empty()) return nullptr;
    const std::size_t mask = m_slots.size() - 1;
    for (std::size_t i = hash & mask; m_slots[i].node != nullptr; i = (i + 1) & mask) {
        if (m_slots[i].hash == hash && m_slots[i].node->m_path == path) return m_slots[i].node;
    }
    return nullptr;
}

void CNameTable::CNames::MakeRoom() {
    constexpr std::size_t kFewest = 16;
    if ((m_used + 1) * 2 <= m_slots.size()) return;
    std::vector<CSlot> old(m_slots.empty() ? kFewest : m_slots.size() * 2);
    old.swap(m_slots);
    m_used = 0;
    for (const CSlot& slot : old) {
        if (slot.node != nullptr) Insert(slot.node, slot.hash);
    }
}

void CNameTable::CNames::Insert(CNode* node, std::size_t hash) noexcept {
    const std::size_t mask = m_slots.size() - 1;
    std::size_t i = hash & mask;
    while (m_slots[i].node != nullptr) i = (i + 1) & mask;
    m_slots[i] = {hash, node};
    ++m_used;
}

void CNameTable::CNames::Erase(const CNode* node, std::size_t hash) noexcept {
    const std::size_t mask = m_slots.size() - 1;
    std::size_t hole = hash & mask;
    while (m_slots[hole].node != node) hole = (hole + 1) & mask;
    // What was pushed past the hole by it moves back, so that no lookup ends at it.
    for (std::size_t i = (hole + 1) & mask; m_slots[i].node != nullptr; i = (i + 1) & mask) {
        if (((i - m_slots[i].hash) & mask) < ((i - hole) & mask)) continue;
        m_slots[hole] = m_slots[i];
        hole = i;
    }
    m_slots[hole] = {0, nullptr};
    --m_used;
}

CNameTable::CNameTable() {
    static CPool always;
    always.mounts = 1;
    auto* const place = new CNode(std::string(), nullptr, always, true, kDirectoryAttributes);
    place->AddReference();
    Enter(place);
}

CNode* CNameTable::Look(std::string_view path) noexcept {
    const std::size_t hash = Hash(path);
    return PartOf(hash).names.Find(path, hash);
}

void CNameTable::Enter(CNode* node) {
    const std::size_t hash = Hash(node->m_path);
    CNames& names = PartOf(hash).names;
    names.MakeRoom();
    names.Insert(node, hash);
}

void CNameTable::Leave(const CNode* node) noexcept {
    const std::size_t hash = Hash(node->m_path);
    PartOf(hash).names.Erase(node, hash);
}

CNodeRef CNameTable::Find(std::string_view path) {
    CNodeRef found;
    Visit(path, [&found](CNode& node) {
        found = CNodeRef(&node);
        return 0;
    });
    return found;
}

int CNameTable::Create(std::string_view path, bool isDirectory, std::uint16_t attributes, CNodeRef& node) {
    const CNodeRef parent = Find(ParentOf(path));
    if (!parent) return ENOENT;
    if (!parent->m_isDirectory) return ENOTDIR;
    // Pools come into being by mounting.
    if (parent->m_parent == nullptr) return ENOENT;
    CNodeRef made(new CNode(std::string(path), parent.Get(), parent->m_pool, isDirectory, attributes));
    CPart& part = PartOf(Hash(path));
    const CWriting held(part.lock);
    if (CNode* const taken = Look(path)) {
        node = CNodeRef(taken);
        return EEXIST;
    }
    part.names.MakeRoom();  // so that nothing fails any more once the directory has the object
    if (const int error = Attach(*parent, *made)) return error;
    Enter(made.Get());
    made->AddReference();  // the table's own
    node = std::move(made);
    return 0;
}

int CNameTable::Remove(std::string_view path) {
    const CWriting held(PartOf(Hash(path)).lock);
    CNode* const node = Look(path);
    if (node == nullptr || !node->IsThere()) return ENOENT;
    if (node->m_parent == nullptr || node->IsPoolRoot()) return EBUSY;
    {
        const CWriting own(node->m_lock);
        if (node->m_children.size() > node->m_removedChildren) return ENOTEMPTY;
        node->m_isRemoved = true;
    }
    Detach(*node->m_parent, *node);
    Leave(node);
    node->RemoveReference();
    return 0;
}

std::vector<CWriting> CNameTable::HoldAll() {
    std::vector<CWriting> held;
    held.reserve(std::size(m_parts));
    for (CPart& part : m_parts) held.emplace_back(part.lock);
    return held;
}

// Gives an object and all below it the names that a new path makes.
void CNameTable::Move(CNode& node, std::string path) {
    Leave(&node);
    node.m_path = std::move(path);
    Enter(&node);
    const CWriting held(node.m_lock);
    for (CNode* const child : node.m_children) {
        if (child != nullptr) Move(*child, node.m_path + "/" + std::string(child->Leaf()));
    }
}

int CNameTable::Rename(std::string_view from, std::string_view to) {
    const std::vector<CWriting> held = HoldAll();
    CNode* const node = Look(from);
    CNode* const directory = Look(ParentOf(to));
    if (node == nullptr || !node->IsThere() || directory == nullptr || !directory->IsThere()) return ENOENT;
    if (node->m_parent == nullptr || node->IsPoolRoot()) return EBUSY;
    if (!directory->m_isDirectory) return ENOTDIR;
    if (Look(to) != nullptr) return EEXIST;
    if (&directory->m_pool != &node->m_pool) return EXDEV;
    if (to.starts_with(node->m_path + "/")) return EINVAL;
    CNode& before = *node->m_parent;
    if (&before != directory) {
        const std::size_t oldPlace = node->m_place;
        if (const int error = Attach(*directory, *node)) return error;
        const std::size_t newPlace = std::exchange(node->m_place, oldPlace);
        Detach(before, *node);
        node->m_place = newPlace;
        node->m_parent = directory;
    }
    const CWriting named(directory->m_lock);
    Move(*node, std::string(to));
    return 0;
}

CPool& CNameTable::MakePool(std::string_view name) {
    {
        const CReading held(PartOf(Hash(name)).lock);
        if (const CNode* const root = Look(name)) return root->m_pool;
    }
    const std::vector<CWriting> held = HoldAll();
    if (const CNode* const root = Look(name)) return root->m_pool;
    CNode* const place = Look(std::string_view());
    auto* const pool = new CPool();  // pools last as long as the table
    auto* const root = new CNode(std::string(name), place, *pool, true, kDirectoryAttributes);
    root->AddReference();
    Enter(root);
    Attach(*place, *root);
    return *pool;
}

CNameTable& NameTable() {
    static CNameTable& table = *new CNameTable();
    return table;
}

}  // namespace zd::memory
