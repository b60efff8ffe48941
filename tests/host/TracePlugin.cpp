// A plug-in for the tests of zdhost's trace: it makes storage calls over the recording double and writes down exactly
// what came back, so that a run with the trace and one without can be compared.
//
// "zdhost log WORD" has it run the check of that name; a connection is refused by an exception of the storage's. What
// it saw goes to the file that ZDHOST_TRACE_REPORT names.
#include <windows.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include "IProtocolManager.h"
#include "tests/double/Double.h"
#include "zdvfs.h"

namespace {

using namespace zd::test;

void Report(const std::string& line) {
    const char* const name = std::getenv("ZDHOST_TRACE_REPORT");
    FILE* const file = name != nullptr ? std::fopen(name, "ab") : nullptr;
    if (file == nullptr) return;
    std::fprintf(file, "%s\n", line.c_str());
    std::fclose(file);
}

template <class Function>
Function LookUp(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

IDoubleControl& Control() {
    static IDoubleControl* const control =
        LookUp<DoubleControlFunction>(::GetModuleHandleW(L"zdvfs.dll"), "DoubleControl")();
    return *control;
}

// The thread's errors, set to values that nobody else uses, and told after a call.
void PlantErrors() {
    errno = 99;
    ::SetLastError(4711);
}

void ReportErrors(const std::string& what) {
    const DWORD lastError = ::GetLastError();
    const int error = errno;
    Report(what + " errno " + std::to_string(error) + " last error " + std::to_string(lastError));
}

void CheckErrors() {
    ZdvfsStatRecord record{};
    Control().Add(OnCall("ZdvfsStat").OnNth(1).Fails(ENOSPC, 112));
    Control().Add(OnCall("ZdvfsStat").OnNth(2).FailsSilently());
    Control().Add(OnCall("ZdvfsStat").OnNth(3).Answers(0).WithErrno(7).WithLastError(8));
    for (int i = 0; i < 3; ++i) {
        PlantErrors();
        const int result = ::ZdvfsStat("pool/x", &record);
        ReportErrors("ZdvfsStat = " + std::to_string(result));
    }
    // The end of a listing is no failure, whatever an earlier call has left in errno.
    Control().Add(OnCall("ZdvfsReaddir").OnNth(1).Answers(0));
    Control().Add(OnCall("ZdvfsReaddir").OnNth(2).Fails(EBADF, 6));
    for (int i = 0; i < 2; ++i) {
        PlantErrors();
        const bool null = ::ZdvfsReaddir(nullptr) == nullptr;
        ReportErrors(null ? "ZdvfsReaddir = null" : "ZdvfsReaddir");
    }
}

DWORD OnConnect(void* /*self*/, const ConnectParameters* /*parameters*/) {
    Control().Add(OnCall("ZdvfsOpen").OnNth(1).Throws(EThrow::kRuntimeError));
    Control().Add(OnCall("ZdvfsOpen").OnNth(2).Throws(EThrow::kUnsignedLong, 1234));
    try {
        ::ZdvfsOpen("pool/x", 0x2, 0);
    } catch (const std::runtime_error& error) {
        Report(std::string("runtime_error ") + error.what());
    }
    try {
        ::ZdvfsOpen("pool/x", 0x2, 0);
    } catch (unsigned long code) {
        Report("unsigned long " + std::to_string(code));
    }
    Control().Add(OnCall("ZdvfsClose").Throws(EThrow::kUnsignedLong, 31));
    return static_cast<DWORD>(::ZdvfsClose(5));  // the exception goes on through the operation
}

int SendList(int request, ...) {
    va_list arguments;
    va_start(arguments, request);
    const int result = ::ZdvfsVIoctl(3, request, arguments);
    va_end(arguments);
    return result;
}

void CheckRequests() {
    Control().SetIoctlShape(77, "lilili");
    Control().Add(OnCall("ZdvfsIoctl").Answers(5));
    Control().Add(OnCall("ZdvfsVIoctl").Answers(6));
    int result = ::ZdvfsIoctl(3, 46, nullptr, 0, "vm1", 0, 32);
    result += ::ZdvfsIoctl(3, 14, 600, 4);
    result += ::ZdvfsIoctl(3, 77, 0x7FFFFFFFFFFFLL, -1, -2LL, 3, 0x123456789ALL, 6);
    result += SendList(14, 600, 4) + SendList(77, 1LL, 2, 3LL, 4, 5LL, 6);
    Report("requests = " + std::to_string(result));
    for (const Call& call : Control().Calls()) Report(call.Line());
}

void CheckThreads() {
    std::thread([] {
        ZdvfsStatRecord record{};
        ::ZdvfsStat("pool/other-thread", &record);
    }).join();
    ::ZdvfsUnlink("pool/own-thread");
}

void OnLogMessage(void* /*self*/, DWORD /*level*/, const char* message) {
    const std::string word(message, std::string(message).find('\n'));
    if (word == "errors") CheckErrors();
    if (word == "requests") CheckRequests();
    if (word == "threads") CheckThreads();
}

DWORD OnOther(void* /*self*/) {
    return 0;
}

// The object as a host sees it: a pointer to the 30 operations.
constexpr int kOperations = 30;
constexpr int kConnect = 0;
constexpr int kLogMessage = 26;
void* g_operations[kOperations];
void* g_object = g_operations;

}  // namespace

extern "C" __declspec(dllexport) IProtocolManager* GetProtocol(void** /*hostContext*/, CLogger* /*logger*/) {
    for (void*& operation : g_operations) operation = reinterpret_cast<void*>(&OnOther);
    g_operations[kConnect] = reinterpret_cast<void*>(&OnConnect);
    g_operations[kLogMessage] = reinterpret_cast<void*>(&OnLogMessage);
    return reinterpret_cast<IProtocolManager*>(&g_object);
}

extern "C" BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, void* reserved) {
    // Freed, not taken down with the process.
    if (reason == DLL_PROCESS_DETACH && reserved == nullptr) {
        const auto real = LookUp<decltype(&::ZdvfsStat)>(::GetModuleHandleW(L"zdvfs.dll"), "ZdvfsStat");
        Report(real == &::ZdvfsStat ? "its own again" : "still replaced");
    }
    return TRUE;
}
