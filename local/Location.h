// Where a path leads: a pool and the names below it.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Pool.h"

namespace zd::engine {

struct CLocation {
    std::shared_ptr<CPool> pool;     // null for the place where the pools stand
    std::vector<std::string> names;  // empty for the root of the pool

    bool IsPlace() const { return pool == nullptr; }
    bool IsPoolRoot() const { return pool != nullptr && names.empty(); }

    CLocation Parent() const;
    CLocation Child(std::string name) const;
    // Whether `other` is this place or stands below it.
    bool Contains(const CLocation& other) const;
    bool operator==(const CLocation& other) const { return pool == other.pool && names == other.names; }

    std::wstring DataPath() const;
    std::wstring SidecarPath() const;

    // The path as callers write it, for lines and hashes.
    std::string Display() const;
};

// Reads a caller's path: "." and ".." by their text, where ".." stops at the root of the pool. Throws for a null path,
// for a name that is too long, and ENOENT where the first name is no mounted pool.
CLocation Resolve(const char* path);

// Where a path of the system leads that GetFinalPathNameByHandleW answered for a file of `pool`. Throws ENOENT where it
// is none of the pool's objects.
CLocation LocateFinalPath(const std::shared_ptr<CPool>& pool, HANDLE file);

}  // namespace zd::engine
