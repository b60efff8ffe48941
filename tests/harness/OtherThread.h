// A lock that an operation left held stops the next thread for ever: the harness asks with a thread of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "Child.h"
#include "Gate.h"

namespace zd::test {

// Expects that `operation`, which answers a code, succeeds on another thread. Ends the process where it does not come
// back.
template <class Operation>
void ExpectOtherThreadGetsThrough(Operation operation) {
    CGate used;
    DWORD code = ERROR_SUCCESS;
    std::thread user([&] {
        code = operation();
        used.Set();
    });
    if (used.Wait()) {
        user.join();
        EXPECT_EQ(DWORD{ERROR_SUCCESS}, code);
        return;
    }
    // The thread waits for ever, and so would the end of this process.
    std::fputs("a lock was left held\n", stderr);
    ::TerminateProcess(::GetCurrentProcess(), kChildFailed);
}

}  // namespace zd::test
