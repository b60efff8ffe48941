// Removing, renaming, attributes and times.
#include "ErrorTable.h"
#include "Guard.h"
#include "ObjectStore.h"
#include "zdvfs.h"

using namespace zd::engine;

namespace {

// The place of the pools has neither attributes nor descriptors of its own.
void RequireInPool(const CLocation& location) {
    if (location.IsPlace()) Fail(ERROR_ACCESS_DENIED);
}

FILETIME CheckedTime(std::int64_t seconds) {
    const auto time = FileTimeOf(seconds);
    if (!time) FailInvalid();
    return *time;
}

}  // namespace

int ZdvfsUnlink(const char* path) {
    return GuardedCall([&] {
        const CLocation location = Resolve(path);
        if (location.names.empty()) Fail(ERROR_BUSY);
        const CPoolLock lock(location.pool.get());
        RemoveObject(location, lock);
    });
}

int ZdvfsRename(const char* oldPath, const char* newPath) {
    return GuardedCall([&] {
        const CLocation from = Resolve(oldPath);
        const CLocation to = Resolve(newPath);
        if (from.names.empty()) Fail(ERROR_BUSY);
        if (to.names.empty()) Fail(ERROR_ALREADY_EXISTS);
        if (from.pool != to.pool) Fail(ERROR_NOT_SAME_DEVICE);
        const CPoolLock lock(from.pool.get());
        RenameObject(from, to, lock);
    });
}

int ZdvfsChmod(const char* path, uint32_t mode) {
    return GuardedCall([&] {
        const CLocation location = Resolve(path);
        RequireInPool(location);
        const CPoolLock lock(location.pool.get());
        Require(location, lock);
        Metadata metadata = ReadMetadata(location, lock);
        metadata.attributes = mode;
        WriteMetadata(location, metadata, lock);
    });
}

int ZdvfsUtime(const char* path, const ZdvfsTimes* times) {
    return GuardedCall([&] {
        const CLocation location = Resolve(path);
        RequireInPool(location);
        const std::int64_t now = CurrentSeconds();
        const FILETIME access = CheckedTime(times ? times->access : now);
        const FILETIME modification = CheckedTime(times ? times->modification : now);
        const CPoolLock lock(location.pool.get());
        Require(location, lock);
        const CUniqueHandle handle =
            OpenHandle(location.DataPath(), FILE_WRITE_ATTRIBUTES, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
        if (!::SetFileTime(handle.Get(), nullptr, &access, &modification)) FailLast();
    });
}
