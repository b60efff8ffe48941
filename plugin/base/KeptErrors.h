// Both errors of a thread, kept over what must not change them: clean-up while a failure is being reported, and the
// log.
#pragma once

#include <windows.h>

#include <cerrno>

namespace zd {

class CKeptErrors {
public:
    CKeptErrors() noexcept : m_lastError(::GetLastError()), m_errno(errno) {}
    ~CKeptErrors() {
        errno = m_errno;
        ::SetLastError(m_lastError);
    }
    CKeptErrors(const CKeptErrors&) = delete;
    CKeptErrors& operator=(const CKeptErrors&) = delete;

private:
    DWORD m_lastError;
    int m_errno;
};

}  // namespace zd
