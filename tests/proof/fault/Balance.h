// What an operation takes from the system and gives back: heap blocks, kernel handles. And allocations that fail.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "harness/ImportPatch.h"

namespace zd::test {

// Watches the allocations that a module makes through its imports: malloc, calloc, realloc, _strdup, HeapAlloc, and the
// system's calls that answer a block of their own (descriptors and their texts, identifiers). One for a process.
class CAllocationWatch {
public:
    explicit CAllocationWatch(HMODULE module);
    ~CAllocationWatch();
    CAllocationWatch(const CAllocationWatch&) = delete;
    CAllocationWatch& operator=(const CAllocationWatch&) = delete;

    // Blocks that were made and not freed, by the module or by this program.
    std::size_t Live() const;

    // From now on the calling thread's allocations are counted, and the `failing`-th fails; 0: none.
    void Arm(std::uint64_t failing);
    static constexpr std::uint64_t kEach = UINT64_MAX;
    // Ends that. Answers how many were made.
    std::uint64_t Disarm();
    // The function that failed first, on any thread since the last Arm; empty where none did.
    static std::string Failed();

private:
    std::vector<std::unique_ptr<CImportPatch>> m_patches;
};

// Kernel handles of this process.
DWORD KernelHandles();

template <class Work>
void DoWork(void* work) {
    (*static_cast<Work*>(work))();
}

// Runs work on a thread of its own, which has never thrown, and waits until that has ended.
void RunOnFreshThread(const std::string& what, void (*work)(void*), void* argument);
template <class Work>
void OnFreshThread(const std::string& what, Work work) {
    RunOnFreshThread(what, &DoWork<Work>, &work);
}

// Runs work on one other thread and waits for it. A lock that was left held ends the process with a message, because
// the thread would wait for ever.
class COtherThread {
public:
    COtherThread();
    ~COtherThread();
    COtherThread(const COtherThread&) = delete;
    COtherThread& operator=(const COtherThread&) = delete;

    // `what` is told where the work does not come back.
    template <class Work>
    void Run(const std::string& what, Work work) {
        RunRaw(what, &DoWork<Work>, &work);
    }

private:
    void RunRaw(const std::string& what, void (*work)(void*), void* argument);
    static DWORD WINAPI Main(void* self);

    HANDLE m_begin;
    HANDLE m_done;
    void (*m_work)(void*) = nullptr;
    void* m_argument = nullptr;
    HANDLE m_thread;
};

}  // namespace zd::test
