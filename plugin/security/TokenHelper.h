// Who the plug-in is acting for: the calling thread's impersonation token, or the process's own.
//
// Plain local objects, to be used on the thread that the host called the operation on.
#pragma once

#include <windows.h>

#include <cstdint>

#include "base/UniqueHandle.h"

namespace zd {

// Ids of 0 mean the calling thread and the current process.
class CTokenHelper {
public:
    explicit CTokenHelper(std::uint32_t threadId = 0, std::uint32_t processId = 0) noexcept
        : m_threadId(threadId), m_processId(processId) {}
    virtual ~CTokenHelper() = default;

    // The caller's token, which the caller closes. Throws the system's code where the thread or process cannot be
    // opened or no token be had; a thread that does not impersonate is no failure.
    HANDLE GetToken() const;

private:
    std::uint32_t m_threadId;
    std::uint32_t m_processId;
};

// Owns a thread handle, which may be null for the calling thread.
class CThreadTokenHelper {
public:
    explicit CThreadTokenHelper(HANDLE thread) noexcept : m_thread(thread) {}
    virtual ~CThreadTokenHelper() = default;
    CThreadTokenHelper(const CThreadTokenHelper&) = delete;
    CThreadTokenHelper& operator=(const CThreadTokenHelper&) = delete;

    // The thread's impersonation token, null where it has none.
    HANDLE OpenToken() const noexcept;

private:
    CUniqueSystemHandle m_thread;
};

// Owns a process handle, which may be null for the current process.
class CProcessTokenHelper {
public:
    explicit CProcessTokenHelper(HANDLE process) noexcept : m_process(process) {}
    virtual ~CProcessTokenHelper() = default;
    CProcessTokenHelper(const CProcessTokenHelper&) = delete;
    CProcessTokenHelper& operator=(const CProcessTokenHelper&) = delete;

    // The process's token. Throws the system's code.
    HANDLE OpenToken() const;

private:
    CUniqueSystemHandle m_process;
};

}  // namespace zd
