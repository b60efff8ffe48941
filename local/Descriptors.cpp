#include "Descriptors.h"

#include <algorithm>

#include "ErrorTable.h"

namespace zd::engine {
namespace {

bool IsSameObject(HANDLE file, const CLocation& location) {
    try {
        const CUniqueHandle other =
            OpenHandle(location.DataPath(), FILE_READ_ATTRIBUTES, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
        return IdentityOf(file) == IdentityOf(other.Get());
    } catch (const EngineError&) {
        return false;
    }
}

}  // namespace

int CDescriptors::CReservation::Fill(std::shared_ptr<COpenFile> file) {
    const std::lock_guard lock(m_table.m_lock);
    m_table.m_slots[static_cast<std::size_t>(m_index)].file = std::move(file);
    return std::exchange(m_index, -1);
}

void CDescriptors::SetLimit(int limit) {
    const std::lock_guard lock(m_lock);
    m_limit = static_cast<std::size_t>(limit);
}

int CDescriptors::Reserve() {
    const std::lock_guard lock(m_lock);
    while (m_firstFree < m_slots.size() && m_slots[m_firstFree].reserved) ++m_firstFree;
    if (m_firstFree >= m_limit) Fail(ERROR_TOO_MANY_OPEN_FILES);
    if (m_firstFree == m_slots.size()) m_slots.emplace_back();
    m_slots[m_firstFree].reserved = true;
    return static_cast<int>(m_firstFree++);
}

void CDescriptors::Release(int index) {
    const std::lock_guard lock(m_lock);
    m_slots[static_cast<std::size_t>(index)] = {};
    m_firstFree = std::min(m_firstFree, static_cast<std::size_t>(index));
}

std::shared_ptr<COpenFile> CDescriptors::Get(int descriptor) const {
    const std::lock_guard lock(m_lock);
    const auto index = static_cast<std::size_t>(descriptor);
    if (descriptor < 0 || index >= m_slots.size() || !m_slots[index].file) Fail(ERROR_INVALID_HANDLE);
    return m_slots[index].file;
}

std::shared_ptr<COpenFile> CDescriptors::Take(int descriptor) {
    std::shared_ptr<COpenFile> file = Get(descriptor);
    const std::lock_guard lock(m_lock);
    Slot& slot = m_slots[static_cast<std::size_t>(descriptor)];
    // Two threads may close one descriptor at the same time; one of them is told.
    if (slot.file != file) Fail(ERROR_INVALID_HANDLE);
    slot = {};
    m_firstFree = std::min(m_firstFree, static_cast<std::size_t>(descriptor));
    return file;
}

CLocation CDescriptors::LocationOf(const COpenFile& file) const {
    const std::lock_guard lock(m_lock);
    return file.location;
}

std::optional<CLocation> CDescriptors::Find(const COpenFile& file, const CPoolLock&) const {
    const CLocation known = LocationOf(file);
    if (file.isRoot || IsSameObject(file.handle.Get(), known)) return known;
    try {
        CLocation moved = LocateFinalPath(known.pool, file.handle.Get());
        if (IsSameObject(file.handle.Get(), moved)) return moved;
    } catch (const EngineError&) {
        // Its path is none of the pool's any more: it was removed.
    }
    return std::nullopt;
}

void CDescriptors::ObjectMoved(const CLocation& from, const CLocation& to) {
    const std::lock_guard lock(m_lock);
    for (Slot& slot : m_slots) {
        if (!slot.file || !from.Contains(slot.file->location)) continue;
        std::vector<std::string> names = to.names;
        const std::vector<std::string>& old = slot.file->location.names;
        names.insert(names.end(), old.begin() + static_cast<std::ptrdiff_t>(from.names.size()), old.end());
        slot.file->location.names = std::move(names);
    }
}

CDescriptors& Descriptors() {
    static CDescriptors table;
    return table;
}

}  // namespace zd::engine
