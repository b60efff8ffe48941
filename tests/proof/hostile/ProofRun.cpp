#include "ProofRun.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "harness/GuardAllocator.h"

namespace zd::test {

namespace {

constexpr std::size_t kLongestNotes = 16384;
constexpr std::size_t kMostRuns = 400;
constexpr char kNoCase[] = "no case";
constexpr UINT kHangs = 78;  // exit code

// Fixed memory: it is read while the process is going down.
struct Current {
    std::mutex lock;
    std::atomic<const char*> name = kNoCase;
    std::atomic<std::uint64_t> number = 0;
    std::size_t used = 0;
    char notes[kLongestNotes] = {};
};

Current& TheCurrent() {
    static Current* const current = new Current();
    return *current;
}

void Begin(const char* name, std::uint64_t number) {
    Current& current = TheCurrent();
    const std::lock_guard<std::mutex> held(current.lock);
    current.name = name;
    current.number = number;
    current.used = 0;
    current.notes[0] = '\0';
}

std::uint64_t Setting(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr || *text == '\0' ? otherwise : std::strtoull(text, nullptr, 0);
}

std::uint64_t SeedOf(const char* name, std::uint64_t number) {
    std::uint64_t seed = ProofSeed() * 0x100000001B3 + number;
    for (; *name != '\0'; ++name) seed = (seed ^ static_cast<unsigned char>(*name)) * 0x100000001B3;
    return CRandom(seed).Next();
}

template <class Unit>
std::string ShownUnits(const std::basic_string<Unit>& text) {
    constexpr int kDigits = 2 * sizeof(Unit);
    std::string shown = std::to_string(text.size()) + " units:";
    std::size_t runs = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (++runs > kMostRuns) return shown + " ...";
        std::size_t same = 1;
        while (i + same < text.size() && text[i + same] == text[i]) ++same;
        char unit[40];
        std::snprintf(unit, sizeof unit, " %0*x", kDigits, static_cast<unsigned>(std::make_unsigned_t<Unit>(text[i])));
        shown += unit;
        if (same > 1) shown.append(1, '*').append(std::to_string(same));
        i += same;
    }
    return shown;
}

void PrintCase() {
    const Current& current = TheCurrent();
    std::fprintf(stderr, "case %llu of %s, ZD_PROOF_SEED=%llu ZD_PROOF_FIRST=%llu\n%s", current.number.load(),
                 current.name.load(), ProofSeed(), current.number.load(), current.notes);
    std::fflush(stderr);
}

LONG WINAPI TellAndEnd(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    std::fprintf(stderr, "FAULT 0x%08lx at %p\n", record.ExceptionCode, record.ExceptionAddress);
    if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record.NumberParameters >= 2) {
        const auto* const address = reinterpret_cast<const void*>(record.ExceptionInformation[1]);
        std::fprintf(stderr, "%s %p: %s\n", record.ExceptionInformation[0] == 0 ? "reading" : "writing", address,
                     CGuardAllocator::Describe(address).c_str());
    }
    const auto* const plugin = reinterpret_cast<const char*>(::GetModuleHandleW(L"ZdvfsProtocol.dll"));
    const auto* const at = static_cast<const char*>(record.ExceptionAddress);
    std::fprintf(stderr, "ZdvfsProtocol.dll stands at %p, the fault at %+lld from there\n",
                 static_cast<const void*>(plugin), at - plugin);
    PrintCase();
    ::TerminateProcess(::GetCurrentProcess(), record.ExceptionCode);
    return EXCEPTION_CONTINUE_SEARCH;
}

// Ends the process when one case lasts too long.
DWORD WINAPI Watch(void*) {
    constexpr DWORD kLongestCase = 45000;  // milliseconds
    const Current& current = TheCurrent();
    for (;;) {
        const std::uint64_t number = current.number;
        const char* const name = current.name;
        ::Sleep(kLongestCase);
        if (name == kNoCase || number != current.number || name != current.name) continue;
        EndWithCase("HANGS");
    }
}

}  // namespace

std::uint64_t ProofSeed() {
    return Setting("ZD_PROOF_SEED", 1);
}

std::uint64_t ProofBudget(std::uint64_t count) {
    const char* const text = std::getenv("ZD_PROOF_BUDGET");
    const double factor = text == nullptr || *text == '\0' ? 1.0 : std::strtod(text, nullptr);
    const double scaled = static_cast<double>(count) * factor;
    return scaled < 1 ? 1 : static_cast<std::uint64_t>(scaled);
}

void ForEachCase(const char* name, std::uint64_t count, const std::function<void(CRandom&)>& body) {
    const std::uint64_t last = ProofBudget(count);
    const std::uint64_t first = Setting("ZD_PROOF_FIRST", 0);
    for (std::uint64_t number = first; number < last; ++number) {
        Begin(name, number);
        CRandom random(SeedOf(name, number));
        body(random);
        if (::testing::Test::HasFailure()) {
            std::printf("%s", CurrentCase().c_str());
            return;
        }
    }
    TheCurrent().name = kNoCase;
    std::printf("%s: %llu cases, seed %llu\n", name, last - first, ProofSeed());
}

void Note(const char* format, ...) {
    Current& current = TheCurrent();
    const std::lock_guard<std::mutex> held(current.lock);
    const std::size_t room = kLongestNotes - current.used;
    if (room < 2) return;
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vsnprintf(current.notes + current.used, room - 1, format, arguments);
    va_end(arguments);
    if (written < 0) return;
    current.used += std::min(static_cast<std::size_t>(written), room - 2);
    current.notes[current.used++] = '\n';
    current.notes[current.used] = '\0';
}

std::string CurrentCase() {
    Current& current = TheCurrent();
    const std::lock_guard<std::mutex> held(current.lock);
    std::string text("case ");
    text.append(std::to_string(current.number.load())).append(" of ").append(current.name.load());
    text.append(", ZD_PROOF_SEED=").append(std::to_string(ProofSeed()));
    text.append(" ZD_PROOF_FIRST=").append(std::to_string(current.number.load()));
    return text.append(1, '\n').append(current.notes);
}

void EndWithCase(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    PrintCase();
    ::TerminateProcess(::GetCurrentProcess(), kHangs);
    std::abort();
}

std::string Shown(const std::wstring& text) {
    return ShownUnits(text);
}

std::string Shown(const std::string& bytes) {
    return ShownUnits(bytes);
}

void PrintCaseOnFault() {
    ::SetUnhandledExceptionFilter(&TellAndEnd);
    ::CloseHandle(::CreateThread(nullptr, 0, &Watch, nullptr, 0, nullptr));
}

}  // namespace zd::test
