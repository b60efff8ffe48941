#include "MountTable.h"

#include "Descriptors.h"
#include "ErrorTable.h"
#include "NameCodec.h"

namespace zd::engine {
namespace {

// Nothing tells about a failed mount but the block that asked for it.
void LogFailedMount(const ZdvfsMountBlock& block, const std::wstring& root, DWORD error) noexcept {
    try {
        if (!block.logCallback || block.logLevel < 1) return;
        const std::string line = "zdvfs: cannot mount pool " + Escape(block.poolName, IsShownText) + " under " +
                                 Narrow(root) + ": error " + std::to_string(error) + "\n";
        block.logCallback(1, line.c_str());
    } catch (...) {
        // The mount's own failure is what counts.
    }
}

}  // namespace

void CMountTable::Mount(const ZdvfsMountBlock& block) {
    const std::string name = block.poolName;
    std::wstring root;
    try {
        const std::lock_guard lock(m_lock);
        const auto found = m_pools.find(name);
        if (found != m_pools.end()) {
            found->second.pool->AddBlock(&block);
            ++found->second.mounts;
            return;
        }
        root = PoolsRoot();
        const Settings settings = ReadSettings(root);
        const std::shared_ptr<CPool> pool = CPool::Open(name, root, settings);
        Descriptors().SetLimit(settings.maximumOpenFiles);
        m_pools[name] = {pool, 1};
        pool->AddBlock(&block);
        pool->Log(6, "mounted pool " + name + " at " + Narrow(pool->Directory()));
    } catch (const EngineError& error) {
        LogFailedMount(block, root, error.windows);
        throw;
    }
}

void CMountTable::Unmount(const char* poolName) {
    const std::lock_guard lock(m_lock);
    const auto found = m_pools.find(poolName);
    if (found == m_pools.end()) Fail(ERROR_FILE_NOT_FOUND);
    if (--found->second.mounts == 0) found->second.pool->Log(6, "unmounted pool " + found->first);
    found->second.pool->RemoveBlock(poolName);
    if (found->second.mounts == 0) m_pools.erase(found);
}

std::shared_ptr<CPool> CMountTable::Find(const std::string& name) const {
    const std::lock_guard lock(m_lock);
    const auto found = m_pools.find(name);
    return found == m_pools.end() ? nullptr : found->second.pool;
}

std::vector<std::string> CMountTable::Names() const {
    const std::lock_guard lock(m_lock);
    std::vector<std::string> names;
    for (const auto& [name, entry] : m_pools) names.push_back(name);
    return names;
}

CMountTable& MountTable() {
    static CMountTable table;
    return table;
}

}  // namespace zd::engine
