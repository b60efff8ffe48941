// The calling thread acts for somebody else for a while, as a file server's thread does while it serves a client.
#pragma once

#include <windows.h>

#include <memory>
#include <optional>
#include <string_view>

namespace zd::host {

// Identities that need no password.
enum class Caller {
    Process,     // nobody else: an impersonation pauses
    Self,        // the user of this process: what a plain call runs as, but checked as a client's call is
    Restricted,  // the same user without what administrators have: the group only denies, privileges are gone
    Anonymous,   // nobody in particular
};

// Of "self", "restricted" and "anonymous"; nothing for other words.
std::optional<Caller> CallerNamed(std::string_view name);

struct TokenCloser {
    void operator()(HANDLE token) const { ::CloseHandle(token); }
};
using CToken = std::unique_ptr<void, TokenCloser>;

// Impersonates while it lives, and then acts as the thread did before. For the thread that made it.
class CImpersonation {
public:
    // Throws CFailure where the system refuses the identity; the thread then acts as before.
    explicit CImpersonation(Caller caller);
    // Ends the process where the thread cannot be given back its own identity: it must not go on as somebody else.
    ~CImpersonation();
    CImpersonation(const CImpersonation&) = delete;
    CImpersonation& operator=(const CImpersonation&) = delete;

private:
    void GiveBack() const noexcept;

    CToken m_before;  // null where the thread did not impersonate
};

}  // namespace zd::host
