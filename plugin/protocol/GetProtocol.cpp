// The library's entry points: the one export, and what loading and unloading do.
#include <windows.h>

#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"

extern "C" IProtocolManager* GetProtocol(void** hostContext, CLogger* logger) {
    if (hostContext == nullptr) return nullptr;
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
