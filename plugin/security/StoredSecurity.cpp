#include "security/StoredSecurity.h"

#include <new>

#include "base/Errors.h"
#include "security/TokenHelper.h"
#include "zdvfs.h"

namespace zd {

CUniqueHeapBlock<char> NewDescriptorBuffer() {
    CUniqueHeapBlock<char> buffer(
        static_cast<char*>(::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, kDescriptorTextBytes)));
    if (!buffer) throw std::bad_alloc();
    return buffer;
}

void RequireStoredAccess(const char* text, DWORD desiredAccess) {
    const CUniqueDescriptorBlock descriptor(DescriptorOfText(text));
    const CUniqueSystemHandle token(CTokenHelper().GetToken());
    RequireAccess(descriptor.Get(), token.Get(), desiredAccess);
}

CStoredSecurity::CRead CStoredSecurity::Read(char* buffer) const {
    CRead read{false, 0, true};
    errno = 0;
    int result = IsByPath() ? ::ZdvfsGetNTAclStr(m_path.c_str(), buffer, kDescriptorTextBytes)
                            : ::ZdvfsFgetNTAclStr(m_descriptor, buffer, kDescriptorTextBytes);
    if (Failed(result) || buffer[0] == '\0') {
        int flag = 1;
        buffer[0] = '\0';
        errno = 0;
        result = IsByPath() ? ::ZdvfsGetDsidNTAclStr(m_path.c_str(), buffer, kDescriptorTextBytes, &flag)
                            : ::ZdvfsFgetDsidNTAclStr(m_descriptor, buffer, kDescriptorTextBytes, &flag);
        read.error = errno;
        read.defaultApplies = flag != 0;
    }
    read.failed = Failed(result);
    buffer[kDescriptorTextBytes - 1] = '\0';
    if (read.failed) buffer[0] = '\0';
    return read;
}

void CStoredSecurity::Store(const char* text) const {
    CheckZdvfs(IsByPath() ? ::ZdvfsSetNTAclStr(m_path.c_str(), text) : ::ZdvfsFsetNTAclStr(m_descriptor, text));
}

}  // namespace zd
