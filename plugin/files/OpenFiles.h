// The open files of one connection: the table of handles, and how the storage is reached through a handle.
//
// Threads. Operations of any threads call these at the same time; each holds the lock of the handle's record for its
// whole work on the handle, as the annotations say. Inside, a name's use lock is taken over whatever reaches an object
// by its name, and the table's locks for map work alone. SetRoot and SetFragmentLimit are for connecting and
// disconnecting, over which hosts start no other operation.
#pragma once

#include <cstdint>

#include "base/SharedString.h"
#include "files/WordCollection.h"
#include "ZdvfsSettings.h"

namespace zd {

// A descriptor as ReOpenFile and GetFragmentFileHandle answer it.
struct COpenedFragment {
    std::int64_t descriptor;  // -1: not open
    int error;                // the failed open's errno
};

class COpenFiles {
public:
    COpenFiles();
    COpenFiles(const COpenFiles&) = delete;
    COpenFiles& operator=(const COpenFiles&) = delete;

    // What stands in front of every name: the pool's name, "/" before the first connect and after one that failed.
    // Paths made with another root are forgotten.
    void SetRoot(CWideString root) noexcept;
    void ForgetRoot() noexcept { SetRoot(m_unconnectedRoot); }
    const CWideString& Root() const noexcept { return m_root; }

    // How many fragments of a handle are open at once.
    void SetFragmentLimit(std::int32_t limit) noexcept { m_fragmentLimit = limit; }

    WORDCollection& Table() noexcept { return m_table; }

    // The record of a handle. Throws 6 where the table does not hold it.
    CHandleRef FindHandle(Handle handle);

    // The storage path of a host name. Throws 2 where it does not convert.
    CUtf8String Translate(const wchar_t* name) const;

    // The storage path of a handle's fragment. A name is translated once, for all handles on it.
    CUtf8String TranslateFragment(const WORDInfo& record, std::int32_t fragment) const;

    // The descriptor of fragment `index`, opened on demand; the fragment used longest ago is closed where the handle
    // has its maximum open, but never the fragment `keep`. Throws 87 for an index outside the vector, 2 after the file
    // was deleted through the handle, the code of a victim's failed close.
    COpenedFragment GetFragmentFileHandle(WORDInfo& record, std::int32_t index, std::int32_t keep = -1)
        ZD_REQUIRES(record.Lock());

    // Adds fragment `index` where the vector does not hold it, after filling the one before it up to the fragment
    // size, and answers its descriptor; a fragment that was added but not opened is taken back. Throws the code of a
    // failed open. `added` tells whether the fragment is new.
    COpenedFragment OpenForWriting(WORDInfo& record, std::int32_t index, bool& added, std::int32_t keep = -1)
        ZD_REQUIRES(record.Lock());

    // Looks for the fragments that stand behind fragment 0, or removes them. Takes the record's lock. Answers the
    // file's total size.
    std::int64_t DiscoverFragments(WORDInfo& record, bool truncate, std::int64_t firstSize);

    // Closes a record's descriptors or stream, and removes the file where `deleteFlag` is not 0. Takes the record's
    // lock. Answers the last close's result, -1 for none. Throws the code of a failed removal.
    std::int32_t CloseFileHandle(WORDInfo& record, DWORD deleteFlag) ZD_EXCLUDES(record.Lock());

    // Takes every handle out of the table, in the order of their values, and closes it.
    void CloseAll() noexcept;

private:
    // Opens fragment `index` by name with the storage flags and sets its segment sizes.
    COpenedFragment ReOpenFile(const WORDInfo& record, std::int32_t index, std::uint32_t flags,
                               std::int32_t segmentSize) ZD_REQUIRES(record.FileInfo().UseLock());

    // Extends fragment `index` to the fragment size, so that what lies behind it keeps its offsets. Answers its
    // descriptor, -1 where it could not be opened. Throws the code of a failed truncation.
    COpenedFragment FillFragment(WORDInfo& record, std::int32_t index, std::int32_t keep) ZD_REQUIRES(record.Lock());

    // Closes the fragment used longest ago where the handle has its maximum open.
    void MakeRoom(WORDInfo& record, std::int32_t index, std::int32_t keep) ZD_REQUIRES(record.Lock());

    WORDCollection m_table;
    const CWideString m_unconnectedRoot;  // kept, so that going back to it cannot fail
    CWideString m_root;
    std::int32_t m_fragmentLimit = zdvfs::settings::kMaxOpenFragments.Standard<std::int32_t>();
};

}  // namespace zd
