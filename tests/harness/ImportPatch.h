// Replaces a function that a loaded module imports, whatever DLL the module imports it from.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace zd::test {

// The module's calls of `function` go to `replacement` until the object dies. Only that module is affected.
//
//   static decltype(&::ReportEventA) realReport;             the replacement is a plain function
//   CImportPatch patch(environment.Plugin(), "ReportEventA", &MyReportEvent);
//   realReport = patch.Original<decltype(&::ReportEventA)>();
//
// Throws std::runtime_error where the module imports no such function, unless `required` is false.
// Threads: the swap of one entry is atomic; a call that has begun in the old function finishes there.
class CImportPatch {
public:
    template <class Function>
    CImportPatch(HMODULE module, const char* function, Function* replacement, bool required = true)
        : CImportPatch(module, function, reinterpret_cast<void*>(replacement), required) {}
    CImportPatch(HMODULE module, const char* function, void* replacement, bool required);
    ~CImportPatch();
    CImportPatch(const CImportPatch&) = delete;
    CImportPatch& operator=(const CImportPatch&) = delete;

    template <class Function>
    Function Original() const {
        return reinterpret_cast<Function>(m_original);
    }
    bool Active() const { return !m_entries.empty(); }

private:
    std::vector<void**> m_entries;
    void* m_original = nullptr;
};

// The address that a module's import of `function` leads to now; null where it imports none.
void* ImportedAddress(HMODULE module, const char* function);

// The names of the DLLs that a module imports from, and of the functions it exports.
std::vector<std::string> ImportedLibraries(HMODULE module);
std::vector<std::string> ExportedNames(HMODULE module);

}  // namespace zd::test
