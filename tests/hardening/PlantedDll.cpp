// A library that somebody has planted where a program may look for another one: it leaves its name when it is loaded.
// Where PLANTED_LOADS names another one, it loads that by its name alone, as a careless library does.
#include <windows.h>

#include <cstdio>

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void* /*reserved*/) {
    if (reason != DLL_PROCESS_ATTACH) return TRUE;
    wchar_t mark[MAX_PATH] = L"";
    char path[MAX_PATH] = "";
    if (::GetEnvironmentVariableW(L"PLANTED_MARK", mark, MAX_PATH) == 0) return TRUE;
    ::GetModuleFileNameA(module, path, MAX_PATH);
    if (FILE* const file = ::_wfopen(mark, L"ab")) {
        std::fprintf(file, "%s\n", path);
        std::fclose(file);
    }
    wchar_t other[MAX_PATH] = L"";
    if (::GetEnvironmentVariableW(L"PLANTED_LOADS", other, MAX_PATH) == 0) return TRUE;
    ::SetEnvironmentVariableW(L"PLANTED_LOADS", nullptr);
    ::LoadLibraryW(other);
    return TRUE;
}
