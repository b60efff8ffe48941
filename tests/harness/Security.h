// Identities and security descriptors for tests.
#pragma once

#include <windows.h>

#include <string>

namespace zd::test {

// The calling thread carries an impersonation token with the process's identity while the object lives.
class CImpersonation {
public:
    explicit CImpersonation(SECURITY_IMPERSONATION_LEVEL level = SecurityImpersonation);
    ~CImpersonation();
    CImpersonation(const CImpersonation&) = delete;
    CImpersonation& operator=(const CImpersonation&) = delete;
};

// A self-relative descriptor made from its text.
class CDescriptor {
public:
    explicit CDescriptor(const std::string& sddl);
    ~CDescriptor();
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    PSECURITY_DESCRIPTOR Raw() const { return m_descriptor; }

private:
    PSECURITY_DESCRIPTOR m_descriptor = nullptr;
};

// The text of a descriptor with owner, group and DACL; empty where the system refuses.
std::string SddlOf(PSECURITY_DESCRIPTOR descriptor);

// "S-1-5-..." of the user of the process's token.
std::string CurrentUserSid();

}  // namespace zd::test
