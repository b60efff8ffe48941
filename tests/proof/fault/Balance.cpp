#include "Balance.h"

#include <sddl.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_set>

#include "harness/Child.h"

namespace zd::test {

namespace {

constexpr DWORD kPatience = 60000;  // milliseconds until a lock counts as left held

// Threads that are just beginning or ending come by here. So neither the lock nor what belongs to a thread may be of
// the kind that takes and frees memory for each thread.
struct CBook {
    CBook() { ::InitializeCriticalSection(&lock); }

    CRITICAL_SECTION lock{};
    std::atomic<DWORD> holder{0};
    std::unordered_set<const void*> live;
};

CBook& Book() {
    static CBook* const book = new CBook;
    return *book;
}

// The counting of a thread that is armed.
struct CArmed {
    std::uint64_t made;
    std::uint64_t failing;
};

DWORD ArmedSlot() {
    static const DWORD slot = ::TlsAlloc();
    return slot;
}

CArmed* Armed() {
    const DWORD lastError = ::GetLastError();
    auto* const armed = static_cast<CArmed*>(::TlsGetValue(ArmedSlot()));
    ::SetLastError(lastError);
    return armed;
}

std::atomic<const char*> g_failed = nullptr;

// While the book itself is changed its own nodes are freed by this program's patched functions, too.
class CInBook {
public:
    CInBook() {
        ::EnterCriticalSection(&Book().lock);
        Book().holder = ::GetCurrentThreadId();
    }
    ~CInBook() {
        Book().holder = 0;
        ::LeaveCriticalSection(&Book().lock);
    }
    CInBook(const CInBook&) = delete;
    CInBook& operator=(const CInBook&) = delete;
};

// Whether this allocation is to fail.
bool Fails(const char* function) {
    CArmed* const armed = Armed();
    if (armed == nullptr) return false;
    if (++armed->made != armed->failing && armed->failing != CAllocationWatch::kEach) return false;
    const char* none = nullptr;
    g_failed.compare_exchange_strong(none, function);
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
    if (block == nullptr || Book().holder == ::GetCurrentThreadId()) return;
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
    g_failed = nullptr;
    ::TlsSetValue(ArmedSlot(), std::make_unique<CArmed>(CArmed{0, failing}).release());
}

std::uint64_t CAllocationWatch::Disarm() {
    const std::unique_ptr<CArmed> armed(Armed());
    const DWORD lastError = ::GetLastError();
    ::TlsSetValue(ArmedSlot(), nullptr);
    ::SetLastError(lastError);
    return armed != nullptr ? armed->made : 0;
}

std::string CAllocationWatch::Failed() {
    const char* const failed = g_failed;
    return failed != nullptr ? failed : "";
}

DWORD KernelHandles() {
    DWORD count = 0;
    ::GetProcessHandleCount(::GetCurrentProcess(), &count);
    return count;
}

namespace {

void ExpectEnd(HANDLE awaited, const std::string& what) {
    if (::WaitForSingleObject(awaited, kPatience) == WAIT_OBJECT_0) return;
    std::fprintf(stderr, "does not come back, a lock may be left held: %s\n", what.c_str());
    ::TerminateProcess(::GetCurrentProcess(), kChildFailed);
}

struct CWork {
    void (*work)(void*);
    void* argument;

    static DWORD WINAPI Do(void* self) {
        const auto& work = *static_cast<CWork*>(self);
        work.work(work.argument);
        return 0;
    }
};

}  // namespace

void RunOnFreshThread(const std::string& what, void (*work)(void*), void* argument) {
    CWork all{work, argument};
    const HANDLE thread = ::CreateThread(nullptr, 0, &CWork::Do, &all, 0, nullptr);
    ExpectEnd(thread, what);
    ::CloseHandle(thread);
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
    ExpectEnd(m_done, what);
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
