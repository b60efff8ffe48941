#include "Security.h"

#include <sddl.h>

#include <stdexcept>
#include <vector>

namespace zd::test {

CImpersonation::CImpersonation(SECURITY_IMPERSONATION_LEVEL level) {
    if (::ImpersonateSelf(level) == FALSE) throw std::runtime_error("ImpersonateSelf failed");
}

CImpersonation::~CImpersonation() {
    ::RevertToSelf();
}

CDescriptor::CDescriptor(const std::string& sddl) {
    if (::ConvertStringSecurityDescriptorToSecurityDescriptorA(sddl.c_str(), SDDL_REVISION_1, &m_descriptor, nullptr) ==
        FALSE) {
        throw std::runtime_error("no security descriptor: " + sddl);
    }
}

CDescriptor::~CDescriptor() {
    ::LocalFree(m_descriptor);
}

std::string SddlOf(PSECURITY_DESCRIPTOR descriptor) {
    char* text = nullptr;
    const SECURITY_INFORMATION parts =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    if (::ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor, SDDL_REVISION_1, parts, &text, nullptr) ==
        FALSE) {
        return std::string();
    }
    std::string sddl = text;
    ::LocalFree(text);
    return sddl;
}

std::string CurrentUserSid() {
    HANDLE token = nullptr;
    if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token) == FALSE) {
        throw std::runtime_error("OpenProcessToken failed");
    }
    std::vector<BYTE> buffer(1024);
    DWORD size = 0;
    const BOOL known = ::GetTokenInformation(token, TokenUser, buffer.data(), static_cast<DWORD>(buffer.size()), &size);
    ::CloseHandle(token);
    char* text = nullptr;
    if (known == FALSE ||
        ::ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid, &text) == FALSE) {
        throw std::runtime_error("the token's user is unknown");
    }
    std::string sid = text;
    ::LocalFree(text);
    return sid;
}

}  // namespace zd::test
