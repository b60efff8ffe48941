// The pools that this process has mounted.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Pool.h"

namespace zd::engine {

class CMountTable {
public:
    // Mounts once more. Throws ENOENT where the pool does not exist and is not to be made.
    void Mount(const ZdvfsMountBlock& block);

    // Takes one mount back; the pool stays until its last one, and for descriptors still open. Throws ENOENT.
    void Unmount(const char* poolName);

    // Null where no pool of that name is mounted.
    std::shared_ptr<CPool> Find(const std::string& name) const;

    std::vector<std::string> Names() const;

private:
    struct Entry {
        std::shared_ptr<CPool> pool;
        unsigned mounts = 0;
    };

    mutable std::mutex m_lock;  // guards m_pools
    std::map<std::string, Entry> m_pools;
};

CMountTable& MountTable();

}  // namespace zd::engine
