// Puts functions of this program in the place of functions that a loaded module imports.
#pragma once

#include <windows.h>

#include <functional>
#include <string_view>
#include <vector>

namespace zd::host {

// Only the module's own calls are affected, and only those by name. One thread.
class CImportTable {
public:
    // What stands in for an import, and where to keep the address that stood there; null leaves it alone.
    struct Replacement {
        void* function = nullptr;
        void** original = nullptr;
    };
    using Choice = std::function<Replacement(std::string_view library, std::string_view function)>;

    CImportTable() = default;
    ~CImportTable() { Restore(); }
    CImportTable(const CImportTable&) = delete;
    CImportTable& operator=(const CImportTable&) = delete;

    // Asks `choose` for every import by name. Throws CFatalFailure where the table cannot be written; what was replaced
    // until then is put back.
    void Replace(HMODULE module, const Choice& choose);

    // Puts back what stood there. A call that has begun in a replacement ends there.
    void Restore() noexcept;

private:
    struct Replaced {
        void** slot;
        void* original;
    };
    std::vector<Replaced> m_replaced;
};

}  // namespace zd::host
