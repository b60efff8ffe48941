#include "text/Interrupt.h"

#include <windows.h>

#include <atomic>

#include "text/Failure.h"

namespace zd::host {

namespace {

std::atomic<bool> g_interrupted{false};
std::atomic<bool> g_prompting{false};

BOOL WINAPI OnControlEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
    // The console itself gives up the line that is being typed; Ctrl-Break ends the process there.
    if (g_prompting) return event == CTRL_C_EVENT ? TRUE : FALSE;
    // The second one ends the process: the first may wait for a call that does not come back.
    return g_interrupted.exchange(true) ? FALSE : TRUE;
}

}  // namespace

void CatchInterrupts() {
    ::SetConsoleCtrlHandler(&OnControlEvent, TRUE);
}

void CheckInterrupted() {
    if (g_interrupted) throw CInterrupted();
}

CPrompting::CPrompting() {
    g_prompting = true;
}

CPrompting::~CPrompting() {
    g_interrupted = false;
    g_prompting = false;
}

}  // namespace zd::host
