#include "trace/ImportTable.h"

#include <cstdint>

#include "text/Failure.h"

namespace zd::host {

namespace {

// Offsets in a module's headers count from where it is loaded.
template <class Target>
Target* InModule(HMODULE module, std::uintptr_t offset) {
    return reinterpret_cast<Target*>(reinterpret_cast<std::uintptr_t>(module) + offset);
}

const IMAGE_IMPORT_DESCRIPTOR* FirstLibrary(HMODULE module) {
    const auto offset = static_cast<std::uintptr_t>(InModule<IMAGE_DOS_HEADER>(module, 0)->e_lfanew);
    const auto& optional = InModule<IMAGE_NT_HEADERS64>(module, offset)->OptionalHeader;
    const DWORD imports = optional.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    return imports == 0 ? nullptr : InModule<IMAGE_IMPORT_DESCRIPTOR>(module, imports);
}

bool WriteSlot(void** slot, void* address) noexcept {
    DWORD before = 0;
    if (::VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &before) == FALSE) return false;
    ::InterlockedExchangePointer(slot, address);
    ::VirtualProtect(slot, sizeof(*slot), before, &before);
    return true;
}

}  // namespace

void CImportTable::Replace(HMODULE module, const Choice& choose) {
    for (const auto* from = FirstLibrary(module); from != nullptr && from->Name != 0; ++from) {
        if (from->OriginalFirstThunk == 0) continue;  // the names are gone
        const std::string_view library = InModule<const char>(module, from->Name);
        const auto* const names = InModule<const IMAGE_THUNK_DATA64>(module, from->OriginalFirstThunk);
        auto* const slots = InModule<void*>(module, from->FirstThunk);
        for (std::size_t i = 0; names[i].u1.AddressOfData != 0; ++i) {
            if (IMAGE_SNAP_BY_ORDINAL64(names[i].u1.Ordinal)) continue;
            const auto* const entry = InModule<const IMAGE_IMPORT_BY_NAME>(module, names[i].u1.AddressOfData);
            const Replacement chosen = choose(library, reinterpret_cast<const char*>(entry->Name));
            if (chosen.function == nullptr) continue;
            m_replaced.push_back(Replaced{&slots[i], slots[i]});
            *chosen.original = slots[i];
            if (!WriteSlot(&slots[i], chosen.function)) {
                const DWORD code = ::GetLastError();
                Restore();
                throw CFatalFailure(DescribeFailure("tracing the plug-in's calls", code, L""));
            }
        }
    }
}

void CImportTable::Restore() noexcept {
    for (const Replaced& replaced : m_replaced) WriteSlot(replaced.slot, replaced.original);
    m_replaced.clear();
}

}  // namespace zd::host
