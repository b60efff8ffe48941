// Directory streams and making directories.
#include <cstring>
#include <memory>

#include "ErrorTable.h"
#include "Guard.h"
#include "MountTable.h"
#include "NameCodec.h"
#include "ObjectStore.h"
#include "zdvfs.h"

using namespace zd::engine;

// The names as they stood when the stream was opened, so that changes meanwhile neither hide nor double an entry.
struct ZdvfsDirectory {
    std::string path;
    std::vector<std::string> names;
    std::size_t next = 0;
    ZdvfsDirectoryRecord record = {};
};

namespace {

ZdvfsDirectory* OpenStream(const char* path) {
    return Guarded<ZdvfsDirectory*>(nullptr, [&] {
        const CLocation location = Resolve(path);
        auto stream = std::make_unique<ZdvfsDirectory>();
        stream->path = location.Display();
        stream->names = {".", ".."};
        std::vector<std::string> names;
        if (location.IsPlace()) {
            names = MountTable().Names();
        } else {
            const CPoolLock lock(location.pool.get());
            RequireDirectory(location, lock);
            names = ListObjects(location, lock);
        }
        stream->names.insert(stream->names.end(), std::make_move_iterator(names.begin()),
                             std::make_move_iterator(names.end()));
        return stream.release();
    });
}

}  // namespace

ZdvfsDirectory* ZdvfsOpendir(const char* path) {
    return OpenStream(path);
}

ZdvfsDirectory* ZdvfsOpendirForList(const char* path, int /*refresh*/) {
    // Every stream is read anew from the disk.
    return OpenStream(path);
}

ZdvfsDirectoryRecord* ZdvfsReaddir(ZdvfsDirectory* directory) {
    return Guarded<ZdvfsDirectoryRecord*>(nullptr, [&]() -> ZdvfsDirectoryRecord* {
        if (!directory) Fail(ERROR_INVALID_HANDLE);
        if (directory->next >= directory->names.size()) return nullptr;
        const std::string& name = directory->names[directory->next++];
        ZdvfsDirectoryRecord& record = directory->record;
        record.id = StableHash(directory->path + "/" + name);
        std::memcpy(record.name, name.c_str(), name.size() + 1);
        return &record;
    });
}

int ZdvfsClosedir(ZdvfsDirectory* directory) {
    return GuardedCall([&] {
        if (!directory) Fail(ERROR_INVALID_HANDLE);
        delete directory;
    });
}

int ZdvfsMkdir(const char* path, int mode) {
    return GuardedCall([&] {
        const CLocation location = Resolve(path);
        const CPoolLock lock(location.pool.get());
        if (location.IsPlace() || location.IsPoolRoot() || Look(location, lock) != ObjectKind::kMissing) {
            Fail(ERROR_ALREADY_EXISTS);
        }
        CreateDirectoryObject(location, static_cast<std::uint32_t>(mode), lock);
    });
}
