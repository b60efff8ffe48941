// The entries of one listing on their way from the storage to the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "IProtocolManager.h"
#include "text/SharedString.h"

namespace zd {

// Collects entries in the order in which the storage tells them and hands them over in that of their names. Until then
// an entry takes the room of its name and not that of the host's record, and sorting moves keys of a fixed size: a
// directory may hold millions.
class CDirectoryListing {
public:
    explicit CDirectoryListing(const CUtf8String& directory);

    // Adds an entry with its status. Throws the code of a failed status.
    void Add(const char* name);

    // Hands the entries over as one block of the process heap, null for none. Once only: the entries are used up.
    void HandOver(DirectoryEntry** entries, DWORD* count);

private:
    // The fields by the names of the host's record, and the name behind them.
    struct CListed {
        std::uint64_t creationTime;
        std::uint64_t lastAccessTime;
        std::uint64_t lastWriteTime;
        std::uint64_t attributes;
        std::uint64_t size;
        std::uint32_t mode;
        std::uint32_t length;  // units

        const wchar_t* Name() const noexcept { return reinterpret_cast<const wchar_t*>(this + 1); }
        wchar_t* Name() noexcept { return reinterpret_cast<wchar_t*>(this + 1); }
    };

    // What is sorted. The first units behind what all names have in common are in the key, so that most comparisons
    // need not look at the names.
    struct CKey {
        std::uint64_t high;
        std::uint64_t low;
        CListed* entry;
        std::uint32_t order;  // of reading
        bool isFragment;
    };

    void* Take(std::size_t bytes);
    void Narrow(const CListed& entry) noexcept;
    void MakeKey(CKey& key) const noexcept;
    bool IsBefore(const CKey& first, const CKey& second) const noexcept;
    bool IsSameName(const CKey& first, const CKey& second) const noexcept;
    void Sort();
    void Fold() noexcept;

    std::string m_path;
    std::size_t m_directoryLength = 0;
    std::vector<CKey> m_keys;
    std::size_t m_common = 0;  // units that all names begin with, apart from their case
    wchar_t m_allUnits = 0;    // the bits of all names' units
    std::vector<std::unique_ptr<std::uint64_t[]>> m_blocks;
    std::uint64_t* m_free = nullptr;
    std::size_t m_freeWords = 0;
};

}  // namespace zd
