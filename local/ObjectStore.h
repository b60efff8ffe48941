// The objects of a pool on disk: a data file or directory, and a sidecar with its metadata beside it.
//
// An object exists if and only if its data file or directory exists. The order of the steps keeps every moment at which
// a process can die harmless: a sidecar is complete before the object appears under its name, and outlives it there.
// A sidecar without an object means nothing, and the next object of that name replaces it before it appears.
//
// Every function is called under the lock of the pool, which the CPoolLock argument proves.
#pragma once

#include <string>
#include <vector>

#include "Location.h"
#include "Metadata.h"
#include "WinFile.h"

namespace zd::engine {

// What stands at `location`.
ObjectKind Look(const CLocation& location, const CPoolLock& lock);

// The same where something must stand there; throws what is missing on the way.
ObjectKind Require(const CLocation& location, const CPoolLock& lock);
void RequireDirectory(const CLocation& location, const CPoolLock& lock);

// Throws what keeps a new object from being made at `location`, as far as the way there goes.
void RequireParent(const CLocation& location, const CPoolLock& lock);

// Throws for a missing object: 2 where its parent stands, 3 where that is missing too, 267 where a file stands on the
// way.
[[noreturn]] void FailMissing(const CLocation& location, const CPoolLock& lock);

// The metadata of an existing object; what can be told from the file system where it has none. Throws EIO where it is
// damaged.
Metadata ReadMetadata(const CLocation& location, const CPoolLock& lock);
// The same, with what the file system tells in place of damaged metadata.
Metadata ReadMetadataOrDefault(const CLocation& location, const CPoolLock& lock);
void WriteMetadata(const CLocation& location, const Metadata& metadata, const CPoolLock& lock);

// Makes an object that does not exist. The file is opened with `access` and `flags`.
CUniqueHandle CreateFileObject(const CLocation& location, std::uint32_t attributes, DWORD access, DWORD flags,
                               const CPoolLock& lock);
void CreateDirectoryObject(const CLocation& location, std::uint32_t attributes, const CPoolLock& lock);

// Removes a file or an empty directory. The name is free afterwards, also where the file is still open.
void RemoveObject(const CLocation& location, const CPoolLock& lock);

// Moves an object to a name of the same pool that is free.
void RenameObject(const CLocation& from, const CLocation& to, const CPoolLock& lock);

// The names in a directory, without "." and "..".
std::vector<std::string> ListObjects(const CLocation& directory, const CPoolLock& lock);

}  // namespace zd::engine
