// What workers do to files, and what must be there afterwards.
#pragma once

#include <string>
#include <vector>

#include "Workers.h"

namespace zd::test {

// A file that several workers write through one handle or several: block i belongs to worker i % kWorkers, and only
// its owner writes it. The file's size never changes.
class CSharedFile {
public:
    static constexpr std::int64_t kBlock = 24000;  // bytes; some blocks lie across fragments
    static constexpr int kBlocks = 9 * kWorkers;   // more than three fragments of 1 MiB

    CSharedFile();

    // Writes one of the worker's blocks, or reads one of them and compares.
    void Work(CWorker& worker, Handle handle);
    // Every acknowledged block against what the handle reads.
    void Verify(CWorker& worker, Handle handle) const;
    static std::string Content(int block, std::uint64_t version);

private:
    std::vector<std::uint64_t> m_versions;  // each written by the block's owner only
};

// A worker's own file, with all its bytes remembered: written, cut, renamed, appended, closed, reopened.
class COwnFile {
public:
    explicit COwnFile(int worker) : m_name(L"\\own" + std::to_wstring(worker)) {}

    void Open(CWorker& worker);
    void Work(CWorker& worker);
    // Every byte against what a fresh handle reads, which is released afterwards.
    void Verify(CWorker& worker);
    void Release(CWorker& worker);
    const std::wstring& Name() const { return m_name; }

private:
    void WriteSome(CWorker& worker);
    void ReadSome(CWorker& worker);
    void Resize(CWorker& worker);
    void Rename(CWorker& worker);
    void AppendToItself(CWorker& worker);

    std::wstring m_name;
    int m_renames = 0;
    Handle m_handle = 0;
    std::string m_bytes;
};

}  // namespace zd::test
