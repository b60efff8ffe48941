#include "benchmark/rows/DirectOpening.h"

#include <sddl.h>

#include <stdexcept>
#include <string_view>

#include "benchmark/harness/Bench.h"

namespace zd::bench {
namespace {

constexpr int kDescriptorTextBytes = 16384;
constexpr int kLocalityBytes = 32;
constexpr SECURITY_INFORMATION kWhole =
    OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;

HANDLE CallersToken() {
    constexpr DWORD kAccess = TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY;
    HANDLE token = nullptr;
    if (::OpenThreadToken(::GetCurrentThread(), kAccess, TRUE, &token) != FALSE) return token;
    if (::OpenProcessToken(::GetCurrentProcess(), kAccess, &token) == FALSE)
        Check(::GetLastError(), "OpenProcessToken");
    return token;
}

// The outcome does not matter: a host that does not impersonate passes.
void CheckAccess(const char* stored, DWORD access) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (::ConvertStringSecurityDescriptorToSecurityDescriptorA(stored, SDDL_REVISION_1, &descriptor, nullptr) ==
        FALSE) {
        Check(::GetLastError(), "converting a stored descriptor");
    }
    const HANDLE token = CallersToken();
    GENERIC_MAPPING mapping{};
    PRIVILEGE_SET privileges{};
    DWORD privilegeBytes = sizeof privileges;
    DWORD granted = 0;
    BOOL status = FALSE;
    ::AccessCheck(descriptor, token, access, &mapping, &privileges, &privilegeBytes, &granted, &status);
    ::CloseHandle(token);
    ::LocalFree(descriptor);
}

// Answers whether a text was stored.
bool ReadStored(const CDirectName& name, char* buffer) {
    buffer[0] = '\0';
    ::ZdvfsGetNTAclStr(name.path.c_str(), buffer, kDescriptorTextBytes);
    if (buffer[0] != '\0') return true;
    int flag = 1;
    ::ZdvfsGetDsidNTAclStr(name.path.c_str(), buffer, kDescriptorTextBytes, &flag);
    return buffer[0] != '\0';
}

void StatFile(const CDirectName& name) {
    ZdvfsStatRecord record{};
    CheckStorage(::ZdvfsStat(name.path.c_str(), &record), "ZdvfsStat");
}

void StatMissing(const std::string& path) {
    ZdvfsStatRecord record{};
    if (::ZdvfsStat(path.c_str(), &record) == 0) throw std::runtime_error(path + " should be missing");
}

// Under the frame of a check that the plug-in makes of what a host hands over.
std::string TextOfGiven(PSECURITY_DESCRIPTOR given) {
    if (::IsValidSecurityDescriptor(given) == FALSE) throw std::runtime_error("a bad descriptor");
    char* text = nullptr;
    if (::ConvertSecurityDescriptorToStringSecurityDescriptorA(given, SDDL_REVISION_1, kWhole, &text, nullptr) ==
        FALSE) {
        Check(::GetLastError(), "converting a given descriptor");
    }
    std::string copy(text);
    ::LocalFree(text);
    return copy;
}

}  // namespace

CDirectName::CDirectName(const std::wstring& name) : path(CBench::Path(name)), secondFragment(CBench::Path(name, 1)) {}

int OpenDirectly(const CDirectName& name, int flags, DWORD access) {
    char stored[kDescriptorTextBytes];
    StatFile(name);
    if (ReadStored(name, stored)) CheckAccess(stored, access);
    const std::int64_t descriptor = CheckStorage(::ZdvfsOpen(name.path.c_str(), flags, 0), "ZdvfsOpen");
    StatFile(name);
    StatMissing(name.secondFragment);
    return static_cast<int>(descriptor);
}

int CreateDirectly(const CDirectName& name, const char* locality, PSECURITY_DESCRIPTOR given) {
    char stored[kDescriptorTextBytes];
    StatMissing(name.path);
    ReadStored(name, stored);
    const std::string text = given != nullptr ? TextOfGiven(given) : kDefaultDescriptor;
    const auto descriptor = static_cast<int>(CheckStorage(
        ::ZdvfsOpen(name.path.c_str(), kZdvfsReadWrite | kZdvfsCreate | kZdvfsExclusive, FILE_ATTRIBUTE_NORMAL),
        "ZdvfsOpen"));
    if (locality != nullptr) {
        char buffer[kLocalityBytes] = {};
        std::string_view(locality).copy(buffer, sizeof buffer - 1);
        void* const none = nullptr;
        ::ZdvfsIoctl(descriptor, kZdvfsIoctlSetStorageLocality, none, 0, buffer, 0, kLocalityBytes);
    }
    CheckStorage(::ZdvfsSetNTAclStr(name.path.c_str(), text.c_str()), "ZdvfsSetNTAclStr");
    StatFile(name);
    StatMissing(name.secondFragment);
    return descriptor;
}

void OpenDirectoryDirectly(const CDirectName& name) {
    char stored[kDescriptorTextBytes];
    StatFile(name);
    if (ReadStored(name, stored)) CheckAccess(stored, MAXIMUM_ALLOWED);
    ZdvfsDirectory* const stream = ::ZdvfsOpendirForList(name.path.c_str(), 0);
    if (stream == nullptr) CheckStorage(-1, "ZdvfsOpendirForList");
    StatFile(name);
    CheckStorage(::ZdvfsClosedir(stream), "ZdvfsClosedir");
}

}  // namespace zd::bench
