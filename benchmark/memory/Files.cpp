// Mounting, open files and their data, control requests.
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <limits>
#include <memory>

#include "Descriptors.h"
#include "Failure.h"
#include "NameTable.h"
#include "Requests.h"
#include "zdvfs.h"

using namespace zd::memory;

namespace {

constexpr int kAccessMask = kZdvfsWriteOnly | kZdvfsReadWrite;
constexpr std::int64_t kCopyPiece = 65536;

std::atomic<bool> g_movesBytes{true};

// Whether a transfer need move nothing: the file holds every byte of it, and the benchmark has turned moving off.
bool IsOnlyCounted(const CNode& node, std::int64_t length, std::int64_t offset) noexcept {
    return !g_movesBytes.load(std::memory_order_relaxed) && length >= 0 && node.m_bytes.Size() - offset >= length;
}

// The file of a descriptor that may be read (or written), null where `error` says why not.
COpenFile* FileFor(int descriptor, bool COpenFile::*permission, int& error) noexcept {
    COpenFile* const file = Descriptors().Find(descriptor);
    error = file == nullptr || !(file->*permission) ? EBADF : 0;
    return error == 0 ? file : nullptr;
}

bool IsRange(const void* buffer, uint64_t length, int64_t offset) noexcept {
    return offset >= 0 && (buffer != nullptr || length == 0) &&
           length <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max() - offset);
}

int FindOrCreate(std::string_view path, int flags, int mode, CNodeRef& node) {
    node = NameTable().Find(path);
    if ((flags & kZdvfsCreate) == 0) return node ? 0 : ENOENT;
    const bool mayExist = (flags & kZdvfsExclusive) == 0;
    if (node) return mayExist ? 0 : EEXIST;
    const int error = NameTable().Create(path, false, static_cast<std::uint16_t>(mode), node);
    return error == EEXIST && mayExist ? 0 : error;
}

int Open(const char* path, int flags, int mode, int& descriptor) {
    if (path == nullptr || (flags & kAccessMask) == kAccessMask) return EINVAL;
    const CPath name(path);
    CNodeRef node;
    if (const int error = FindOrCreate(name.View(), flags, mode, node)) return error;
    // Of directories only the root of a pool, for control requests.
    if (node->m_isDirectory && (flags != 0 || !node->IsPoolRoot())) return EISDIR;
    if ((flags & kZdvfsTruncate) != 0) node->m_bytes.Resize(0);
    COpenFile* const file = Descriptors().Take(node, descriptor);
    if (file == nullptr) return EMFILE;
    file->readable = !node->m_isDirectory && (flags & kAccessMask) != kZdvfsWriteOnly;
    file->writable = !node->m_isDirectory && (flags & kAccessMask) != kZdvfsReadOnly;
    return 0;
}

int Append(COpenFile& target, int64_t length, int64_t sourceOffset, const COpenFile& source, int64_t& copied) {
    if (length < 0 || sourceOffset < 0) return EINVAL;
    const std::unique_ptr<char[]> piece(new char[kCopyPiece]);
    const CNode* const from = source.node;
    CNode* const to = target.node;
    while (copied < length) {
        const int64_t got =
            from->m_bytes.Read(piece.get(), std::min(length - copied, kCopyPiece), sourceOffset + copied);
        if (got == 0) break;
        if (!to->m_bytes.Write(piece.get(), got, target.position)) return ENOSPC;
        target.position += got;
        copied += got;
    }
    return 0;
}

int Generate(va_list arguments) {
    const char* const path = va_arg(arguments, const char*);
    const auto count = va_arg(arguments, std::int64_t);
    return NameTable().Visit(CPath(path).View(), [count](CNode& node) {
        if (!node.m_isDirectory || count < 0) return EINVAL;
        node.m_generated = count;
        return 0;
    });
}

}  // namespace

int ZdvfsMountV1(const char* version, void* block, uint32_t blockSize) {
    return Run([&] {
        if (version == nullptr || std::strcmp(version, "6.0.0.0") != 0) return EINVAL;
        if (block == nullptr || blockSize != sizeof(ZdvfsMountBlock)) return EINVAL;
        const char* const name = static_cast<const ZdvfsMountBlock*>(block)->poolName;
        if (name == nullptr || *name == '\0' || std::strchr(name, '/') != nullptr) return EINVAL;
        ++NameTable().MakePool(name).mounts;
        return 0;
    });
}

int ZdvfsUmount(const char* poolName) {
    return Run([&] {
        if (poolName == nullptr || *poolName == '\0') return EINVAL;
        return NameTable().Visit(poolName, [](const CNode& root) {
            if (!root.IsPoolRoot()) return EINVAL;
            --root.m_pool.mounts;
            return 0;
        });
    });
}

int ZdvfsOpen(const char* path, int flags, int mode) {
    int descriptor = -1;
    return Run([&] { return Open(path, flags, mode, descriptor); }) == 0 ? descriptor : -1;
}

int ZdvfsClose(int descriptor) {
    return Descriptors().Give(descriptor) ? 0 : Fail(EBADF);
}

int64_t ZdvfsPread(int descriptor, void* buffer, uint64_t length, int64_t offset) {
    int error = 0;
    const COpenFile* const file = FileFor(descriptor, &COpenFile::readable, error);
    if (file == nullptr) return Fail(error);
    if (offset < 0 || (buffer == nullptr && length > 0)) return Fail(EINVAL);
    const CNode* const node = file->node.load(std::memory_order_relaxed);
    const auto count = static_cast<int64_t>(length);
    if (IsOnlyCounted(*node, count, offset)) return count;
    return node->m_bytes.Read(static_cast<char*>(buffer), count, offset);
}

int64_t ZdvfsPwrite(int descriptor, const void* buffer, uint64_t length, int64_t offset) {
    int error = 0;
    const COpenFile* const file = FileFor(descriptor, &COpenFile::writable, error);
    if (file == nullptr) return Fail(error);
    if (!IsRange(buffer, length, offset)) return Fail(EINVAL);
    CNode* const node = file->node.load(std::memory_order_relaxed);
    const auto count = static_cast<int64_t>(length);
    if (IsOnlyCounted(*node, count, offset)) return count;
    return node->m_bytes.Write(static_cast<const char*>(buffer), count, offset) ? count : Fail(ENOSPC);
}

int64_t ZdvfsAppend(int target, int64_t length, int64_t sourceOffset, int source, int flags) {
    int64_t copied = 0;
    const int result = Run([&] {
        int error = 0;
        COpenFile* const to = FileFor(target, &COpenFile::writable, error);
        const COpenFile* const from = FileFor(source, &COpenFile::readable, error);
        if (to == nullptr || from == nullptr) return EBADF;
        if (flags != 0) return EINVAL;
        return Append(*to, length, sourceOffset, *from, copied);
    });
    return result == 0 ? copied : -1;
}

int64_t ZdvfsLseek(int descriptor, int64_t offset, int whence) {
    COpenFile* const file = Descriptors().Find(descriptor);
    if (file == nullptr) return Fail(EBADF);
    int64_t base = 0;
    if (whence == 1) {
        base = file->position;
    } else if (whence == 2) {
        base = file->node.load()->m_bytes.Size();
    } else if (whence != 0) {
        return Fail(EINVAL);
    }
    if (offset > std::numeric_limits<int64_t>::max() - base || base + offset < 0) return Fail(EINVAL);
    file->position = base + offset;
    return base + offset;
}

int ZdvfsFtruncate(int descriptor, int64_t size) {
    const COpenFile* const file = Descriptors().Find(descriptor);
    if (file == nullptr) return Fail(EBADF);
    if (size < 0) return Fail(EINVAL);
    CBytes& bytes = file->node.load()->m_bytes;
    // A descriptor that truncated its file at the open may say so again, also when it only reads.
    if (!file->writable && size != bytes.Size()) return Fail(EACCES);
    bytes.Resize(size);
    return 0;
}

int ZdvfsVIoctl(int descriptor, int request, va_list arguments) {
    if (Descriptors().Find(descriptor) == nullptr) return Fail(EBADF);
    if (request == kMemoryIoctlMoveBytes) g_movesBytes.store(va_arg(arguments, int) != 0, std::memory_order_relaxed);
    return request == kMemoryIoctlGenerate ? Run([&] { return Generate(arguments); }) : 0;
}

int ZdvfsIoctl(int descriptor, int request, ...) {
    va_list arguments;
    va_start(arguments, request);
    const int result = ZdvfsVIoctl(descriptor, request, arguments);
    va_end(arguments);
    return result;
}
