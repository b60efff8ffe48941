#include "Balance.h"

#include <sddl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_set>

#include "harness/Child.h"

namespace zd::test {

namespace {

constexpr DWORD kPatience = 60000;  // milliseconds until a lock counts as left held

struct CBook {
    std::mutex lock;
    std::unordered_set<const void*> live;
};

CBook& Book() {
    static CBook* const book = new CBook;
    return *book;
}

thread_local bool t_armed = false;
thread_local std::uint64_t t_made = 0;
thread_local std::uint64_t t_failing = 0;
const char* g_failed = "";

// Held while the book itself is changed: its own nodes are freed by this program's patched functions too.
thread_local bool t_inBook = false;
class CInBook {
public:
    CInBook() : m_lock(Book().lock) { t_inBook = true; }
    ~CInBook() { t_inBook = false; }
    CInBook(const CInBook&) = delete;
    CInBook& operator=(const CInBook&) = delete;

private:
    std::lock_guard<std::mutex> m_lock;
};

// Whether this allocation is to fail.
bool Fails(const char* function) {
    if (!t_armed) return false;
    if (++t_made != t_failing) return false;
    g_failed = function;
    return true;
}

// What stood in this program's own import table: the replacements stand there now, too.
decltype(&::free) g_free = nullptr;
decltype(&::HeapFree) g_heapFree = nullptr;
decltype(&::LocalFree) g_localFree = nullptr;

template <class Function>
void Keep(Function& function, const char* name) {
    void* const address = ImportedAddress(::GetModuleHandleW(nullptr), name);
    if (address != nullptr) function = reinterpret_cast<Function>(address);
}

template <class Block>
Block Made(Block block) {
    if (block != nullptr) {
        const CInBook held;
        Book().live.insert(block);
    }
    return block;
}

void Gone(const void* block) {
    if (block == nullptr || t_inBook) return;
    const CInBook held;
    Book().live.erase(block);
}

void* Malloc(std::size_t size) {
    if (!Fails("malloc")) return Made(std::malloc(size));
    errno = ENOMEM;
    return nullptr;
}
void* Calloc(std::size_t count, std::size_t size) {
    if (!Fails("calloc")) return Made(std::calloc(count, size));
    errno = ENOMEM;
    return nullptr;
}
void* Realloc(void* block, std::size_t size) {
    if (Fails("realloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    Gone(block);
    return Made(std::realloc(block, size));
}
char* StrDup(const char* text) {
    if (!Fails("_strdup")) return Made(::_strdup(text));
    errno = ENOMEM;
    return nullptr;
}
void* WINAPI TakeFromHeap(HANDLE heap, DWORD flags, SIZE_T size) {
    return Fails("HeapAlloc") ? nullptr : Made(::HeapAlloc(heap, flags, size));
}
BOOL Refused() {
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
}
BOOL WINAPI ToText(PSECURITY_DESCRIPTOR descriptor, DWORD revision, SECURITY_INFORMATION parts, LPSTR* text,
                   PULONG length) {
    if (Fails("ConvertSecurityDescriptorToStringSecurityDescriptorA")) return Refused();
    const BOOL done = ::ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor, revision, parts, text, length);
    if (done != FALSE) Made(*text);
    return done;
}
BOOL WINAPI ToDescriptor(LPCSTR text, DWORD revision, PSECURITY_DESCRIPTOR* descriptor, PULONG size) {
    if (Fails("ConvertStringSecurityDescriptorToSecurityDescriptorA")) return Refused();
    const BOOL done = ::ConvertStringSecurityDescriptorToSecurityDescriptorA(text, revision, descriptor, size);
    if (done != FALSE) Made(*descriptor);
    return done;
}
void Free(void* block) {
    Gone(block);
    g_free(block);
}
BOOL WINAPI GiveToHeap(HANDLE heap, DWORD flags, void* block) {
    Gone(block);
    return g_heapFree(heap, flags, block);
}
HLOCAL WINAPI GiveToLocal(HLOCAL block) {
    Gone(block);
    return g_localFree(block);
}

}  // namespace

CAllocationWatch::CAllocationWatch(HMODULE module) {
    const auto patch = [this](HMODULE where, const char* function, auto* replacement) {
        m_patches.push_back(std::make_unique<CImportPatch>(where, function, replacement, /*required=*/false));
    };
    g_free = &::free;
    g_heapFree = &::HeapFree;
    g_localFree = &::LocalFree;
    Keep(g_free, "free");
    Keep(g_heapFree, "HeapFree");
    Keep(g_localFree, "LocalFree");
    const HMODULE program = ::GetModuleHandleW(nullptr);
    for (const HMODULE where : {module, program}) {
        patch(where, "free", &Free);
        patch(where, "HeapFree", &GiveToHeap);
        patch(where, "LocalFree", &GiveToLocal);
    }
    patch(module, "malloc", &Malloc);
    patch(module, "calloc", &Calloc);
    patch(module, "realloc", &Realloc);
    patch(module, "_strdup", &StrDup);
    patch(module, "HeapAlloc", &TakeFromHeap);
    patch(module, "ConvertSecurityDescriptorToStringSecurityDescriptorA", &ToText);
    patch(module, "ConvertStringSecurityDescriptorToSecurityDescriptorA", &ToDescriptor);
}

CAllocationWatch::~CAllocationWatch() = default;

std::size_t CAllocationWatch::Live() const {
    const CInBook held;
    return Book().live.size();
}

void CAllocationWatch::Arm(std::uint64_t failing) {
    t_made = 0;
    t_failing = failing;
    g_failed = "";
    t_armed = true;
}

std::uint64_t CAllocationWatch::Disarm() {
    t_armed = false;
    return t_made;
}

std::string CAllocationWatch::Failed() {
    return g_failed;
}

DWORD KernelHandles() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

COtherThread::COtherThread()
    : m_begin(::CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      m_done(::CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      m_thread(::CreateThread(nullptr, 0, &Main, this, 0, nullptr)) {}

COtherThread::~COtherThread() {
    m_work = nullptr;
    ::SetEvent(m_begin);
    ::WaitForSingleObject(m_thread, kPatience);
    for (const HANDLE handle : {m_thread, m_begin, m_done}) ::CloseHandle(handle);
}

void COtherThread::RunRaw(const std::string& what, void (*work)(void*), void* argument) {
    m_work = work;
    m_argument = argument;
    ::SetEvent(m_begin);
    if (::WaitForSingleObject(m_done, kPatience) == WAIT_OBJECT_0) return;
    std::fprintf(stderr, "a lock was left held: %s\n", what.c_str());
    ::TerminateProcess(::GetCurrentProcess(), kChildFailed);
}

DWORD WINAPI COtherThread::Main(void* self) {
    auto& other = *static_cast<COtherThread*>(self);
    while (::WaitForSingleObject(other.m_begin, INFINITE) == WAIT_OBJECT_0 && other.m_work != nullptr) {
        other.m_work(other.m_argument);
        ::SetEvent(other.m_done);
    }
    return 0;
}

}  // namespace zd::test
