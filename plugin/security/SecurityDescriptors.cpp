#include "security/SecurityDescriptors.h"

#include <sddl.h>

#include <new>
#include <vector>

#include "base/Errors.h"

namespace zd {
namespace {

constexpr SECURITY_INFORMATION kWhole =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;
constexpr DWORD kDefaultAclBytes = 4096;
constexpr DWORD kInventedAclBytes = 4112;  // beside the length of the user's SID
constexpr DWORD kInventedRights = 0x0000FFFF;
constexpr DWORD kDescriptorBytes = 40 + 1024;  // of a self-relative copy, beside its ACL

struct CSidGiver {
    static void Give(void* sid) noexcept { ::FreeSid(sid); }
};
using CUniqueSid = CUniqueHandle<CPointerTraits<void*, CSidGiver>>;

void Require(BOOL result) {
    if (result == FALSE) ThrowLastError();
}

CUniqueSid SystemSid(BYTE count, DWORD first, DWORD second) {
    SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
    CUniqueSid sid;
    Require(::AllocateAndInitializeSid(&authority, count, first, second, 0, 0, 0, 0, 0, 0, sid.Receive()));
    return sid;
}

// An absolute descriptor over an ACL and SIDs that live elsewhere.
void BuildDescriptor(SECURITY_DESCRIPTOR& descriptor, PACL acl, PSID owner) {
    Require(::InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION));
    Require(::SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE));
    Require(::SetSecurityDescriptorOwner(&descriptor, owner, FALSE));
    Require(::SetSecurityDescriptorGroup(&descriptor, owner, FALSE));
}

std::vector<BYTE> UserOf(HANDLE token) {
    DWORD bytes = 0;
    if (::GetTokenInformation(token, TokenUser, nullptr, 0, &bytes) == FALSE &&
        ::GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        ThrowLastError();
    }
    std::vector<BYTE> user(bytes);
    Require(::GetTokenInformation(token, TokenUser, user.data(), bytes, &bytes));
    return user;
}

std::string WholeText(PSECURITY_DESCRIPTOR descriptor) {
    CUniqueHandle<CPointerTraits<char*, CLocalGiver>> text;
    Require(::ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor, SDDL_REVISION_1, kWhole, text.Receive(),
                                                                   nullptr));
    return std::string(text.Get());
}

}  // namespace

std::string TextOfDescriptor(PSECURITY_DESCRIPTOR descriptor) {
    std::string text = WholeText(descriptor);
    if (text.size() >= kDescriptorTextBytes) ThrowWin32(ERROR_INSUFFICIENT_BUFFER);
    return text;
}

PSECURITY_DESCRIPTOR DescriptorOfText(const char* text) {
    if (!IsConvertible(text)) ThrowWin32(ERROR_INVALID_SECURITY_DESCR);
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    Require(::ConvertStringSecurityDescriptorToSecurityDescriptorA(text, SDDL_REVISION_1, &descriptor, nullptr));
    return descriptor;
}

std::string DefaultDescriptorText() {
    const CUniqueSid administrators = SystemSid(2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS);
    const CUniqueSid localSystem = SystemSid(1, SECURITY_LOCAL_SYSTEM_RID, 0);
    std::vector<DWORD> block(kDefaultAclBytes / sizeof(DWORD));
    const auto acl = reinterpret_cast<PACL>(block.data());
    Require(::InitializeAcl(acl, kDefaultAclBytes, ACL_REVISION));
    Require(::AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, administrators.Get()));
    Require(::AddAccessAllowedAce(acl, ACL_REVISION, GENERIC_ALL, localSystem.Get()));
    SECURITY_DESCRIPTOR descriptor;
    BuildDescriptor(descriptor, acl, administrators.Get());
    return WholeText(&descriptor);
}

CInventedDescriptor::CInventedDescriptor(HANDLE token) : m_user(UserOf(token)) {
    const PSID sid = reinterpret_cast<const TOKEN_USER*>(m_user.data())->User.Sid;
    m_aclBytes = ::GetLengthSid(sid) + kInventedAclBytes;
    m_acl.resize(m_aclBytes / sizeof(DWORD) + 1);
    const auto acl = reinterpret_cast<PACL>(m_acl.data());
    Require(::InitializeAcl(acl, m_aclBytes, ACL_REVISION));
    Require(::AddAccessAllowedAce(acl, ACL_REVISION, kInventedRights, sid));
    BuildDescriptor(m_descriptor, acl, sid);
}

std::string CInventedDescriptor::Text() {
    return TextOfDescriptor(&m_descriptor);
}

CUniqueHeapBlock<void> CInventedDescriptor::SelfRelative() {
    DWORD bytes = m_aclBytes + kDescriptorBytes;
    CUniqueHeapBlock<void> copy(::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY, bytes));
    if (!copy) throw std::bad_alloc();
    Require(::MakeSelfRelativeSD(&m_descriptor, copy.Get(), &bytes));
    return copy;
}

}  // namespace zd
