#include "ImportPatch.h"

#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace zd::test {

namespace {

// A loaded module's image: addresses in its tables are relative to its base.
class CImage {
public:
    explicit CImage(HMODULE module) : m_base(reinterpret_cast<std::uint8_t*>(module)) {}

    template <class T>
    T* At(std::uintptr_t offset) const {
        return reinterpret_cast<T*>(reinterpret_cast<std::uintptr_t>(m_base) + offset);
    }

    // The table of one data directory, null where the module has none.
    template <class T>
    T* Directory(int index) const {
        const auto* const dos = At<IMAGE_DOS_HEADER>(0);
        const auto* const headers = At<IMAGE_NT_HEADERS64>(static_cast<std::uintptr_t>(dos->e_lfanew));
        const IMAGE_DATA_DIRECTORY& directory = headers->OptionalHeader.DataDirectory[index];
        return directory.VirtualAddress == 0 ? nullptr : At<T>(directory.VirtualAddress);
    }

private:
    std::uint8_t* m_base;
};

// The slots of the import table that belong to a function.
std::vector<void**> FindEntries(HMODULE module, const char* function) {
    const CImage image(module);
    std::vector<void**> entries;
    const auto* library = image.Directory<IMAGE_IMPORT_DESCRIPTOR>(IMAGE_DIRECTORY_ENTRY_IMPORT);
    for (; library != nullptr && library->Name != 0; ++library) {
        if (library->OriginalFirstThunk == 0) continue;
        const auto* name = image.At<IMAGE_THUNK_DATA64>(library->OriginalFirstThunk);
        auto* slot = image.At<void*>(library->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++slot) {
            if (IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal)) continue;
            const auto* const imported = image.At<IMAGE_IMPORT_BY_NAME>(name->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(imported->Name), function) == 0) entries.push_back(slot);
        }
    }
    return entries;
}

void Store(void** slot, void* value) {
    DWORD protection = 0;
    if (::VirtualProtect(slot, sizeof(void*), PAGE_READWRITE, &protection) == FALSE) {
        throw std::runtime_error("the import table cannot be written");
    }
    ::InterlockedExchangePointer(slot, value);
    ::VirtualProtect(slot, sizeof(void*), protection, &protection);
}

}  // namespace

CImportPatch::CImportPatch(HMODULE module, const char* function, void* replacement, bool required)
    : m_entries(FindEntries(module, function)) {
    if (m_entries.empty()) {
        if (required) throw std::runtime_error(std::string("the module does not import ") + function);
        return;
    }
    m_original = *m_entries.front();
    for (void** slot : m_entries) Store(slot, replacement);
}

CImportPatch::~CImportPatch() {
    const DWORD lastError = ::GetLastError();
    for (void** slot : m_entries) Store(slot, m_original);
    ::SetLastError(lastError);
}

void* ImportedAddress(HMODULE module, const char* function) {
    const std::vector<void**> entries = FindEntries(module, function);
    return entries.empty() ? nullptr : *entries.front();
}

std::vector<std::string> ImportedLibraries(HMODULE module) {
    const CImage image(module);
    std::vector<std::string> names;
    const auto* library = image.Directory<IMAGE_IMPORT_DESCRIPTOR>(IMAGE_DIRECTORY_ENTRY_IMPORT);
    for (; library != nullptr && library->Name != 0; ++library) names.emplace_back(image.At<char>(library->Name));
    return names;
}

std::vector<std::string> ExportedNames(HMODULE module) {
    const CImage image(module);
    std::vector<std::string> names;
    const auto* const exports = image.Directory<IMAGE_EXPORT_DIRECTORY>(IMAGE_DIRECTORY_ENTRY_EXPORT);
    if (exports == nullptr) return names;
    const auto* const offsets = image.At<DWORD>(exports->AddressOfNames);
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) names.emplace_back(image.At<char>(offsets[i]));
    return names;
}

}  // namespace zd::test
