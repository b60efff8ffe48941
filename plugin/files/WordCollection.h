// The open-file table of a connection.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "base/Conversion.h"
#include "files/WordInfo.h"

namespace zd {

// Any thread. The names have one lock and the handles have several, so that operations on different handles do not meet
// at one. Each is held for map work only: never across a storage call, never together with another of them, never while
// a handle's lock is taken.
class WORDCollection {
public:
    WORDCollection() = default;
    virtual ~WORDCollection();
    WORDCollection(const WORDCollection&) = delete;
    WORDCollection& operator=(const WORDCollection&) = delete;

    // Enters a handle. Its record takes the descriptor or stream over when that succeeds. Throws std::bad_alloc; the
    // table is then unchanged.
    CHandleRef Register(const COpened& opened);

    // The record of a handle, null where the table does not hold it.
    CHandleRef Find(Handle handle);

    // The same, and the handle leaves the table.
    CHandleRef Take(Handle handle);

    // Takes the first handle of the table, by its value; null when it is empty. For a connection that ends: handles
    // that come meanwhile may be missed.
    CHandleRef TakeFirst();

    // Has all names translated anew: the root that stands in front of them has changed.
    void ForgetPaths() noexcept;

    // A new name with all the memory that entering it takes.
    struct CNewName {
        CNewName(const wchar_t* newName, CUtf8String storagePath)
            : name(newName), path(std::move(storagePath)), key(newName) {}
        CWideString name;
        CUtf8String path;
        std::wstring key;
    };

    // Takes a name's entry away because its object was removed for another one. Handles on it keep their record, which
    // says so from now on.
    void Displace(CFileInfo& info) noexcept;

    // Gives the record of a name its new name, and moves its entry there. An entry that stood under the new name is
    // displaced; its handles keep it. Answers 1168 where the table holds no entry of the record; the record has its new
    // name then too. `newName` is used up.
    DWORD Rename(CFileInfo& info, CNewName& newName) noexcept;

private:
    using CNames = std::map<std::wstring, CRef<CFileInfo>, CNameLess>;
    using CHandles = std::map<Handle, CHandleRef>;

    static void OnReleased(CFileInfo& info, WORDCollection& owner) noexcept;
    // The entry of the record itself, out of the table; null where it has none.
    CRef<CFileInfo> TakeEntry(CFileInfo& info) noexcept ZD_REQUIRES(m_namesLock);

    // A part of the handles. Between two of them is a cache line that nobody uses.
    struct CShard {
        CRankedLock<ELockRank::kTable> lock;
        CHandles handles ZD_GUARDED_BY(lock);
        std::byte apart[64]{};
    };
    CShard& ShardOf(Handle handle) noexcept;

    CRankedLock<ELockRank::kTable> m_namesLock;
    CNames m_names ZD_GUARDED_BY(m_namesLock);
    std::array<CShard, 16> m_shards;
};

}  // namespace zd
