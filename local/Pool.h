// One pool: a directory under the root, with the engine's own folder "%pool" in it.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Settings.h"
#include "WinFile.h"
#include "zdvfs.h"

namespace zd::engine {

class CPool {
public:
    // Opens the pool, or makes it where the settings say so. Clears what earlier processes left behind.
    static std::shared_ptr<CPool> Open(const std::string& name, const std::wstring& root, const Settings& settings);

    CPool(std::string name, std::wstring directory, bool durable);
    CPool(const CPool&) = delete;
    CPool& operator=(const CPool&) = delete;

    const std::string& Name() const { return m_name; }
    const std::wstring& Directory() const { return m_directory; }
    // The directory as the system spells the paths of open files below it.
    const std::wstring& FinalDirectory() const { return m_finalDirectory; }
    bool IsDurable() const { return m_durable; }

    // Paths of the engine's own files: the root's metadata, the request log, and fresh names on the pool's volume.
    std::wstring RootSidecar() const { return m_engineFolder + L"\\root"; }
    std::wstring RequestFile() const { return m_engineFolder + L"\\requests"; }
    std::wstring NewAside() const { return m_engineFolder + L"\\tmp\\" + FreshName(); }
    std::wstring NewTrash() const { return m_engineFolder + L"\\trash\\" + FreshName(); }

    // The blocks of the pool's mounts, of which the first live one receives the engine's log lines.
    void AddBlock(const ZdvfsMountBlock* block);
    // `poolName` is the pointer that the unmounting caller gave: it tells the block among several.
    void RemoveBlock(const char* poolName);
    void Log(std::uint32_t level, const std::string& message) const noexcept;

private:
    friend class CPoolLock;

    static std::wstring FreshName();
    void ClearLeftovers() const;

    struct Block {
        const ZdvfsMountBlock* block;
        const char* poolName;
    };

    const std::string m_name;
    const std::wstring m_directory;
    const std::wstring m_engineFolder;
    const bool m_durable;
    std::wstring m_finalDirectory;
    CUniqueHandle m_mutex;
    mutable std::recursive_mutex m_blocksLock;  // guards m_blocks, and is held while a callback runs
    std::vector<Block> m_blocks;
};

// Holds a pool's names and metadata still, against all threads and processes. Does nothing for a null pool.
class CPoolLock {
public:
    [[nodiscard]] explicit CPoolLock(const CPool* pool);
    CPoolLock(const CPoolLock&) = delete;
    CPoolLock& operator=(const CPoolLock&) = delete;
    ~CPoolLock();

private:
    HANDLE m_mutex = nullptr;
};

}  // namespace zd::engine
