#include "files/WordCollection.h"

#include "base/Undo.h"

namespace zd {

// Records that die tell the table, so the handles go first, while names and lock still stand.
WORDCollection::~WORDCollection() {
    for (CShard& shard : m_shards) {
        const auto handles = std::move(shard.handles);
        shard.handles.clear();
    }
}

// Handles are addresses: the lowest bits are the same for all.
WORDCollection::CShard& WORDCollection::ShardOf(Handle handle) noexcept {
    return m_shards[(handle >> 4 ^ handle >> 8 ^ handle >> 12) % std::tuple_size_v<decltype(m_shards)>];
}

CHandleRef WORDCollection::Register(const COpened& opened) {
    // What is made of the name is made before the lock is taken, which is everybody's.
    CNames made;
    made.emplace(opened.name,
                 CRef<CFileInfo>(new CFileInfo(CWideString(opened.name), opened.path, *this, &OnReleased)));
    auto entry = made.extract(made.begin());
    CRef<CFileInfo> info;
    {
        const CAutoCriticalSection held(m_namesLock);
        const auto next = m_names.lower_bound(entry.key());
        const bool isKnown = next != m_names.end() && !m_names.key_comp()(entry.key(), next->first);
        info = isKnown ? next->second : entry.mapped();
        if (!isKnown) m_names.insert(next, std::move(entry));
        // Until the record counts for itself.
        info->AddOpen();
    }
    const CUndo closing([&info] { info->RemoveOpen(); });
    // Nothing fails once the record owns what was opened, so its place in the table is made before.
    CHandles madePlace;
    auto place = madePlace.extract(madePlace.emplace(0, CHandleRef()).first);
    CHandleRef record(new WORDInfo(info, opened));
    place.key() = record->Value();
    place.mapped() = record;
    CShard& shard = ShardOf(record->Value());
    const CAutoCriticalSection held(shard.lock);
    shard.handles.insert(std::move(place));
    return record;
}

CHandleRef WORDCollection::Find(Handle handle) {
    CShard& shard = ShardOf(handle);
    const CAutoCriticalSection held(shard.lock);
    const auto found = shard.handles.find(handle);
    return found == shard.handles.end() ? CHandleRef() : found->second;
}

CHandleRef WORDCollection::Take(Handle handle) {
    CShard& shard = ShardOf(handle);
    const CAutoCriticalSection held(shard.lock);
    auto taken = shard.handles.extract(handle);
    return taken.empty() ? CHandleRef() : std::move(taken.mapped());
}

CHandleRef WORDCollection::TakeFirst() {
    for (;;) {
        Handle first = 0;
        for (CShard& shard : m_shards) {
            const CAutoCriticalSection held(shard.lock);
            if (shard.handles.empty()) continue;
            const Handle handle = shard.handles.begin()->first;
            if (first == 0 || handle < first) first = handle;
        }
        if (first == 0) return {};
        // Somebody else may have released it by now.
        if (CHandleRef record = Take(first)) return record;
    }
}

void WORDCollection::ForgetPaths() noexcept {
    const CAutoCriticalSection held(m_namesLock);
    for (const auto& [key, info] : m_names) info->ForgetPath();
}

CRef<CFileInfo> WORDCollection::TakeEntry(CFileInfo& info) noexcept {
    const CWideString name = info.Name();
    const auto entry = m_names.find(name.c_str());
    // An entry of that name that is not this record displaced it.
    if (entry == m_names.end() || entry->second.Get() != &info) return {};
    CRef<CFileInfo> taken = std::move(entry->second);
    m_names.erase(entry);
    return taken;
}

void WORDCollection::Displace(CFileInfo& info) noexcept {
    CRef<CFileInfo> displaced;
    const CAutoCriticalSection held(m_namesLock);
    info.MarkReplaced();
    displaced = TakeEntry(info);
}

DWORD WORDCollection::Rename(CFileInfo& info, CNewName& newName) noexcept {
    CRef<CFileInfo> displaced;
    const CAutoCriticalSection held(m_namesLock);
    const CWideString oldName = info.Name();
    info.SetName(newName.name, std::move(newName.path));
    info.MarkReached();
    const auto found = m_names.find(oldName.c_str());
    if (found == m_names.end() || found->second.Get() != &info) return ERROR_NOT_FOUND;
    auto node = m_names.extract(found);
    node.key() = std::move(newName.key);
    const auto standing = m_names.find(node.key());
    if (standing != m_names.end()) {
        displaced = std::move(standing->second);
        // Another spelling may be an object of its own, which is still there.
        if (displaced->Name().view() == newName.name.view()) displaced->MarkReplaced();
        m_names.erase(standing);
    }
    m_names.insert(std::move(node));
    return ERROR_SUCCESS;
}

void WORDCollection::OnReleased(CFileInfo& info, WORDCollection& owner) noexcept {
    CRef<CFileInfo> erased;
    const CAutoCriticalSection held(owner.m_namesLock);
    // Another thread may have opened the name again before the lock was had.
    if (info.OpenCount() == 0) erased = owner.TakeEntry(info);
}

}  // namespace zd
