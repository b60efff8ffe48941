#include "base/Errors.h"
#include "log/Log.h"
#include "security/SecurityDescriptors.h"

namespace zd {

void CheckDescriptor(PSECURITY_DESCRIPTOR descriptor) {
    if (descriptor == nullptr || !IsWholeDescriptor(descriptor) || ::IsValidSecurityDescriptor(descriptor) == FALSE) {
        ThrowWin32(ERROR_INVALID_SECURITY_DESCR);
    }
}

void RequireAccess(PSECURITY_DESCRIPTOR descriptor, HANDLE token, DWORD desiredAccess) {
    constexpr DWORD kPrivilegeBytes = 20;
    static_assert(sizeof(PRIVILEGE_SET) == kPrivilegeBytes);
    // Nothing is mapped: generic rights in a descriptor grant no specific ones.
    GENERIC_MAPPING mapping{};
    PRIVILEGE_SET privileges{};
    DWORD privilegeBytes = kPrivilegeBytes;
    DWORD granted = 0xFFFF;
    BOOL status = TRUE;
    ::SetLastError(ERROR_SUCCESS);
    const BOOL called =
        ::AccessCheck(descriptor, token, desiredAccess, &mapping, &privileges, &privilegeBytes, &granted, &status);
    // With MAXIMUM_ALLOWED in it, some systems' check passes where the rights beside it are not granted.
    const bool lacksRight = (desiredAccess & MAXIMUM_ALLOWED) != 0 &&
                            (desiredAccess & ~static_cast<DWORD>(MAXIMUM_ALLOWED) & ~granted) != 0;
    if (called != FALSE && status != FALSE && !lacksRight) return;
    const DWORD lastError = ::GetLastError();
    const DWORD code = lastError != 0 ? lastError : ERROR_ACCESS_DENIED;
    LogLine(kLogTrace, "AccessCheck failed %d\n", static_cast<int>(code));
    // A primary token: the host acts for itself.
    if (code == ERROR_NO_IMPERSONATION_TOKEN) return;
    ThrowWin32(code);
}

}  // namespace zd
