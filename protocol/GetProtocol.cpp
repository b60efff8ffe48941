// The library's entry points: the one export, and what loading and unloading do.
#include <windows.h>

#include "protocol/Errors.h"
#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"

namespace {

// The first exception of a module sets up state in its runtime, which clears the thread's last error. An operation may
// have to report that error from its handler, so the first one is spent here.
void SpendFirstException() noexcept {
    try {
        zd::ThrowWin32(ERROR_SUCCESS);
    } catch (DWORD) {
        // Nothing failed.
    }
}

}  // namespace

extern "C" IProtocolManager* GetProtocol(void** hostContext, CLogger* logger) {
    if (hostContext == nullptr) return nullptr;
    static const bool spent = (SpendFirstException(), true);
    static_cast<void>(spent);
    try {
        return new zd::CProtocolManager(*hostContext, logger);
    } catch (...) {
        return nullptr;
    }
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID processEnds) {
    if (reason == DLL_PROCESS_ATTACH) {
        try {
            zd::CreateProcessState();
        } catch (...) {
            return FALSE;
        }
    } else if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) {
        zd::DestroyProcessState();
    }
    return TRUE;
}
