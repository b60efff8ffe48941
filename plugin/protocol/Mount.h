// What a connection has mounted: the block that is handed to the storage library, the root of the pool, and the name
// under which the process knows it.
//
// Connecting and disconnecting hold the lock. The root's path is read by operations, over which hosts do neither.
#pragma once

#include <string>

#include "base/Locks.h"
#include "base/SharedString.h"
#include "files/OpenFiles.h"
#include "protocol/MountBlock.h"
#include "zdvfs.h"

namespace zd {

class CMount {
public:
    // `formerMaker`: which registry tree the connection goes by.
    explicit CMount(bool formerMaker);
    ~CMount() { FreeWords(m_block); }
    CMount(const CMount&) = delete;
    CMount& operator=(const CMount&) = delete;

    CRankedLock<ELockRank::kObject>& Lock() noexcept ZD_RETURNS_LOCK(m_lock) { return m_lock; }

    bool IsFormerMaker() const noexcept { return m_isFormerMaker; }
    bool IsConnected() const noexcept { return m_block.poolName != nullptr; }

    // The pool's path in UTF-8, "/" before the first connect.
    const CUtf8String& RootPath() const noexcept { return m_rootPath; }

    // What the storage library is told. Its address stays from mount to unmount.
    ZdvfsMountBlock& Block() noexcept { return m_block; }

    // Mounts the pool that the block names. Throws the code of the failure.
    void Mount() ZD_REQUIRES(m_lock);

    // Enters the connection among those of the process. Throws std::bad_alloc.
    void Register(const std::wstring& pool) ZD_REQUIRES(m_lock);

    // Closes what is open, unmounts and leaves the process's lists; nothing where no pool is mounted. Takes the lock.
    void Disconnect(COpenFiles& files) noexcept ZD_EXCLUDES(m_lock);

    // Takes back a connect that failed half-way, so that the object can connect again. Keeps the thread's errors.
    void Abandon(COpenFiles& files) noexcept ZD_REQUIRES(m_lock);

private:
    void Unmount() noexcept ZD_REQUIRES(m_lock);

    const bool m_isFormerMaker;
    const CUtf8String m_unconnectedPath;  // kept, so that going back to it cannot fail
    CUtf8String m_rootPath;
    ZdvfsMountBlock m_block{};
    CRankedLock<ELockRank::kObject> m_lock;
    bool m_isMounted ZD_GUARDED_BY(m_lock) = false;
    std::wstring m_mountedName ZD_GUARDED_BY(m_lock);  // as registered process-wide, empty while not connected
};

}  // namespace zd
