// The open descriptors of this process.
#pragma once

#include <windows.h>

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Location.h"
#include "Metadata.h"
#include "WinFile.h"

namespace zd::engine {

// One open file, or the root of a pool opened for control requests.
struct COpenFile {
    CUniqueHandle handle;
    bool readable = false;
    bool writable = false;
    bool isRoot = false;
    Metadata metadataAtOpen;  // shown once the file has lost its name

    std::mutex positionLock;  // guards position, and makes one append of it and its move
    std::int64_t position = 0;

    CLocation location;  // guarded by the table: a rename of this process changes it
};

class CDescriptors {
public:
    // A place in the table, given back unless it was filled.
    class CReservation {
    public:
        explicit CReservation(CDescriptors& table) : m_table(table), m_index(table.Reserve()) {}
        CReservation(const CReservation&) = delete;
        CReservation& operator=(const CReservation&) = delete;
        ~CReservation() {
            if (m_index >= 0) m_table.Release(m_index);
        }
        int Fill(std::shared_ptr<COpenFile> file);

    private:
        CDescriptors& m_table;
        int m_index;
    };

    void SetLimit(int limit);

    // Throws EBADF for a descriptor that is not open.
    std::shared_ptr<COpenFile> Get(int descriptor) const;
    std::shared_ptr<COpenFile> Take(int descriptor);

    // The open file's object where it has one still, whoever moved it; nothing once it was removed.
    std::optional<CLocation> Find(const COpenFile& file, const CPoolLock& lock) const;

    // Where the file was opened, or last seen.
    CLocation LocationOf(const COpenFile& file) const;

    void ObjectMoved(const CLocation& from, const CLocation& to);

private:
    struct Slot {
        bool reserved = false;
        std::shared_ptr<COpenFile> file;
    };

    int Reserve();
    void Release(int index);

    mutable std::mutex m_lock;  // guards all below; taken after the pool's lock
    std::vector<Slot> m_slots;
    std::size_t m_firstFree = 0;  // no slot below it is free
    std::size_t m_limit = 16384;
};

CDescriptors& Descriptors();

}  // namespace zd::engine
