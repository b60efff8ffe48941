// The storage client library, imported by name from zdvfs.dll.
//
// Plain C, POSIX-shaped: a failing call answers a negative result (a null pointer where a pointer is returned), sets
// the universal C runtime's per-thread `errno` and also the thread's last Windows error. The declarations are not
// noexcept: a C++ exception that a call lets through reaches the handlers of the operation that made the call.
//
// Paths are UTF-8 with "/" between components. A path may begin with no, one or several slashes; its first component
// is the name of a mounted pool. "/" and the empty path name the place where the pools stand. A leading ".." never
// leads out of a pool.
//
// Threads: every function may be called from several threads at once. Two calls on one descriptor or on one directory
// stream are serialised by the caller where their order matters.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#if defined(ZDVFS_BUILDS_LIBRARY)
#define ZDVFS_API extern "C" __declspec(dllexport)
#else
#define ZDVFS_API extern "C" __declspec(dllimport)
#endif

// ---- Open flags -------------------------------------------------------------------------------------------------

constexpr int kZdvfsReadOnly = 0x0;
constexpr int kZdvfsWriteOnly = 0x1;
constexpr int kZdvfsReadWrite = 0x2;
constexpr int kZdvfsCreate = 0x100;       // create the file if it is missing
constexpr int kZdvfsTruncate = 0x200;     // cut an existing file to no bytes
constexpr int kZdvfsExclusive = 0x400;    // with create: fail if the file exists
constexpr int kZdvfsDirectIo = 0x4000;    // bypass the library's cache
constexpr int kZdvfsTemporary = 0x8000;   // a temporary file
constexpr int kZdvfsReadAhead = 0x10000;  // second cache flag: sequential or delete-on-close use, plain reading

// The bit of a record's mode word that marks a directory, and the mask of the file-type bits.
constexpr uint32_t kZdvfsModeDirectory = 0x4000;
constexpr uint32_t kZdvfsModeTypeMask = 0xF000;

// ---- Records ----------------------------------------------------------------------------------------------------

// What ZdvfsStat and ZdvfsFstat fill. The library may fill reserved fields too. Times are seconds since 1970-01-01
// UTC; `attributes` are Windows FILE_ATTRIBUTE_* bits; `mode` holds kZdvfsModeDirectory for a directory.
struct ZdvfsStatRecord {
    uint8_t reserved0[4];
    uint16_t attributes;
    uint8_t reserved6[2];
    uint32_t mode;
    uint8_t reserved12[12];
    int64_t size;  // bytes
    int64_t accessTime;
    int64_t modificationTime;
    int64_t creationTime;
    uint8_t reserved56[72];
};
static_assert(offsetof(ZdvfsStatRecord, attributes) == 4);
static_assert(offsetof(ZdvfsStatRecord, mode) == 8);
static_assert(offsetof(ZdvfsStatRecord, size) == 24);
static_assert(offsetof(ZdvfsStatRecord, accessTime) == 32);
static_assert(offsetof(ZdvfsStatRecord, modificationTime) == 40);
static_assert(offsetof(ZdvfsStatRecord, creationTime) == 48);
static_assert(sizeof(ZdvfsStatRecord) == 128 && alignof(ZdvfsStatRecord) == 8);

// What ZdvfsStatvfs fills. Blocks are of `blockSize` bytes.
struct ZdvfsVolumeRecord {
    uint64_t blockSize;
    uint64_t totalBlocks;
    uint64_t availableBlocks;
    uint8_t reserved24[104];
};
static_assert(offsetof(ZdvfsVolumeRecord, blockSize) == 0);
static_assert(offsetof(ZdvfsVolumeRecord, totalBlocks) == 8);
static_assert(offsetof(ZdvfsVolumeRecord, availableBlocks) == 16);
static_assert(sizeof(ZdvfsVolumeRecord) == 128);

// One entry of a directory stream; the name is UTF-8 and terminated.
struct ZdvfsDirectoryRecord {
    uint64_t id;
    char name[1024];
};
static_assert(offsetof(ZdvfsDirectoryRecord, id) == 0);
static_assert(offsetof(ZdvfsDirectoryRecord, name) == 8);
static_assert(sizeof(ZdvfsDirectoryRecord) == 1032);

// The pair that ZdvfsUtime sets: seconds since 1970-01-01 UTC.
struct ZdvfsTimes {
    int64_t access;
    int64_t modification;
};
static_assert(offsetof(ZdvfsTimes, access) == 0);
static_assert(offsetof(ZdvfsTimes, modification) == 8);
static_assert(sizeof(ZdvfsTimes) == 16);

// An open directory stream; its content belongs to the library.
struct ZdvfsDirectory;

// Receives the library's own log lines. `message` is terminated UTF-8 and lives only for the call.
using ZdvfsLogCallback = void (*)(uint32_t level, const char* message);

// The block given to ZdvfsMountV1: zero but for the named fields. It stays at its address from mount to unmount, and
// `logLevel` may change meanwhile. The strings belong to the caller and live as long as the mount.
struct ZdvfsMountBlock {
    uint32_t flags;
    uint32_t reserved4;
    uint64_t zero8;  // always 0
    uint32_t logLevel;
    uint32_t reserved20;
    ZdvfsLogCallback logCallback;
    char* poolName;  // UTF-8
    uint8_t reserved40[4160];
    uint32_t syncFileCount;
    uint8_t reserved4204[8];
    uint32_t five4212;  // always 5
    uint32_t reserved4216;
    uint32_t one4220;  // always 1
    uint8_t reserved4224[8];
    char* configurationFile;  // UTF-8 path or null
    uint8_t reserved4240[32];
    char* secondName;  // UTF-8 or null
    char* thirdName;   // UTF-8 or null
    char* agentKind;   // "ZDDO_AGENT" or null
    uint8_t reserved4296[1048];
};
static_assert(offsetof(ZdvfsMountBlock, flags) == 0);
static_assert(offsetof(ZdvfsMountBlock, zero8) == 8);
static_assert(offsetof(ZdvfsMountBlock, logLevel) == 16);
static_assert(offsetof(ZdvfsMountBlock, logCallback) == 24);
static_assert(offsetof(ZdvfsMountBlock, poolName) == 32);
static_assert(offsetof(ZdvfsMountBlock, syncFileCount) == 4200);
static_assert(offsetof(ZdvfsMountBlock, five4212) == 4212);
static_assert(offsetof(ZdvfsMountBlock, one4220) == 4220);
static_assert(offsetof(ZdvfsMountBlock, configurationFile) == 4232);
static_assert(offsetof(ZdvfsMountBlock, secondName) == 4272);
static_assert(offsetof(ZdvfsMountBlock, thirdName) == 4280);
static_assert(offsetof(ZdvfsMountBlock, agentKind) == 4288);
static_assert(sizeof(ZdvfsMountBlock) == 5344);

// ---- Mounting ---------------------------------------------------------------------------------------------------

// Mounts the pool that `block` (a ZdvfsMountBlock of `blockSize` = 5344 bytes) names; `version` is "6.0.0.0".
ZDVFS_API int ZdvfsMountV1(const char* version, void* block, uint32_t blockSize);

// Unmounts the pool of that UTF-8 name. Mounts of one name are counted.
ZDVFS_API int ZdvfsUmount(const char* poolName);

// ---- Files ------------------------------------------------------------------------------------------------------

// Opens a file, or with flags 0 the root of a pool for control requests. `mode` holds the Windows attributes of a file
// that the call creates. Answers a descriptor of 0 or more, which ZdvfsClose gives back.
ZDVFS_API int ZdvfsOpen(const char* path, int flags, int mode);

// Gives a descriptor back.
ZDVFS_API int ZdvfsClose(int descriptor);

// Reads up to `length` bytes at byte `offset`. Answers the bytes read, 0 at the end of data.
ZDVFS_API int64_t ZdvfsPread(int descriptor, void* buffer, uint64_t length, int64_t offset);

// Writes up to `length` bytes at byte `offset`. Answers the bytes written.
ZDVFS_API int64_t ZdvfsPwrite(int descriptor, const void* buffer, uint64_t length, int64_t offset);

// Copies `length` bytes of descriptor `source` from byte `sourceOffset` to descriptor `target` at the target's
// position, which moves. `flags` is 0. Answers the bytes copied.
ZDVFS_API int64_t ZdvfsAppend(int target, int64_t length, int64_t sourceOffset, int source, int flags);

// Sets the descriptor's position; `whence` is 0 for the start, 1 for the position, 2 for the end. Answers the new
// position.
ZDVFS_API int64_t ZdvfsLseek(int descriptor, int64_t offset, int whence);

// Sets the file's size in bytes; new bytes read as zero.
ZDVFS_API int ZdvfsFtruncate(int descriptor, int64_t size);

// ---- Information ------------------------------------------------------------------------------------------------

ZDVFS_API int ZdvfsStat(const char* path, ZdvfsStatRecord* record);
ZDVFS_API int ZdvfsFstat(int descriptor, ZdvfsStatRecord* record);
ZDVFS_API int ZdvfsStatvfs(const char* path, ZdvfsVolumeRecord* record);

// ---- Directories ------------------------------------------------------------------------------------------------

// Opens a directory stream, which ZdvfsClosedir gives back. Null on failure.
ZDVFS_API ZdvfsDirectory* ZdvfsOpendir(const char* path);

// The same for a listing; a `refresh` other than 0 asks the library to read the directory anew.
ZDVFS_API ZdvfsDirectory* ZdvfsOpendirForList(const char* path, int refresh);

// The next entry ("." and ".." included), null at the end, where `errno` is left alone. The record belongs to the
// stream and lives until the next call on it.
ZDVFS_API ZdvfsDirectoryRecord* ZdvfsReaddir(ZdvfsDirectory* directory);

ZDVFS_API int ZdvfsClosedir(ZdvfsDirectory* directory);

// Makes a directory; `mode` holds its Windows attributes.
ZDVFS_API int ZdvfsMkdir(const char* path, int mode);

// ---- Names and attributes ---------------------------------------------------------------------------------------

// Removes a file or an empty directory.
ZDVFS_API int ZdvfsUnlink(const char* path);

ZDVFS_API int ZdvfsRename(const char* oldPath, const char* newPath);

// `mode` holds the Windows attributes, stored as they stand.
ZDVFS_API int ZdvfsChmod(const char* path, uint32_t mode);

ZDVFS_API int ZdvfsUtime(const char* path, const ZdvfsTimes* times);

// ---- Control requests -------------------------------------------------------------------------------------------

// Requests that the plug-in makes. A 32-bit value is passed by value, as an int, and so is the length behind it.
constexpr int kZdvfsIoctlSetSegmentSize = 2;         // value, length
constexpr int kZdvfsIoctlSetEncryption = 9;          // value, length
constexpr int kZdvfsIoctlSetCompression = 10;        // value, length
constexpr int kZdvfsIoctlTaskTime = 14;              // value, length
constexpr int kZdvfsIoctlSyncFileCount = 16;         // value, length
constexpr int kZdvfsIoctlSetStreamSegmentSize = 23;  // value, length
constexpr int kZdvfsIoctlSetStorageLocality = 46;    // null, 0, text, 0, 32

ZDVFS_API int ZdvfsIoctl(int descriptor, int request, ...);
ZDVFS_API int ZdvfsVIoctl(int descriptor, int request, va_list arguments);

// ---- Security descriptors as SDDL text --------------------------------------------------------------------------

// Each answers 0 on success. Reading fills `buffer` of `size` bytes with terminated text, empty where nothing is
// stored. `flag` of the two Dsid queries is 1 on the way in; non-zero on the way out means that the default
// descriptor applies.
ZDVFS_API int ZdvfsGetNTAclStr(const char* path, char* buffer, int size);
ZDVFS_API int ZdvfsFgetNTAclStr(int descriptor, char* buffer, int size);
ZDVFS_API int ZdvfsGetDsidNTAclStr(const char* path, char* buffer, int size, int* flag);
ZDVFS_API int ZdvfsFgetDsidNTAclStr(int descriptor, char* buffer, int size, int* flag);
ZDVFS_API int ZdvfsSetNTAclStr(const char* path, const char* text);
ZDVFS_API int ZdvfsFsetNTAclStr(int descriptor, const char* text);
