// The entries of one listing on their way from the storage to the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/SharedString.h"
#include "IProtocolManager.h"

namespace zd {

// Collects entries in the order in which the storage tells them and hands them over in that of their names. Until then
// an entry takes the room of its name and not that of the host's record, and sorting moves keys of a fixed size without
// looking at the entries: a directory may hold millions.
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
        std::uint64_t size;
        std::uint32_t attributes;
        std::uint32_t mode;
        std::uint16_t length;  // of the name, in units
        bool isFragment;

        const wchar_t* Name() const noexcept { return reinterpret_cast<const wchar_t*>(this + 1); }
        wchar_t* Name() noexcept { return reinterpret_cast<wchar_t*>(this + 1); }
        static std::size_t Bytes(std::size_t length) noexcept;
    };

    // What is sorted: some units of the name, and what decides between equal ones.
    struct CKey {
        std::uint64_t high;
        std::uint64_t low;
        CListed* entry;
        std::uint32_t order;  // of reading
        bool isFragment;
        bool isRepeated;  // it has the name of the one before it
    };
    using CKeys = std::vector<CKey>;
    static constexpr std::size_t kBytesOfKey = 17;

    // Entries one behind the other, in the order of reading.
    struct CBlock {
        std::unique_ptr<std::byte[]> bytes;
        std::size_t size;
        std::size_t used;
    };

    void* Take(std::size_t bytes);
    void MakeKeys();
    std::size_t UnitsOfKey() const noexcept { return m_isAscii ? 16 : 8; }
    void SetUnits(CKey& key, std::size_t from) const noexcept;
    static std::size_t CommonLength(CKeys::const_iterator first, CKeys::const_iterator last, std::size_t from) noexcept;
    static std::size_t ByteOf(const CKey& key, std::size_t byte) noexcept;
    void SortByBytes(std::span<CKey> keys);
    void Sort(CKeys::iterator first, CKeys::iterator last, std::size_t from);
    void Fold() noexcept;

    std::string m_path;
    std::size_t m_directoryLength = 0;
    std::vector<CBlock> m_blocks;
    std::size_t m_count = 0;
    bool m_isAscii = true;  // all names
    CKeys m_keys;
    std::unique_ptr<CKey[]> m_spare;  // as many, while many are sorted
};

}  // namespace zd
