#include <gtest/gtest.h>
#include <stdlib.h>
#include <windows.h>

#include <cstdio>

#include "Child.h"

namespace {

// Left to itself Wine starts its debugger whatever the error mode says, and the crashed process may end with 0.
LONG WINAPI EndWithTheCode(EXCEPTION_POINTERS* pointers) {
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    std::fprintf(stderr, "unhandled exception 0x%08lx at %p\n", record.ExceptionCode, record.ExceptionAddress);
    ::TerminateProcess(::GetCurrentProcess(), record.ExceptionCode);
    return EXCEPTION_CONTINUE_SEARCH;
}

}  // namespace

int main(int argc, char** argv) {
    // No dialogs and no debugger: a crash ends the process with its exception code.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    ::SetUnhandledExceptionFilter(&EndWithTheCode);
    ::_set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    return result != 0 && zd::test::InChild() ? zd::test::kChildFailed : result;
}
