// Owners of resources. Giving one back never changes the thread's errors, because an operation that fails may still
// have to report them.
#pragma once

#include <windows.h>

#include <cstdlib>
#include <utility>

#include "base/KeptErrors.h"

namespace zd {

// `Traits` names the raw type, the empty value, the test for a resource and how to give it back.
template <class Traits>
class CUniqueHandle {
public:
    using Raw = typename Traits::Raw;

    CUniqueHandle() noexcept = default;
    explicit CUniqueHandle(Raw raw) noexcept : m_raw(raw) {}
    ~CUniqueHandle() { Reset(); }
    CUniqueHandle(CUniqueHandle&& other) noexcept : m_raw(other.Release()) {}
    CUniqueHandle& operator=(CUniqueHandle&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }

    Raw Get() const noexcept { return m_raw; }
    explicit operator bool() const noexcept { return Traits::IsValid(m_raw); }
    [[nodiscard]] Raw Release() noexcept { return std::exchange(m_raw, Traits::Empty()); }

    void Reset(Raw next = Traits::Empty()) noexcept {
        const Raw old = std::exchange(m_raw, next);
        if (!Traits::IsValid(old)) return;
        const CKeptErrors kept;
        Traits::Close(old);
    }

    // For calls that store a resource through a pointer; what was owned before is given back first.
    Raw* Receive() noexcept {
        Reset();
        return &m_raw;
    }

private:
    Raw m_raw = Traits::Empty();
};

struct CHandleTraits {
    using Raw = HANDLE;
    static Raw Empty() noexcept { return nullptr; }
    static bool IsValid(Raw raw) noexcept { return raw != nullptr && raw != INVALID_HANDLE_VALUE; }
    static void Close(Raw raw) noexcept { ::CloseHandle(raw); }
};
using CUniqueSystemHandle = CUniqueHandle<CHandleTraits>;

struct CFindTraits {
    using Raw = HANDLE;
    static Raw Empty() noexcept { return INVALID_HANDLE_VALUE; }
    static bool IsValid(Raw raw) noexcept { return raw != INVALID_HANDLE_VALUE; }
    static void Close(Raw raw) noexcept { ::FindClose(raw); }
};
using CUniqueFind = CUniqueHandle<CFindTraits>;

template <class Pointer, class Giver>
struct CPointerTraits {
    using Raw = Pointer;
    static Raw Empty() noexcept { return nullptr; }
    static bool IsValid(Raw raw) noexcept { return raw != nullptr; }
    static void Close(Raw raw) noexcept { Giver::Give(raw); }
};

struct CHeapGiver {
    static void Give(void* block) noexcept { ::HeapFree(::GetProcessHeap(), 0, block); }
};
struct CLocalGiver {
    static void Give(void* block) noexcept { ::LocalFree(block); }
};
struct CRuntimeGiver {
    static void Give(void* block) noexcept { std::free(block); }
};

// Blocks of HeapAlloc on the process heap, of LocalAlloc, and of the runtime's malloc.
template <class T>
using CUniqueHeapBlock = CUniqueHandle<CPointerTraits<T*, CHeapGiver>>;
template <class T>
using CUniqueLocalBlock = CUniqueHandle<CPointerTraits<T*, CLocalGiver>>;
template <class T>
using CUniqueRuntimeBlock = CUniqueHandle<CPointerTraits<T*, CRuntimeGiver>>;

}  // namespace zd
