// Mounting and unmounting of pools.
#include <cstring>

#include "ErrorTable.h"
#include "Guard.h"
#include "MountTable.h"
#include "NameCodec.h"
#include "zdvfs.h"

using namespace zd::engine;

int ZdvfsMountV1(const char* version, void* block, uint32_t blockSize) {
    return GuardedCall([&] {
        if (!version || std::strcmp(version, "6.0.0.0") != 0) FailInvalid();
        if (!block || blockSize != sizeof(ZdvfsMountBlock)) FailInvalid();
        const auto& mount = *static_cast<const ZdvfsMountBlock*>(block);
        if (!mount.poolName) FailInvalid();
        const std::string_view name = mount.poolName;
        if (name.empty() || name == "." || name == ".." || name.find('/') != std::string_view::npos) FailInvalid();
        if (name.size() > kMaximumNameBytes) Fail(ERROR_FILENAME_EXCED_RANGE);
        MountTable().Mount(mount);
    });
}

int ZdvfsUmount(const char* poolName) {
    return GuardedCall([&] {
        if (!poolName) FailInvalid();
        MountTable().Unmount(poolName);
    });
}
