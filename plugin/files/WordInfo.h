// The records of open names and open handles.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <string_view>
#include <vector>

#include "base/CountedRef.h"
#include "base/Locks.h"
#include "base/SharedString.h"
#include "IProtocolManager.h"
#include "zdvfs.h"

namespace zd {

class WORDCollection;

// The storage open flags that mean writing or direct I/O, and those that a reopening must not repeat.
constexpr std::uint32_t kWritingFlags = kZdvfsWriteOnly | kZdvfsReadWrite;
constexpr std::uint32_t kCountedFlags = kWritingFlags | kZdvfsDirectIo;
constexpr std::uint32_t kOpeningFlags = kZdvfsCreate | kZdvfsTruncate | kZdvfsExclusive;

// One per distinct open name, shared by the handles on it.
class CFileInfo final : public CCounted {
public:
    using ReleaseCallback = void (*)(CFileInfo& info, WORDCollection& owner) noexcept;

    // `path`: the name's storage path where it is known already, else empty.
    CFileInfo(CWideString name, CUtf8String path, WORDCollection& owner, ReleaseCallback released) noexcept
        : m_names{std::move(name), std::move(path)}, m_owner(owner), m_released(released) {}

    // The name as the host gave it. A rename replaces it while other handles read it, so it has a lock of its own.
    CWideString Name() const;
    void SetName(CWideString name, CUtf8String path);

    // The name and its storage path, which is empty until it is remembered.
    struct CNames {
        CWideString name;
        CUtf8String path;
    };
    CNames Names() const;
    void RememberPath(const CNames& names);
    void ForgetPath() noexcept;

    // Held while an object is reached by the name, and while a rename changes object and name together: a fragment
    // opened between the two would come up empty under the old name.
    CRankedLock<ELockRank::kNameUse>& UseLock() noexcept ZD_RETURNS_LOCK(m_useLock) { return m_useLock; }

    // Says that what the record stands for was replaced: its name means another object now.
    void MarkReplaced() noexcept { m_isReplaced.store(true, std::memory_order_release); }
    // A rename has just reached the object, so the record stands for it.
    void MarkReached() noexcept { m_isReplaced.store(false, std::memory_order_release); }
    bool IsReplaced() const noexcept { return m_isReplaced.load(std::memory_order_acquire); }

    // Handles that refer to the name; lowered to 0, the table is told. Any thread.
    void AddOpen() noexcept { m_openCount.fetch_add(1, std::memory_order_acq_rel); }
    void RemoveOpen() noexcept;
    std::int32_t OpenCount() const noexcept { return m_openCount.load(std::memory_order_acquire); }

private:
    ~CFileInfo() override = default;

    CRankedLock<ELockRank::kNameUse> m_useLock;
    mutable CRankedLock<ELockRank::kName> m_nameLock;
    CNames m_names ZD_GUARDED_BY(m_nameLock);
    std::atomic<std::int32_t> m_openCount{0};
    std::atomic<bool> m_isReplaced{false};
    WORDCollection& m_owner;
    const ReleaseCallback m_released;
};

// One fragment of an open file.
struct CFragment {
    std::int32_t number = 0;       // 0 for the file itself
    std::int64_t descriptor = -1;  // -1: not open
    std::int64_t size = 0;         // bytes, as last known
    std::int64_t lastUse = -1;     // stamp of the use clock, -1: never
    // While it is open, its neighbours among the open fragments in the order of their use; -1: none.
    std::int32_t older = -1;
    std::int32_t newer = -1;
};

// What a handle is registered with.
struct COpened {
    std::wstring_view name;
    CUtf8String path;           // the name's storage path where it is known, else empty
    int descriptor;             // -1 for a directory
    ZdvfsDirectory* directory;  // null for a file
    bool isDirectory;
    std::uint32_t flags;
    std::int64_t fragmentSize;
    std::int32_t segmentSize;
    bool isCounted;  // the process's count of writing handles was raised for it
};

// One per open handle. Everything but the lock, the name and the kind is guarded by the lock, which an operation holds
// for its whole work on the handle.
class WORDInfo final : public CCounted {
public:
    // Takes the descriptor or stream over, as the last thing it does. Throws std::bad_alloc; nothing is taken over
    // then.
    WORDInfo(CRef<CFileInfo> info, const COpened& opened);

    CRankedLock<ELockRank::kHandle>& Lock() noexcept ZD_RETURNS_LOCK(m_lock) { return m_lock; }
    Handle Value() const noexcept { return reinterpret_cast<Handle>(this); }

    // Fragment accessors. Each throws 87 for an index outside the vector.
    std::int32_t FragmentCount() const noexcept ZD_REQUIRES(m_lock) {
        return static_cast<std::int32_t>(m_fragments.size());
    }
    std::int64_t Descriptor(std::int32_t index) const ZD_REQUIRES(m_lock) { return At(index).descriptor; }
    void SetDescriptor(std::int64_t descriptor, std::int32_t index) ZD_REQUIRES(m_lock);
    void SetLastUse(std::int32_t index, std::int64_t stamp) ZD_REQUIRES(m_lock);
    std::int64_t FragmentLength(std::int32_t index) const ZD_REQUIRES(m_lock) { return At(index).size; }
    void SetSize(std::int64_t size, std::int32_t index, bool onlyIfLarger) ZD_REQUIRES(m_lock);
    std::int64_t TotalSize() const noexcept ZD_REQUIRES(m_lock);

    // Whether it is the open fragment that was used last.
    bool IsNewest(std::int32_t index) const noexcept ZD_REQUIRES(m_lock) { return index == m_newest; }

    // How many fragments are open.
    std::int32_t OpenFragments() const noexcept ZD_REQUIRES(m_lock) { return m_openFragments; }

    // The open fragment that was used longest ago, of those with the same stamp the first; never `keep`. -1 for none.
    std::int32_t LeastRecentlyUsed(std::int32_t keep) const noexcept ZD_REQUIRES(m_lock);

    // Appends a fragment; throws 87 where `index` is greater than the count.
    void AddFragment(std::int64_t descriptor, std::int32_t index, std::int64_t size) ZD_REQUIRES(m_lock);

    // Pops the last fragment and closes its descriptor; nothing on an empty vector.
    void RemoveLastFragment() noexcept ZD_REQUIRES(m_lock);

    CWideString Name() const { return m_fileInfo->Name(); }
    CFileInfo& FileInfo() const noexcept { return *m_fileInfo; }

    // Whether the file was removed through this handle: nothing of it is used or brought back by its name then.
    bool IsDeleted() const noexcept ZD_REQUIRES(m_lock) { return m_removed > 0; }

    // Throws 2 where the name no longer leads to what was opened: it was removed through this handle, or replaced.
    void RequireName() const ZD_REQUIRES(m_lock);

    // Throws 5 for a directory, which has no data, and 2 after a removal.
    void RequireData() const ZD_REQUIRES(m_lock);

    // Lowers the process's count of writing handles, once, where it was raised for this handle.
    bool DropCount(std::int32_t& newCount) noexcept ZD_REQUIRES(m_lock);

    const bool m_isDir;
    std::uint32_t m_OpenFlags ZD_GUARDED_BY(m_lock);   // without kOpeningFlags
    std::int32_t m_segmentSize ZD_GUARDED_BY(m_lock);  // bytes, for each further fragment; 0 or less: none
    ZdvfsDirectory* m_DirPtr ZD_GUARDED_BY(m_lock);
    std::int32_t m_lastWritten ZD_GUARDED_BY(m_lock) = 0;  // fragment at which the last write or append ended
    std::int64_t m_fragmentSize ZD_GUARDED_BY(m_lock);     // bytes, above 0
    std::int32_t m_removed ZD_GUARDED_BY(m_lock) = 0;      // fragments removed through this handle

private:
    ~WORDInfo() override;

    // Throws 87 for an index outside the vector.
    std::size_t Place(std::int32_t index) const ZD_REQUIRES(m_lock);
    CFragment& At(std::int32_t index) ZD_REQUIRES(m_lock) { return m_fragments[Place(index)]; }
    const CFragment& At(std::int32_t index) const ZD_REQUIRES(m_lock) { return m_fragments[Place(index)]; }
    CFragment& Known(std::int32_t index) noexcept ZD_REQUIRES(m_lock) {
        return m_fragments[static_cast<std::size_t>(index)];
    }
    const CFragment& Known(std::int32_t index) const noexcept ZD_REQUIRES(m_lock) {
        return m_fragments[static_cast<std::size_t>(index)];
    }
    bool IsUsedBefore(std::int32_t first, std::int32_t second) const noexcept ZD_REQUIRES(m_lock);
    void Link(std::int32_t index) noexcept ZD_REQUIRES(m_lock);
    void Unlink(std::int32_t index) noexcept ZD_REQUIRES(m_lock);

    CRankedLock<ELockRank::kHandle> m_lock;
    const CRef<CFileInfo> m_fileInfo;
    bool m_isCounted ZD_GUARDED_BY(m_lock);
    std::vector<CFragment> m_fragments ZD_GUARDED_BY(m_lock);
    // The open fragments by their use, so that finding the one to close does not depend on how many the file has.
    std::int32_t m_oldest ZD_GUARDED_BY(m_lock) = -1;
    std::int32_t m_newest ZD_GUARDED_BY(m_lock) = -1;
    std::int32_t m_openFragments ZD_GUARDED_BY(m_lock) = 0;
};

using CHandleRef = CRef<WORDInfo>;

}  // namespace zd
