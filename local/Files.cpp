// Opening, closing and moving the bytes of files.
#include <windows.h>
#include <winioctl.h>

#include <algorithm>
#include <limits>
#include <mutex>

#include "Descriptors.h"
#include "ErrorTable.h"
#include "Guard.h"
#include "ObjectStore.h"
#include "zdvfs.h"

using namespace zd::engine;

namespace {

constexpr int kAccessMask = 0x3;
constexpr int kKnownFlags =
    kAccessMask | kZdvfsCreate | kZdvfsTruncate | kZdvfsExclusive | kZdvfsDirectIo | kZdvfsTemporary | kZdvfsReadAhead;

constexpr std::int64_t kMaximumOffset = std::numeric_limits<std::int64_t>::max();
// One system call moves at most this much; a multiple of every sector size.
constexpr std::uint64_t kMaximumPiece = 64u << 20;
constexpr std::size_t kCopyPiece = 1u << 20;

OVERLAPPED At(std::int64_t offset) {
    const auto bits = static_cast<std::uint64_t>(offset);
    OVERLAPPED overlapped = {};
    overlapped.Offset = static_cast<DWORD>(bits & 0xFFFFFFFFu);
    overlapped.OffsetHigh = static_cast<DWORD>(bits >> 32);
    return overlapped;
}

// Reads until `length` bytes, the end of data, or a failure, which counts only where nothing was read before it.
std::uint64_t ReadAt(HANDLE file, char* buffer, std::uint64_t length, std::int64_t offset) {
    length = std::min(length, static_cast<std::uint64_t>(kMaximumOffset - offset));
    std::uint64_t done = 0;
    while (done < length) {
        OVERLAPPED where = At(offset + static_cast<std::int64_t>(done));
        DWORD moved = 0;
        const auto piece = static_cast<DWORD>(std::min(length - done, kMaximumPiece));
        if (!::ReadFile(file, buffer + done, piece, &moved, &where)) {
            if (::GetLastError() == ERROR_HANDLE_EOF || done > 0) break;
            FailLast();
        }
        if (moved == 0) break;
        done += moved;
    }
    return done;
}

std::uint64_t WriteAt(HANDLE file, const char* buffer, std::uint64_t length, std::int64_t offset) {
    if (length > static_cast<std::uint64_t>(kMaximumOffset - offset)) Fail(ERROR_FILE_TOO_LARGE);
    std::uint64_t done = 0;
    while (done < length) {
        OVERLAPPED where = At(offset + static_cast<std::int64_t>(done));
        DWORD moved = 0;
        const auto piece = static_cast<DWORD>(std::min(length - done, kMaximumPiece));
        if (!::WriteFile(file, buffer + done, piece, &moved, &where)) {
            if (done > 0) break;
            FailLast();
        }
        if (moved == 0) {
            if (done == 0) Fail(ERROR_DISK_FULL);
            break;
        }
        done += moved;
    }
    return done;
}

void SetSize(HANDLE file, std::int64_t size) {
    FILE_END_OF_FILE_INFO information;
    information.EndOfFile.QuadPart = size;
    if (!::SetFileInformationByHandle(file, FileEndOfFileInfo, &information, sizeof information)) FailLast();
}

void RequireReadable(const COpenFile& file) {
    if (file.isRoot) Fail(EISDIR, ERROR_ACCESS_DENIED);
    if (!file.readable) Fail(ERROR_ACCESS_DENIED);
}

void RequireWritable(const COpenFile& file) {
    if (file.isRoot) Fail(EISDIR, ERROR_ACCESS_DENIED);
    if (!file.writable) Fail(ERROR_ACCESS_DENIED);
}

DWORD AccessOf(int flags) {
    // The state of a write-only descriptor can be asked for too.
    switch (flags & kAccessMask) {
        case kZdvfsReadOnly:
            return GENERIC_READ;
        case kZdvfsWriteOnly:
            return GENERIC_WRITE | FILE_READ_ATTRIBUTES;
        default:
            return GENERIC_READ | GENERIC_WRITE;
    }
}

CUniqueHandle OpenExisting(const CLocation& location, int flags) {
    const DWORD hint = (flags & kZdvfsReadAhead) != 0 ? FILE_FLAG_SEQUENTIAL_SCAN : 0;
    CUniqueHandle handle = OpenHandle(location.DataPath(), AccessOf(flags), OPEN_EXISTING, hint);
    if ((flags & kZdvfsTruncate) != 0) {
        if ((flags & kAccessMask) != kZdvfsReadOnly) {
            SetSize(handle.Get(), 0);
        } else {
            SetSize(OpenHandle(location.DataPath(), GENERIC_WRITE, OPEN_EXISTING).Get(), 0);
        }
    }
    return handle;
}

void OpenRoot(COpenFile& file, int flags, const CPoolLock& lock) {
    if (flags != 0) Fail(EISDIR, ERROR_ACCESS_DENIED);
    Require(file.location, lock);
    file.isRoot = true;
    file.handle = OpenHandle(file.location.DataPath(), FILE_READ_ATTRIBUTES, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
}

void OpenObject(COpenFile& file, int flags, int mode, const CPoolLock& lock) {
    const bool create = (flags & kZdvfsCreate) != 0;
    const ObjectKind kind = Look(file.location, lock);
    if (kind == ObjectKind::kMissing) {
        if (!create) FailMissing(file.location, lock);
        const DWORD hint = (flags & kZdvfsReadAhead) != 0 ? FILE_FLAG_SEQUENTIAL_SCAN : 0;
        file.handle = CreateFileObject(file.location, static_cast<std::uint32_t>(mode), AccessOf(flags), hint, lock);
    } else {
        if (create && (flags & kZdvfsExclusive) != 0) Fail(ERROR_FILE_EXISTS);
        if (kind == ObjectKind::kDirectory) Fail(EISDIR, ERROR_ACCESS_DENIED);
        file.handle = OpenExisting(file.location, flags);
    }
    file.metadataAtOpen = ReadMetadataOrDefault(file.location, lock);
    file.readable = (flags & kAccessMask) != kZdvfsWriteOnly;
    file.writable = (flags & kAccessMask) != kZdvfsReadOnly;
}

// Copies ranges that do not overlap, or whose target stands before its source. Stops at the end of the source.
std::int64_t CopyForward(HANDLE source, std::int64_t from, HANDLE target, std::int64_t to, std::int64_t length) {
    std::vector<char> buffer(static_cast<std::size_t>(std::min<std::int64_t>(length, kCopyPiece)));
    std::int64_t done = 0;
    while (done < length) {
        const auto piece = std::min<std::uint64_t>(buffer.size(), static_cast<std::uint64_t>(length - done));
        const std::uint64_t got = ReadAt(source, buffer.data(), piece, from + done);
        if (got == 0) break;
        // A caller of a copy expects the whole piece, so a disk that takes only a part of it is full.
        if (WriteAt(target, buffer.data(), got, to + done) != got) Fail(ERROR_DISK_FULL);
        done += static_cast<std::int64_t>(got);
    }
    return done;
}

// Copies from the end, so that the target receives what the source held before, where it begins inside the source.
std::int64_t CopyBackward(HANDLE source, std::int64_t from, HANDLE target, std::int64_t to, std::int64_t length) {
    std::vector<char> buffer(static_cast<std::size_t>(std::min<std::int64_t>(length, kCopyPiece)));
    for (std::int64_t left = length; left > 0;) {
        const std::int64_t piece = std::min<std::int64_t>(left, static_cast<std::int64_t>(buffer.size()));
        left -= piece;
        const auto size = static_cast<std::uint64_t>(piece);
        if (ReadAt(source, buffer.data(), size, from + left) != size) Fail(ERROR_READ_FAULT);
        if (WriteAt(target, buffer.data(), size, to + left) != size) Fail(ERROR_DISK_FULL);
    }
    return length;
}

std::int64_t Append(COpenFile& target, std::int64_t length, std::int64_t sourceOffset, COpenFile& source) {
    RequireWritable(target);
    RequireReadable(source);
    if (length < 0 || sourceOffset < 0) FailInvalid();
    const std::lock_guard lock(target.positionLock);
    const std::int64_t size = SizeOf(source.handle.Get());
    const std::int64_t wanted = std::min(length, std::max<std::int64_t>(size - sourceOffset, 0));
    if (wanted > kMaximumOffset - target.position) Fail(ERROR_FILE_TOO_LARGE);
    const HANDLE from = source.handle.Get();
    const HANDLE to = target.handle.Get();
    const bool overlaps =
        target.position > sourceOffset && target.position < sourceOffset + wanted && IdentityOf(to) == IdentityOf(from);
    const std::int64_t copied = overlaps ? CopyBackward(from, sourceOffset, to, target.position, wanted)
                                         : CopyForward(from, sourceOffset, to, target.position, wanted);
    target.position += copied;
    return copied;
}

}  // namespace

int ZdvfsOpen(const char* path, int flags, int mode) {
    return Guarded(-1, [&] {
        if ((flags & ~kKnownFlags) != 0 || (flags & kAccessMask) == kAccessMask) FailInvalid();
        auto file = std::make_shared<COpenFile>();
        file->location = Resolve(path);
        if (file->location.IsPlace()) Fail(EISDIR, ERROR_ACCESS_DENIED);
        CDescriptors::CReservation reservation(Descriptors());
        const CPoolLock lock(file->location.pool.get());
        if (file->location.IsPoolRoot()) {
            OpenRoot(*file, flags, lock);
        } else {
            OpenObject(*file, flags, mode, lock);
        }
        return reservation.Fill(std::move(file));
    });
}

int ZdvfsClose(int descriptor) {
    return GuardedCall([&] { Descriptors().Take(descriptor); });
}

int64_t ZdvfsPread(int descriptor, void* buffer, uint64_t length, int64_t offset) {
    return Guarded<int64_t>(-1, [&] {
        const auto file = Descriptors().Get(descriptor);
        RequireReadable(*file);
        if (offset < 0 || (!buffer && length > 0)) FailInvalid();
        return static_cast<int64_t>(ReadAt(file->handle.Get(), static_cast<char*>(buffer), length, offset));
    });
}

int64_t ZdvfsPwrite(int descriptor, const void* buffer, uint64_t length, int64_t offset) {
    return Guarded<int64_t>(-1, [&] {
        const auto file = Descriptors().Get(descriptor);
        RequireWritable(*file);
        if (offset < 0 || (!buffer && length > 0)) FailInvalid();
        return static_cast<int64_t>(WriteAt(file->handle.Get(), static_cast<const char*>(buffer), length, offset));
    });
}

int64_t ZdvfsAppend(int target, int64_t length, int64_t sourceOffset, int source, int flags) {
    return Guarded<int64_t>(-1, [&] {
        const auto targetFile = Descriptors().Get(target);
        const auto sourceFile = Descriptors().Get(source);
        if (flags != 0) FailInvalid();
        return Append(*targetFile, length, sourceOffset, *sourceFile);
    });
}

int64_t ZdvfsLseek(int descriptor, int64_t offset, int whence) {
    return Guarded<int64_t>(-1, [&] {
        const auto file = Descriptors().Get(descriptor);
        if (file->isRoot) Fail(EISDIR, ERROR_ACCESS_DENIED);
        const std::lock_guard lock(file->positionLock);
        std::int64_t base = 0;
        if (whence == 1) {
            base = file->position;
        } else if (whence == 2) {
            base = SizeOf(file->handle.Get());
        } else if (whence != 0) {
            FailInvalid();
        }
        if (offset > kMaximumOffset - base) FailInvalid();
        if (base + offset < 0) Fail(ERROR_NEGATIVE_SEEK);
        return file->position = base + offset;
    });
}

int ZdvfsFtruncate(int descriptor, int64_t size) {
    return GuardedCall([&] {
        const auto file = Descriptors().Get(descriptor);
        // A descriptor that truncated its file at the open may say so again, also when it only reads.
        if (!file->isRoot && !file->writable && size == SizeOf(file->handle.Get())) return;
        RequireWritable(*file);
        if (size < 0) FailInvalid();
        if (size > SizeOf(file->handle.Get())) {
            // Where the file system can, the new bytes take no room; where it cannot, they are still zero.
            DWORD returned = 0;
            ::DeviceIoControl(file->handle.Get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
        }
        SetSize(file->handle.Get(), size);
    });
}
