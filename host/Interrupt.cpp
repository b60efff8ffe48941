#include "Interrupt.h"

#include <windows.h>

#include <atomic>

#include "Failure.h"

namespace zd {

namespace {

std::atomic<bool> g_interrupted{false};

BOOL WINAPI OnControlEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
    // The second one ends the process: the first may wait for a call that does not come back.
    return g_interrupted.exchange(true) ? FALSE : TRUE;
}

}  // namespace

void CatchInterrupts() {
    ::SetConsoleCtrlHandler(&OnControlEvent, TRUE);
}

void CheckInterrupted() {
    if (g_interrupted) throw CFatalFailure("interrupted");
}

}  // namespace zd
