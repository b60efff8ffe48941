// Status of objects and of the disk under a pool.
#include <cstring>

#include "Descriptors.h"
#include "ErrorTable.h"
#include "Guard.h"
#include "ObjectStore.h"
#include "zdvfs.h"

using namespace zd::engine;

namespace {

constexpr std::uint32_t kDirectoryMode = kZdvfsModeDirectory | 0755;
constexpr std::uint32_t kFileMode = 0x8000 | 0644;
constexpr std::uint64_t kBlockSize = 4096;

BY_HANDLE_FILE_INFORMATION InformationOf(HANDLE file) {
    BY_HANDLE_FILE_INFORMATION information;
    if (!::GetFileInformationByHandle(file, &information)) FailLast();
    return information;
}

void Fill(ZdvfsStatRecord& record, const BY_HANDLE_FILE_INFORMATION& information, const Metadata& metadata) {
    std::memset(&record, 0, sizeof record);
    const bool isDirectory = (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const std::uint32_t others = metadata.attributes & ~static_cast<std::uint32_t>(FILE_ATTRIBUTE_DIRECTORY);
    record.attributes = static_cast<std::uint16_t>(others | (isDirectory ? FILE_ATTRIBUTE_DIRECTORY : 0u));
    record.mode = isDirectory ? kDirectoryMode : kFileMode;
    if (!isDirectory) {
        record.size = (static_cast<std::int64_t>(information.nFileSizeHigh) << 32) | information.nFileSizeLow;
    }
    record.accessTime = SecondsOf(information.ftLastAccessTime);
    record.modificationTime = SecondsOf(information.ftLastWriteTime);
    record.creationTime = metadata.creationTime;
}

CUniqueHandle OpenForInformation(const CLocation& location) {
    return OpenHandle(location.DataPath(), FILE_READ_ATTRIBUTES, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
}

}  // namespace

int ZdvfsStat(const char* path, ZdvfsStatRecord* record) {
    return GuardedCall([&] {
        if (!record) FailInvalid();
        const CLocation location = Resolve(path);
        const CPoolLock lock(location.pool.get());
        Require(location, lock);
        const CUniqueHandle handle = OpenForInformation(location);
        const BY_HANDLE_FILE_INFORMATION information = InformationOf(handle.Get());
        Metadata metadata = ReadMetadataOrDefault(location, lock);
        if (location.IsPlace()) metadata.creationTime = SecondsOf(information.ftCreationTime);
        Fill(*record, information, metadata);
    });
}

int ZdvfsFstat(int descriptor, ZdvfsStatRecord* record) {
    return GuardedCall([&] {
        const auto file = Descriptors().Get(descriptor);
        if (!record) FailInvalid();
        const CPoolLock lock(file->location.pool.get());
        const std::optional<CLocation> location = Descriptors().Find(*file, lock);
        const BY_HANDLE_FILE_INFORMATION information = InformationOf(file->handle.Get());
        Fill(*record, information, location ? ReadMetadataOrDefault(*location, lock) : file->metadataAtOpen);
    });
}

int ZdvfsStatvfs(const char* path, ZdvfsVolumeRecord* record) {
    return GuardedCall([&] {
        if (!record) FailInvalid();
        const CLocation location = Resolve(path);
        {
            const CPoolLock lock(location.pool.get());
            Require(location, lock);
        }
        const std::wstring directory = location.IsPlace() ? location.DataPath() : location.pool->Directory() + L'\\';
        ULARGE_INTEGER available;
        ULARGE_INTEGER total;
        if (!::GetDiskFreeSpaceExW(directory.c_str(), &available, &total, nullptr)) FailLast();
        std::memset(record, 0, sizeof *record);
        record->blockSize = kBlockSize;
        record->totalBlocks = total.QuadPart / kBlockSize;
        record->availableBlocks = available.QuadPart / kBlockSize;
    });
}
