#include "files/WordInfo.h"

#include "base/Errors.h"
#include "base/KeptErrors.h"
#include "base/StorageOwners.h"
#include "files/FilesState.h"

namespace zd {

CWideString CFileInfo::Name() const {
    const CAutoCriticalSection held(m_nameLock);
    return m_names.name;
}

void CFileInfo::SetName(CWideString name, CUtf8String path) {
    CNames names{std::move(name), std::move(path)};
    const CAutoCriticalSection held(m_nameLock);
    std::swap(m_names, names);
}

CFileInfo::CNames CFileInfo::Names() const {
    const CAutoCriticalSection held(m_nameLock);
    return m_names;
}

void CFileInfo::RememberPath(const CNames& names) {
    const CAutoCriticalSection held(m_nameLock);
    // Another handle may have renamed the object meanwhile.
    if (m_names.name.c_str() == names.name.c_str()) m_names.path = names.path;
}

void CFileInfo::ForgetPath() noexcept {
    CUtf8String forgotten;
    const CAutoCriticalSection held(m_nameLock);
    std::swap(m_names.path, forgotten);
}

void CFileInfo::RemoveOpen() noexcept {
    if (m_openCount.fetch_sub(1, std::memory_order_acq_rel) == 1 && m_released != nullptr) m_released(*this, m_owner);
}

WORDInfo::WORDInfo(CRef<CFileInfo> info, const COpened& opened)
    : m_isDir(opened.isDirectory),
      m_OpenFlags(opened.flags & ~kOpeningFlags),
      m_segmentSize(opened.segmentSize),
      m_DirPtr(opened.directory),
      m_fragmentSize(opened.fragmentSize),
      m_fileInfo(std::move(info)),
      m_isCounted(opened.isCounted) {
    m_fragments.push_back(CFragment{0, kNoDescriptor, 0, -1});
    // Nothing fails from here on.
    m_fileInfo->AddOpen();
    SetDescriptor(opened.descriptor, 0);
}

// The record can die while an exception is on its way, so what it calls must not change the errors being reported.
WORDInfo::~WORDInfo() {
    const CKeptErrors kept;
    while (!m_fragments.empty()) RemoveLastFragment();
    const CUniqueDirectory directory(m_DirPtr);
    std::int32_t count = 0;
    DropCount(count);
    m_fileInfo->RemoveOpen();
}

std::size_t WORDInfo::Place(std::int32_t index) const {
    if (index < 0 || index >= FragmentCount()) ThrowWin32(ERROR_INVALID_PARAMETER);
    return static_cast<std::size_t>(index);
}

bool WORDInfo::IsUsedBefore(std::int32_t first, std::int32_t second) const noexcept {
    const std::int64_t firstUse = Known(first).lastUse;
    const std::int64_t secondUse = Known(second).lastUse;
    return firstUse != secondUse ? firstUse < secondUse : first < second;
}

// Stamps grow, so the place is nearly always the newest end.
void WORDInfo::Link(std::int32_t index) noexcept {
    CFragment& fragment = Known(index);
    fragment.older = m_newest;
    while (fragment.older >= 0 && IsUsedBefore(index, fragment.older)) fragment.older = Known(fragment.older).older;
    fragment.newer = fragment.older >= 0 ? Known(fragment.older).newer : m_oldest;
    (fragment.older >= 0 ? Known(fragment.older).newer : m_oldest) = index;
    (fragment.newer >= 0 ? Known(fragment.newer).older : m_newest) = index;
    ++m_openFragments;
}

void WORDInfo::Unlink(std::int32_t index) noexcept {
    const CFragment& fragment = Known(index);
    (fragment.older >= 0 ? Known(fragment.older).newer : m_oldest) = fragment.newer;
    (fragment.newer >= 0 ? Known(fragment.newer).older : m_newest) = fragment.older;
    --m_openFragments;
}

void WORDInfo::SetDescriptor(std::int64_t descriptor, std::int32_t index) {
    CFragment& fragment = At(index);
    const bool wasOpen = fragment.descriptor != kNoDescriptor;
    fragment.descriptor = descriptor;
    const bool isOpen = descriptor != kNoDescriptor;
    if (wasOpen && !isOpen) Unlink(index);
    if (!wasOpen && isOpen) Link(index);
}

void WORDInfo::SetLastUse(std::int32_t index, std::int64_t stamp) {
    CFragment& fragment = At(index);
    const bool isOpen = fragment.descriptor != kNoDescriptor;
    if (!isOpen || (index == m_newest && stamp >= fragment.lastUse)) {
        fragment.lastUse = stamp;
        return;
    }
    Unlink(index);
    fragment.lastUse = stamp;
    Link(index);
}

std::int32_t WORDInfo::LeastRecentlyUsed(std::int32_t keep) const noexcept {
    return m_oldest == keep && m_oldest >= 0 ? Known(m_oldest).newer : m_oldest;
}

void WORDInfo::SetSize(std::int64_t size, std::int32_t index, bool onlyIfLarger) {
    CFragment& fragment = At(index);
    if (!onlyIfLarger || size > fragment.size) fragment.size = size;
}

std::int64_t WORDInfo::TotalSize() const noexcept {
    std::int64_t total = 0;
    for (const CFragment& fragment : m_fragments) total += fragment.size;
    return total;
}

void WORDInfo::AddFragment(std::int64_t descriptor, std::int32_t index, std::int64_t size) {
    if (index < 0 || index > FragmentCount()) ThrowWin32(ERROR_INVALID_PARAMETER);
    m_fragments.push_back(CFragment{index, kNoDescriptor, size, -1});
    SetDescriptor(descriptor, FragmentCount() - 1);
}

void WORDInfo::RemoveLastFragment() noexcept {
    if (m_fragments.empty()) return;
    const CFragment& last = m_fragments.back();
    const CUniqueDescriptor closing(static_cast<int>(last.descriptor));
    if (last.descriptor != kNoDescriptor) Unlink(FragmentCount() - 1);
    m_fragments.pop_back();
}

void WORDInfo::RequireData() const {
    if (m_isDir) ThrowWin32(ERROR_ACCESS_DENIED);
    if (IsDeleted()) ThrowWin32(ERROR_FILE_NOT_FOUND);
}

void WORDInfo::RequireName() const {
    if (IsDeleted() || m_fileInfo->IsReplaced()) ThrowWin32(ERROR_FILE_NOT_FOUND);
}

bool WORDInfo::DropCount(std::int32_t& newCount) noexcept {
    if (!m_isCounted) return false;
    m_isCounted = false;
    std::atomic<std::int32_t>& count = FilesState().m_OpenDirectIOorWriteFiles;
    std::int32_t current = count.load(std::memory_order_relaxed);
    while (current > 0 && !count.compare_exchange_weak(current, current - 1, std::memory_order_relaxed)) {
    }
    newCount = current - 1;
    return current > 0;
}

}  // namespace zd
