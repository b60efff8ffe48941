#include "files/WordInfo.h"

#include "files/StorageOwners.h"
#include "protocol/Errors.h"
#include "protocol/ProcessState.h"

namespace zd {

CWideString CFileInfo::Name() const {
    const CAutoCriticalSection held(m_nameLock);
    return m_name;
}

void CFileInfo::SetName(CWideString name) {
    const CAutoCriticalSection held(m_nameLock);
    m_name = std::move(name);
}

void CFileInfo::RemoveOpen() noexcept {
    if (m_openCount.fetch_sub(1, std::memory_order_acq_rel) == 1 && m_released != nullptr) m_released(*this, m_owner);
}

CWideString FragmentName(const CWideString& name, std::int32_t number) {
    if (number <= 0) return name;
    return CWideString(name.view(), L";F" + std::to_wstring(number));
}

WORDInfo::WORDInfo(CRef<CFileInfo> info, bool isDirectory, std::int64_t fragmentSize)
    : m_isDir(isDirectory), m_fragmentSize(fragmentSize), m_fileInfo(std::move(info)) {
    m_fragments.push_back(CFragment{0, kNoDescriptor, 0, -1});
    m_fileInfo->AddOpen();
}

// The record can die while an exception is on its way, so what it calls must not change the errors being reported.
WORDInfo::~WORDInfo() {
    const int error = errno;
    const DWORD lastError = ::GetLastError();
    while (!m_fragments.empty()) RemoveLastFragment();
    const CUniqueDirectory directory(m_DirPtr);
    std::int32_t count = 0;
    DropCount(count);
    m_fileInfo->RemoveOpen();
    ::SetLastError(lastError);
    errno = error;
}

const CFragment& WORDInfo::At(std::int32_t index) const {
    if (index < 0 || index >= FragmentCount()) ThrowWin32(ERROR_INVALID_PARAMETER);
    return m_fragments[static_cast<std::size_t>(index)];
}

CFragment& WORDInfo::At(std::int32_t index) {
    return const_cast<CFragment&>(std::as_const(*this).At(index));
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
    m_fragments.push_back(CFragment{index, descriptor, size, -1});
}

void WORDInfo::RemoveLastFragment() noexcept {
    if (m_fragments.empty()) return;
    const CUniqueDescriptor closing(static_cast<int>(m_fragments.back().descriptor));
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
    if (!m_counted) return false;
    m_counted = false;
    std::atomic<std::int32_t>& count = ProcessState().m_OpenDirectIOorWriteFiles;
    std::int32_t current = count.load(std::memory_order_relaxed);
    while (current > 0 && !count.compare_exchange_weak(current, current - 1, std::memory_order_relaxed)) {
    }
    newCount = current - 1;
    return current > 0;
}

}  // namespace zd
