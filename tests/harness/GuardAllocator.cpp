#include "GuardAllocator.h"

#include "ImportPatch.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>

namespace zd::test {

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kAlignment = 16;
constexpr unsigned char kSlack = 0xFB;  // beside a block
constexpr unsigned char kFresh = 0xA5;  // in a new block
// Slots of 1, 2, 4 ... pages, each with a guard page behind it; half as many slots in each further class.
constexpr std::size_t kClasses = 11;
constexpr std::size_t kSmallestClassSlots = 256 * 1024;
constexpr std::size_t kRestingSlots = 4096;  // freed blocks that stay out of reach, in each class

enum class EState : std::uint8_t { kNever, kUsed, kFreed };

struct Slot {
    EState state = EState::kNever;
    std::uint32_t next = 0;  // the slot that was freed next
    std::size_t size = 0;
};

// What the replacements stand for. Not by the program's own imports, which may be replaced too.
struct Originals {
    decltype(&::malloc) allocate = nullptr;
    decltype(&::calloc) allocateZero = nullptr;
    decltype(&::realloc) enlarge = nullptr;
    decltype(&::free) giveBack = nullptr;
    decltype(&::HeapAlloc) heapAlloc = nullptr;
    decltype(&::HeapReAlloc) heapReAlloc = nullptr;
    decltype(&::HeapFree) heapFree = nullptr;
    decltype(&::HeapSize) heapSize = nullptr;
    decltype(&::LocalAlloc) localAlloc = nullptr;
    decltype(&::LocalFree) localFree = nullptr;
};

// Slots of one size. The first page is a guard too.
struct Arena {
    std::uintptr_t begin = 0;
    std::size_t slotBytes = 0;  // without its guard
    std::size_t slots = 0;
    std::size_t fresh = 0;  // slots used so far
    Slot* table = nullptr;
    std::size_t resting = 0;  // freed slots, first and last of them
    std::uint32_t first = 0;
    std::uint32_t last = 0;

    std::size_t Stride() const { return slotBytes + kPage; }
    std::uintptr_t Base(std::size_t slot) const { return begin + kPage + slot * Stride(); }
    bool Has(std::uintptr_t address) const { return address >= begin && address < Base(slots); }
    // The slot of an address; a guard page belongs to the slot in front of it.
    std::size_t SlotOf(std::uintptr_t address) const { return address < Base(0) ? 0 : (address - Base(0)) / Stride(); }
};

struct State {
    std::mutex lock;
    EGuard guard = EGuard::kEnd;
    std::array<Arena, kClasses> arenas;
    Originals system;
    std::uint64_t made = 0;
    std::uint64_t inUse = 0;
    std::uint64_t unguarded = 0;
};

State& TheState() {
    static State* const state = new State();  // blocks outlive everything
    return *state;
}

[[noreturn]] void Fail(const char* what, const void* block) {
    std::fprintf(stderr, "guard allocator: %s, block %p: %s\n", what, block, CGuardAllocator::Describe(block).c_str());
    std::fflush(stderr);
    // Left to the handler that prints the case at hand.
    ::RaiseException(kGuardFault, 0, 0, nullptr);
    std::abort();
}

void Reserve(Arena& arena, std::size_t number) {
    arena.slotBytes = kPage << number;
    arena.slots = kSmallestClassSlots >> number;
    const std::size_t bytes = kPage + arena.slots * arena.Stride();
    arena.begin = reinterpret_cast<std::uintptr_t>(::VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_NOACCESS));
    arena.table = static_cast<Slot*>(std::calloc(arena.slots, sizeof(Slot)));
    if (arena.begin == 0 || arena.table == nullptr) throw std::runtime_error("no address space for guarded memory");
}

Arena* ArenaOf(const void* block) {
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    for (Arena& arena : TheState().arenas) {
        if (arena.begin != 0 && arena.Has(address)) return &arena;
    }
    return nullptr;
}

// A slot whose pages can be used. The caller holds the lock.
bool TakeSlot(Arena& arena, std::size_t& slot) {
    const bool isFresh = arena.resting < kRestingSlots && arena.fresh < arena.slots;
    if (!isFresh && arena.resting == 0) return false;
    slot = isFresh ? arena.fresh : arena.first;
    const auto base = reinterpret_cast<void*>(arena.Base(slot));
    if (::VirtualAlloc(base, arena.slotBytes, MEM_COMMIT, PAGE_READWRITE) == nullptr) return false;
    if (isFresh) {
        ++arena.fresh;
    } else {
        arena.first = arena.table[slot].next;
        --arena.resting;
    }
    return true;
}

void LetRest(Arena& arena, std::size_t slot) {
    const auto number = static_cast<std::uint32_t>(slot);
    if (arena.resting == 0)
        arena.first = number;
    else
        arena.table[arena.last].next = number;
    arena.last = number;
    ++arena.resting;
}

void* Allocate(std::size_t size, std::size_t alignment, bool zero) {
    State& state = TheState();
    const DWORD lastError = ::GetLastError();
    const std::lock_guard<std::mutex> held(state.lock);
    for (Arena& arena : state.arenas) {
        if (arena.begin == 0 || size > arena.slotBytes) continue;
        std::size_t slot = 0;
        if (!TakeSlot(arena, slot)) break;
        const std::size_t offset = state.guard == EGuard::kBegin ? 0 : (arena.slotBytes - size) & ~(alignment - 1);
        auto* const base = reinterpret_cast<unsigned char*>(arena.Base(slot));
        std::memset(base, kSlack, offset);
        std::memset(base + offset, zero ? 0 : kFresh, size);
        std::memset(base + offset + size, kSlack, arena.slotBytes - offset - size);
        arena.table[slot].state = EState::kUsed;
        arena.table[slot].size = size;
        ++state.made;
        ++state.inUse;
        ::SetLastError(lastError);
        return base + offset;
    }
    ++state.unguarded;
    return nullptr;
}

std::size_t OffsetOf(const Arena& arena, std::size_t slot, const void* block) {
    return reinterpret_cast<std::uintptr_t>(block) - arena.Base(slot);
}

void RequireSlack(const unsigned char* begin, const unsigned char* end, const void* block) {
    for (; begin < end; ++begin) {
        if (*begin != kSlack) Fail("written beside a block", block);
    }
}

// False for a block that is none of ours.
bool Free(void* block) {
    Arena* const arena = ArenaOf(block);
    if (arena == nullptr) return false;
    State& state = TheState();
    const DWORD lastError = ::GetLastError();
    const std::lock_guard<std::mutex> held(state.lock);
    const std::size_t slot = arena->SlotOf(reinterpret_cast<std::uintptr_t>(block));
    Slot& entry = arena->table[slot];
    if (entry.state != EState::kUsed) Fail("freed twice", block);
    const std::size_t offset = OffsetOf(*arena, slot, block);
    const auto* const base = reinterpret_cast<const unsigned char*>(arena->Base(slot));
    if (offset + entry.size > arena->slotBytes) Fail("freed at another address than it has", block);
    RequireSlack(base, base + offset, block);
    RequireSlack(base + offset + entry.size, base + arena->slotBytes, block);
    DWORD before = 0;
    ::VirtualProtect(reinterpret_cast<void*>(arena->Base(slot)), arena->slotBytes, PAGE_NOACCESS, &before);
    entry.state = EState::kFreed;
    LetRest(*arena, slot);
    --state.inUse;
    ::SetLastError(lastError);
    return true;
}

std::size_t SizeOf(void* block) {
    const Arena* const arena = ArenaOf(block);
    const std::lock_guard<std::mutex> held(TheState().lock);
    const Slot& slot = arena->table[arena->SlotOf(reinterpret_cast<std::uintptr_t>(block))];
    if (slot.state != EState::kUsed) Fail("used after it was freed", block);
    return slot.size;
}

// ---- What modules import ---------------------------------------------------------------------------------------

const Originals& System() {
    return TheState().system;
}

void* GuardedMalloc(std::size_t size) {
    void* const block = Allocate(size, kAlignment, false);
    return block != nullptr ? block : System().allocate(size);
}

void* GuardedCalloc(std::size_t count, std::size_t size) {
    if (size != 0 && count > SIZE_MAX / size) return System().allocateZero(count, size);
    void* const block = Allocate(count * size, kAlignment, true);
    return block != nullptr ? block : System().allocateZero(count, size);
}

void GuardedFree(void* block) {
    if (block != nullptr && !Free(block)) System().giveBack(block);
}

void* Enlarge(void* block, std::size_t size, bool zero) {
    void* const larger = zero ? GuardedCalloc(1, size) : GuardedMalloc(size);
    if (larger == nullptr) return nullptr;
    const std::size_t old = SizeOf(block);
    std::memcpy(larger, block, old < size ? old : size);
    Free(block);
    return larger;
}

void* GuardedRealloc(void* block, std::size_t size) {
    if (block == nullptr) return GuardedMalloc(size);
    return ArenaOf(block) == nullptr ? System().enlarge(block, size) : Enlarge(block, size, false);
}

char* GuardedStrdup(const char* text) {
    const std::size_t size = std::strlen(text) + 1;
    void* const copy = GuardedMalloc(size);
    if (copy != nullptr) std::memcpy(copy, text, size);
    return static_cast<char*>(copy);
}

void* WINAPI GuardedHeapAlloc(HANDLE heap, DWORD flags, SIZE_T size) {
    void* const block = Allocate(size, kAlignment, (flags & HEAP_ZERO_MEMORY) != 0);
    return block != nullptr ? block : System().heapAlloc(heap, flags, size);
}

void* WINAPI GuardedHeapReAlloc(HANDLE heap, DWORD flags, void* block, SIZE_T size) {
    if (ArenaOf(block) == nullptr) return System().heapReAlloc(heap, flags, block, size);
    return Enlarge(block, size, (flags & HEAP_ZERO_MEMORY) != 0);
}

BOOL WINAPI GuardedHeapFree(HANDLE heap, DWORD flags, void* block) {
    return block != nullptr && Free(block) ? TRUE : System().heapFree(heap, flags, block);
}

SIZE_T WINAPI GuardedHeapSize(HANDLE heap, DWORD flags, const void* block) {
    return ArenaOf(block) == nullptr ? System().heapSize(heap, flags, block) : SizeOf(const_cast<void*>(block));
}

HLOCAL WINAPI GuardedLocalAlloc(UINT flags, SIZE_T size) {
    if ((flags & LMEM_MOVEABLE) != 0) return System().localAlloc(flags, size);
    void* const block = Allocate(size, kAlignment, (flags & LMEM_ZEROINIT) != 0);
    return block != nullptr ? block : System().localAlloc(flags, size);
}

HLOCAL WINAPI GuardedLocalFree(HLOCAL block) {
    return block != nullptr && Free(block) ? nullptr : System().localFree(block);
}

template <class Function>
void Find(Function& function, const wchar_t* module, const char* name) {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(module), name)));
    if (function == nullptr) throw std::runtime_error(std::string("no ") + name);
}

void FindOriginals(Originals& system) {
    Find(system.allocate, L"ucrtbase.dll", "malloc");
    Find(system.allocateZero, L"ucrtbase.dll", "calloc");
    Find(system.enlarge, L"ucrtbase.dll", "realloc");
    Find(system.giveBack, L"ucrtbase.dll", "free");
    Find(system.heapAlloc, L"kernel32.dll", "HeapAlloc");
    Find(system.heapReAlloc, L"kernel32.dll", "HeapReAlloc");
    Find(system.heapFree, L"kernel32.dll", "HeapFree");
    Find(system.heapSize, L"kernel32.dll", "HeapSize");
    Find(system.localAlloc, L"kernel32.dll", "LocalAlloc");
    Find(system.localFree, L"kernel32.dll", "LocalFree");
}

void Patch(HMODULE module, bool freesOnly) {
    const auto patch = [&](const char* function, auto* replacement) {
        static_cast<void>(new CImportPatch(module, function, replacement, /*required=*/false));  // never undone
    };
    patch("free", &GuardedFree);
    patch("realloc", &GuardedRealloc);
    patch("HeapFree", &GuardedHeapFree);
    patch("HeapReAlloc", &GuardedHeapReAlloc);
    patch("HeapSize", &GuardedHeapSize);
    patch("LocalFree", &GuardedLocalFree);
    if (freesOnly) return;
    patch("malloc", &GuardedMalloc);
    patch("calloc", &GuardedCalloc);
    patch("_strdup", &GuardedStrdup);
    patch("HeapAlloc", &GuardedHeapAlloc);
    patch("LocalAlloc", &GuardedLocalAlloc);
}

}  // namespace

void CGuardAllocator::Start(EGuard guard) {
    State& state = TheState();
    state.guard = guard;
    if (state.arenas[0].begin != 0) return;
    FindOriginals(state.system);
    for (std::size_t i = 0; i < kClasses; ++i) Reserve(state.arenas[i], i);
}

void CGuardAllocator::Attach(HMODULE module) {
    Patch(module, /*freesOnly=*/false);
}

void CGuardAllocator::AttachFrees(HMODULE module) {
    Patch(module, /*freesOnly=*/true);
}

void* CGuardAllocator::New(std::size_t size, std::size_t alignment) {
    void* const block = Allocate(size, alignment, false);
    if (block == nullptr) throw std::runtime_error("no guarded memory left");
    return block;
}

void CGuardAllocator::Delete(void* block) {
    if (block != nullptr) Free(block);
}

std::uint64_t CGuardAllocator::Made() {
    const std::lock_guard<std::mutex> held(TheState().lock);
    return TheState().made;
}

std::uint64_t CGuardAllocator::InUse() {
    const std::lock_guard<std::mutex> held(TheState().lock);
    return TheState().inUse;
}

std::uint64_t CGuardAllocator::Unguarded() {
    const std::lock_guard<std::mutex> held(TheState().lock);
    return TheState().unguarded;
}

std::string CGuardAllocator::Describe(const void* address) {
    const Arena* const arena = ArenaOf(address);
    if (arena == nullptr) return "not in guarded memory";
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    const std::size_t number = arena->SlotOf(place);
    const Slot& slot = arena->table[number];
    std::array<char, 160> text{};
    const bool isUsed = slot.state == EState::kUsed;
    const char* const state = isUsed ? "in use" : slot.state == EState::kFreed ? "freed" : "unused";
    const std::size_t inside = place - arena->Base(number);
    const char* const where = inside < arena->slotBytes ? "in" : "in the guard behind";
    std::snprintf(text.data(), text.size(), "byte %llu, %s the %llu bytes of a block of %llu that is %s", inside, where,
                  arena->slotBytes, slot.size, state);
    return text.data();
}

}  // namespace zd::test
