// Memory whose bounds are watched by the processor: each block touches a page that nobody may use, and a freed block is
// such a page itself for a while. One byte too far, or one use too late, is an access violation where it happens.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace zd::test {

// The exception for what is found when a block is freed.
inline constexpr DWORD kGuardFault = 0xE0475541;

// Which end of a block touches the page that nobody may use.
enum class EGuard { kEnd, kBegin };

// Blocks begin at multiples of 16, so with kEnd up to 15 bytes may lie between a block and its guard. These, and all
// others of the block's pages, hold a pattern that is compared when the block is freed: a write there ends the process
// with a message. Such a read stays unseen.
//
//   CGuardAllocator::Start(EGuard::kEnd);
//   CGuardAllocator::Attach(environment.Plugin());                  from here on the module allocates here
//   CGuardAllocator::AttachFrees(::GetModuleHandleW(nullptr));      and the program may free what the module hands it
//
// It lasts to the end of the process: modules free blocks until then. Threads: any, once it was started.
class CGuardAllocator {
public:
    static void Start(EGuard guard);

    // malloc, calloc, realloc, free, _strdup, HeapAlloc, HeapReAlloc, HeapFree, HeapSize, LocalAlloc and LocalFree, as
    // far as the module imports them. Blocks from elsewhere are freed where they came from.
    static void Attach(HMODULE module);
    // Only what frees and enlarges: the module's own blocks stay what they are.
    static void AttachFrees(HMODULE module);

    // A block of the caller's own, for buffers that are handed to an operation. `alignment` is a power of two up to 16.
    static void* New(std::size_t size, std::size_t alignment = 1);
    static void Delete(void* block);

    // Blocks made so far, and those in use.
    static std::uint64_t Made();
    static std::uint64_t InUse();
    // Blocks that did not fit and came from the system's heap instead.
    static std::uint64_t Unguarded();

    // What is known of an address: which block it belongs to, how far it lies outside, whether the block was freed.
    static std::string Describe(const void* address);
};

// A buffer with a guarded end, for arguments: text, data, records.
template <class T>
class CGuardedArray {
public:
    explicit CGuardedArray(std::size_t count)
        : m_data(static_cast<T*>(CGuardAllocator::New(count * sizeof(T), alignof(T)))), m_count(count) {}
    ~CGuardedArray() { CGuardAllocator::Delete(m_data); }
    CGuardedArray(const CGuardedArray&) = delete;
    CGuardedArray& operator=(const CGuardedArray&) = delete;

    T* Data() const { return m_data; }
    std::size_t Count() const { return m_count; }

private:
    T* m_data;
    std::size_t m_count;
};

}  // namespace zd::test
