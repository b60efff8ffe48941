#include "Impersonation.h"

#include <cstdlib>
#include <iterator>
#include <utility>
#include <vector>

#include "text/Failure.h"

namespace zd::host {

namespace {

constexpr std::pair<std::string_view, Caller> kNames[] = {
    {"self", Caller::Self}, {"restricted", Caller::Restricted}, {"anonymous", Caller::Anonymous}};

void Check(BOOL done, const char* what) {
    if (done == FALSE) ThrowFailure(what, ::GetLastError(), L"");
}

// Every privilege of the token but the one to pass through folders, which everybody has.
std::vector<LUID_AND_ATTRIBUTES> PrivilegesOf(HANDLE token) {
    DWORD size = 0;
    ::GetTokenInformation(token, TokenPrivileges, nullptr, 0, &size);
    std::vector<DWORD> block(size / sizeof(DWORD) + 1);
    Check(::GetTokenInformation(token, TokenPrivileges, block.data(), size, &size), "reading the privileges");
    LUID kept{};
    Check(::LookupPrivilegeValueW(nullptr, L"SeChangeNotifyPrivilege", &kept), "looking up a privilege");
    const auto& all = *reinterpret_cast<const TOKEN_PRIVILEGES*>(block.data());
    std::vector<LUID_AND_ATTRIBUTES> privileges;
    for (DWORD i = 0; i < all.PrivilegeCount; ++i) {
        const LUID luid = all.Privileges[i].Luid;
        if (luid.LowPart != kept.LowPart || luid.HighPart != kept.HighPart) privileges.push_back({luid, 0});
    }
    return privileges;
}

CToken TokenOfThread() {
    HANDLE token = nullptr;
    // Asked for as the process: whom the thread stands in for may not be allowed to see it.
    if (::OpenThreadToken(::GetCurrentThread(), TOKEN_IMPERSONATE, TRUE, &token) == FALSE) {
        if (::GetLastError() != ERROR_NO_TOKEN) ThrowFailure("opening the thread's token", ::GetLastError(), L"");
        return nullptr;
    }
    return CToken(token);
}

CToken TokenOfProcess() {
    HANDLE token = nullptr;
    Check(::OpenProcessToken(::GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY, &token), "opening the own token");
    return CToken(token);
}

CToken RestrictedToken() {
    const CToken own = TokenOfProcess();
    DWORD sid[SECURITY_MAX_SID_SIZE / sizeof(DWORD)];
    DWORD size = sizeof sid;
    Check(::CreateWellKnownSid(WinBuiltinAdministratorsSid, nullptr, sid, &size), "naming the administrators");
    SID_AND_ATTRIBUTES denied{sid, 0};
    // Named one by one, because not every system heeds the flag that takes all of them.
    std::vector<LUID_AND_ATTRIBUTES> privileges = PrivilegesOf(own.get());
    HANDLE made = nullptr;
    Check(::CreateRestrictedToken(own.get(), 0, 1, &denied, static_cast<DWORD>(privileges.size()), privileges.data(), 0,
                                  nullptr, &made),
          "making a restricted token");
    const CToken restricted(made);
    HANDLE token = nullptr;
    Check(::DuplicateTokenEx(made, TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE, nullptr, SecurityImpersonation,
                             TokenImpersonation, &token),
          "duplicating a restricted token");
    return CToken(token);
}

void Begin(Caller caller) {
    switch (caller) {
        case Caller::Process:
            break;
        case Caller::Self:
            Check(::ImpersonateSelf(SecurityImpersonation), "impersonating \"self\"");
            break;
        case Caller::Restricted:
            Check(::SetThreadToken(nullptr, RestrictedToken().get()), "impersonating \"restricted\"");
            break;
        case Caller::Anonymous:
            Check(::ImpersonateAnonymousToken(::GetCurrentThread()), "impersonating \"anonymous\"");
            break;
    }
}

}  // namespace

std::optional<Caller> CallerNamed(std::string_view name) {
    for (const auto& [known, caller] : kNames) {
        if (known == name) return caller;
    }
    return std::nullopt;
}

void CImpersonation::GiveBack() const noexcept {
    if (::SetThreadToken(nullptr, m_before.get()) == FALSE) std::abort();
}

CImpersonation::CImpersonation(Caller caller) : m_before(TokenOfThread()) {
    // Tokens are made out of the process's own, which the caller of before may not be allowed to open.
    Check(::RevertToSelf(), "ending the impersonation of before");
    try {
        Begin(caller);
    } catch (...) {
        GiveBack();
        throw;
    }
}

CImpersonation::~CImpersonation() {
    GiveBack();
}

}  // namespace zd::host
