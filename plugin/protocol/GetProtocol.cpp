// The library's entry points: the one export, and what loading and unloading do.
#include <windows.h>

#include "config/ConfigState.h"
#include "files/FilesState.h"
#include "log/LogState.h"
#include "protocol/ProtocolManager.h"
#include "protocol/ProtocolState.h"

namespace zd {
namespace {

// In the order of the rooms, from the ground up.
void CreateStates() {
    g_logState.Create();
    g_configState.Create();
    g_filesState.Create();
    g_protocolState.Create();
}

void DestroyStates() noexcept {
    g_protocolState.Destroy();
    g_filesState.Destroy();
    g_configState.Destroy();
    g_logState.Destroy();
}

}  // namespace
}  // namespace zd

extern "C" IProtocolManager* GetProtocol(void** hostContext, CLogger* logger) {
    if (hostContext == nullptr) return nullptr;
    try {
        return new zd::CProtocolManager(logger);
    } catch (...) {
        return nullptr;
    }
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID processEnds) {
    if (reason == DLL_PROCESS_ATTACH) {
        try {
            zd::CreateStates();
        } catch (...) {
            return FALSE;
        }
    } else if (reason == DLL_PROCESS_DETACH && processEnds == nullptr) {
        zd::DestroyStates();
    }
    return TRUE;
}
