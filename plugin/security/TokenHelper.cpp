#include "security/TokenHelper.h"

#include "base/Errors.h"

namespace zd {
namespace {

constexpr DWORD kTokenAccess = TOKEN_DUPLICATE | TOKEN_IMPERSONATE | TOKEN_QUERY;

HANDLE OpenThreadById(std::uint32_t id) {
    if (id == 0) return nullptr;
    const HANDLE thread = ::OpenThread(THREAD_QUERY_INFORMATION, FALSE, id);
    if (thread == nullptr) ThrowLastError();
    return thread;
}

HANDLE OpenProcessById(std::uint32_t id) {
    if (id == 0) return nullptr;
    const HANDLE process = ::OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, id);
    if (process == nullptr) ThrowLastError();
    return process;
}

}  // namespace

HANDLE CThreadTokenHelper::OpenToken() const noexcept {
    const HANDLE thread = m_thread ? m_thread.Get() : ::GetCurrentThread();
    HANDLE token = nullptr;
    // As self: the check is made with the process's identity, not with the impersonated one.
    return ::OpenThreadToken(thread, kTokenAccess, TRUE, &token) != FALSE ? token : nullptr;
}

HANDLE CProcessTokenHelper::OpenToken() const {
    const HANDLE process = m_process ? m_process.Get() : ::GetCurrentProcess();
    HANDLE token = nullptr;
    if (::OpenProcessToken(process, kTokenAccess, &token) == FALSE) ThrowLastError();
    return token;
}

HANDLE CTokenHelper::GetToken() const {
    const CThreadTokenHelper thread(OpenThreadById(m_threadId));
    if (const HANDLE token = thread.OpenToken(); token != nullptr) return token;
    const CProcessTokenHelper process(OpenProcessById(m_processId));
    return process.OpenToken();
}

}  // namespace zd
