// What the C++ runtime needs for throwing, held ready: exhausted memory is told by an exception, which then must not
// need any.
//
// The runtime's own versions of these functions take a thread's record of its exceptions from the heap at its first
// throw, and end the process where there is none. They have a reserve for the exceptions themselves, but its lock is
// made at its first use, from the heap again. The linker takes a library's own definition before the runtime's.
#include <windows.h>

#include <cxxabi.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>

// Where the part of this image begins that the system copies for each thread, and the number of this image's copy.
extern "C" {
extern char* _tls_start;
extern ULONG _tls_index;
}

namespace zd {
namespace {

// A thread's record of its exceptions, two words as runtimes are made today. The system makes the copy when the thread
// starts or the library is loaded, refuses that where there is no memory, and frees it with the thread or the library.
alignas(16) __attribute__((section(".tls$ZDX"))) std::byte g_record[64] = {};

void* RecordOfThread() noexcept {
    // The list of a thread's copies stands at this place of the thread's own segment.
    std::byte* const* copies = nullptr;
    asm volatile("movq %%gs:0x58, %0" : "=r"(copies));
    return copies[_tls_index] +
           (reinterpret_cast<std::uintptr_t>(g_record) - reinterpret_cast<std::uintptr_t>(&_tls_start));
}

// The runtime's header stands before the object that is thrown. Its length is that of the runtime's own blocks: a host
// that keeps an exception of this library frees it with its own runtime, which frees what begins there.
constexpr std::size_t kHeader = 160;
static_assert(kHeader % 16 == 0);
// Codes, and what the standard library throws.
constexpr std::size_t kSmallObject = 256;

struct alignas(16) CReserved {
    std::byte bytes[kHeader + kSmallObject];
};

// As many exceptions can be under way at once without memory.
CReserved g_reserve[128];
std::atomic<bool> g_taken[std::size(g_reserve)];

void* TakeReserved() noexcept {
    for (std::size_t i = 0; i < std::size(g_reserve); ++i) {
        if (!g_taken[i].exchange(true, std::memory_order_acquire)) return &g_reserve[i];
    }
    return nullptr;
}

void* Take(std::size_t size) noexcept {
    void* block = std::malloc(size);
    if (block == nullptr && size <= sizeof(CReserved)) block = TakeReserved();
    // An exception that cannot be thrown cannot be told in any other way either.
    if (block == nullptr) std::terminate();
    return std::memset(block, 0, size);
}

void Give(void* block) noexcept {
    const std::uintptr_t distance =
        reinterpret_cast<std::uintptr_t>(block) - reinterpret_cast<std::uintptr_t>(g_reserve);
    if (distance >= sizeof g_reserve) {
        std::free(block);
    } else {
        g_taken[distance / sizeof(CReserved)].store(false, std::memory_order_release);
    }
}

}  // namespace
}  // namespace zd

// The runtime's interface: names and signatures are the C++ ABI's.
namespace __cxxabiv1 {
extern "C" {

__cxa_eh_globals* __cxa_get_globals() noexcept {
    return static_cast<__cxa_eh_globals*>(zd::RecordOfThread());
}

__cxa_eh_globals* __cxa_get_globals_fast() noexcept {
    return static_cast<__cxa_eh_globals*>(zd::RecordOfThread());
}

void* __cxa_allocate_exception(std::size_t size) noexcept {
    return static_cast<std::byte*>(zd::Take(zd::kHeader + size)) + zd::kHeader;
}

void __cxa_free_exception(void* object) noexcept {
    zd::Give(static_cast<std::byte*>(object) - zd::kHeader);
}

// A further reference to an exception, which is nothing but a header.
__cxa_dependent_exception* __cxa_allocate_dependent_exception() noexcept {
    return static_cast<__cxa_dependent_exception*>(zd::Take(zd::kSmallObject));
}

void __cxa_free_dependent_exception(__cxa_dependent_exception* exception) noexcept {
    zd::Give(exception);
}

}  // extern "C"
}  // namespace __cxxabiv1
