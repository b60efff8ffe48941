#include <gtest/gtest.h>
#include <stdlib.h>
#include <windows.h>

#include "Child.h"

int main(int argc, char** argv) {
    // No dialogs and no debugger: a crash ends the process with its exception code.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    ::_set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
    ::testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    return result != 0 && zd::test::InChild() ? zd::test::kChildFailed : result;
}
