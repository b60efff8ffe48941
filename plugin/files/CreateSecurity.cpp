// The descriptor that guards an existing object, and the one that a new object gets.
#include "base/Errors.h"
#include "files/CreateRequest.h"
#include "namespace/FileInformation.h"
#include "namespace/FragmentName.h"
#include "namespace/StatIfThere.h"
#include "security/StoredSecurity.h"

namespace zd {

// A name of fragment shape behind the name of an existing file is a part of that file, under whose descriptor it
// stands; otherwise the parts of a file could be reached past it.
CUtf8String CCreateRequest::PathOfStoredSecurity(bool& isFragment) {
    isFragment = false;
    CUtf8String path = m_path;
    for (CWideString base = BaseOfFragmentShape(CWideString(m_name)); !base.empty(); base = BaseOfFragmentShape(base)) {
        const CUtf8String basePath = m_files.Translate(base.c_str());
        const auto status = StatIfThere(basePath);
        if (!status || IsDirectory(*status)) break;
        isFragment = true;
        path = basePath;
    }
    return path;
}

void CCreateRequest::CheckAccess(const char* stored, bool addsFragment) const {
    const bool empties = !m_isDirectory && (Row().flags & kZdvfsTruncate) != 0;
    DWORD desired = m_access;
    // Nobody empties what they may only read, or adds a part to it.
    if (empties || addsFragment) desired |= kZdAccessWrite;
    // Not added to the write bit: some systems' check then lets any other right stand in for it.
    if (desired == 0) desired = MAXIMUM_ALLOWED;
    RequireStoredAccess(stored, desired);
}

void CCreateRequest::TakeGivenDescriptor() {
    CheckDescriptor(m_descriptor);
    m_descriptorText = TextOfDescriptor(m_descriptor);
}

void CCreateRequest::DecideSecurity(bool wantsCheck) {
    const CUniqueHeapBlock<char> buffer(
        static_cast<char*>(::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, kDescriptorTextBytes)));
    if (!buffer) ThrowWin32(ERROR_NOT_ENOUGH_MEMORY);
    bool isFragment = false;
    const CStoredSecurity stored(PathOfStoredSecurity(isFragment));
    const CStoredSecurity::CRead read = stored.Read(buffer.Get());
    const bool isGuarded = m_exists || isFragment;
    // Nobody gets past a descriptor that could not be read.
    if (read.failed && isGuarded) ThrowWin32(ZdvfsErrnoToWin32(read.error));
    const bool isStored = buffer.Get()[0] != '\0';
    if (isGuarded && isStored && wantsCheck) CheckAccess(buffer.Get(), isFragment && !m_exists);
    if (m_exists) return;
    if (m_descriptor != nullptr) TakeGivenDescriptor();
    if (m_descriptorText.empty() && !isStored && read.defaultApplies) {
        m_descriptorText = m_policy.defaultDescriptor.Get();
    }
}

}  // namespace zd
