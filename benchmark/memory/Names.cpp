// Information, directories, names, attributes and security texts.
#include <cstring>
#include <memory>

#include "Descriptors.h"
#include "Failure.h"
#include "Generated.h"
#include "NameTable.h"
#include "zdvfs.h"

using namespace zd::memory;

// Walks the directory's own list of children, which keeps the places of those that were there at the opening.
struct ZdvfsDirectory {
    explicit ZdvfsDirectory(CNodeRef opened) : node(std::move(opened)) {
        const CWriting held(node->m_lock);
        ++node->m_streams;
    }
    ~ZdvfsDirectory() {
        const CWriting held(node->m_lock);
        --node->m_streams;
    }
    ZdvfsDirectory(const ZdvfsDirectory&) = delete;
    ZdvfsDirectory& operator=(const ZdvfsDirectory&) = delete;

    const CNodeRef node;
    std::size_t dots = 0;
    std::size_t next = 0;
    std::int64_t nextGenerated = 0;
    ZdvfsDirectoryRecord record{};
};

namespace {

constexpr std::int64_t kGeneratedSize = 1000;
constexpr uint64_t kBlockSize = 4096;
constexpr uint64_t kTotalBlocks = uint64_t{1} << 30;

template <class Body>
int OnPath(const char* path, Body&& body) noexcept {
    return Run([&] { return path == nullptr ? EINVAL : NameTable().Visit(CPath(path).View(), body); });
}

template <class Body>
int OnDescriptor(int descriptor, Body&& body) noexcept {
    return Run([&] {
        const COpenFile* const file = Descriptors().Find(descriptor);
        return file == nullptr ? EBADF : body(*file->node.load(std::memory_order_relaxed));
    });
}

auto Filling(ZdvfsStatRecord* record) {
    return [record](const CNode& node) {
        if (record == nullptr) return EINVAL;
        std::memset(record, 0, sizeof *record);
        record->attributes = node.m_attributes.load(std::memory_order_relaxed);
        record->mode = node.m_isDirectory ? kZdvfsModeDirectory : 0;
        record->size = node.m_bytes.Size();
        record->accessTime = node.m_accessTime.load(std::memory_order_relaxed);
        record->modificationTime = node.m_modificationTime.load(std::memory_order_relaxed);
        record->creationTime = node.m_creationTime;
        return 0;
    };
}

int StatGenerated(std::string_view path, ZdvfsStatRecord* record) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return ENOENT;
    return NameTable().Visit(path.substr(0, slash), [=](const CNode& directory) {
        const std::int64_t count = directory.m_generated.load(std::memory_order_relaxed);
        if (count == 0 || !IsGeneratedName(count, path.substr(slash + 1))) return ENOENT;
        if (const int error = Filling(record)(directory)) return error;
        record->attributes = FILE_ATTRIBUTE_NORMAL;
        record->mode = 0;
        record->size = kGeneratedSize;
        return 0;
    });
}

auto Reading(char* buffer, int size, int* flag = nullptr) {
    return [=](CNode& node) {
        if (buffer == nullptr || size <= 0) return EINVAL;
        const CReading held(node.m_lock);
        const std::string& text = node.m_descriptor;
        if (text.size() >= static_cast<std::size_t>(size)) return ERANGE;
        std::memcpy(buffer, text.c_str(), text.size() + 1);
        if (flag != nullptr) *flag = text.empty() ? 1 : 0;
        return 0;
    };
}

auto Storing(const char* text) {
    return [text](CNode& node) {
        const CWriting held(node.m_lock);
        node.m_descriptor = text != nullptr ? text : "";
        return 0;
    };
}

bool AdvanceGenerated(ZdvfsDirectory& stream) noexcept {
    const std::int64_t count = stream.node->m_generated.load(std::memory_order_relaxed);
    if (stream.nextGenerated >= count) return false;
    stream.record.id = static_cast<uint64_t>(stream.nextGenerated);
    stream.record.name[GeneratedName(count, stream.nextGenerated++, stream.record.name)] = '\0';
    return true;
}

// Puts the next name of the stream into its record; false at the end.
bool Advance(ZdvfsDirectory& stream) noexcept {
    constexpr std::string_view kDots = "..";
    std::string_view name;
    const CReading held(stream.node->m_lock);
    if (stream.dots < kDots.size()) {
        name = kDots.substr(0, ++stream.dots);
    } else {
        const std::vector<CNode*>& children = stream.node->m_children;
        while (stream.next < children.size() &&
               (children[stream.next] == nullptr || !children[stream.next]->IsThere())) {
            ++stream.next;
        }
        if (stream.next == children.size()) return AdvanceGenerated(stream);
        name = children[stream.next++]->Leaf();
    }
    const std::size_t length = std::min(name.size(), sizeof stream.record.name - 1);
    stream.record.id = stream.next + stream.dots;
    std::memcpy(stream.record.name, name.data(), length);
    stream.record.name[length] = '\0';
    return true;
}

}  // namespace

int ZdvfsStat(const char* path, ZdvfsStatRecord* record) {
    return Run([&] {
        if (path == nullptr) return EINVAL;
        const CPath name(path);
        const int error = NameTable().Visit(name.View(), Filling(record));
        return error == ENOENT ? StatGenerated(name.View(), record) : error;
    });
}

int ZdvfsFstat(int descriptor, ZdvfsStatRecord* record) {
    return OnDescriptor(descriptor, Filling(record));
}

int ZdvfsStatvfs(const char* path, ZdvfsVolumeRecord* record) {
    return OnPath(path, [record](const CNode&) {
        if (record == nullptr) return EINVAL;
        *record = ZdvfsVolumeRecord{kBlockSize, kTotalBlocks, kTotalBlocks / 2, {}};
        return 0;
    });
}

ZdvfsDirectory* ZdvfsOpendir(const char* path) {
    ZdvfsDirectory* opened = nullptr;
    Run([&] {
        if (path == nullptr) return EINVAL;
        const CNodeRef node = NameTable().Find(CPath(path).View());
        if (!node) return ENOENT;
        if (!node->m_isDirectory) return ENOTDIR;
        opened = std::make_unique<ZdvfsDirectory>(node).release();
        return 0;
    });
    return opened;
}

ZdvfsDirectory* ZdvfsOpendirForList(const char* path, int /*refresh*/) {
    return ZdvfsOpendir(path);
}

ZdvfsDirectoryRecord* ZdvfsReaddir(ZdvfsDirectory* directory) {
    if (directory == nullptr) {
        Fail(EBADF);
        return nullptr;
    }
    return Advance(*directory) ? &directory->record : nullptr;
}

int ZdvfsClosedir(ZdvfsDirectory* directory) {
    if (directory == nullptr) return Fail(EBADF);
    delete directory;
    return 0;
}

int ZdvfsMkdir(const char* path, int mode) {
    return Run([&] {
        CNodeRef made;
        if (path == nullptr) return EINVAL;
        return NameTable().Create(CPath(path).View(), true, static_cast<std::uint16_t>(mode), made);
    });
}

int ZdvfsUnlink(const char* path) {
    return Run([&] { return path == nullptr ? EINVAL : NameTable().Remove(CPath(path).View()); });
}

int ZdvfsRename(const char* oldPath, const char* newPath) {
    return Run([&] {
        if (oldPath == nullptr || newPath == nullptr) return EINVAL;
        return NameTable().Rename(CPath(oldPath).View(), CPath(newPath).View());
    });
}

int ZdvfsChmod(const char* path, uint32_t mode) {
    return OnPath(path, [mode](CNode& node) {
        node.m_attributes = static_cast<std::uint16_t>(mode);
        return 0;
    });
}

int ZdvfsUtime(const char* path, const ZdvfsTimes* times) {
    return OnPath(path, [times](CNode& node) {
        if (times == nullptr) return EINVAL;
        node.m_accessTime = times->access;
        node.m_modificationTime = times->modification;
        return 0;
    });
}

int ZdvfsGetNTAclStr(const char* path, char* buffer, int size) {
    return OnPath(path, Reading(buffer, size));
}

int ZdvfsFgetNTAclStr(int descriptor, char* buffer, int size) {
    return OnDescriptor(descriptor, Reading(buffer, size));
}

int ZdvfsGetDsidNTAclStr(const char* path, char* buffer, int size, int* flag) {
    return OnPath(path, Reading(buffer, size, flag));
}

int ZdvfsFgetDsidNTAclStr(int descriptor, char* buffer, int size, int* flag) {
    return OnDescriptor(descriptor, Reading(buffer, size, flag));
}

int ZdvfsSetNTAclStr(const char* path, const char* text) {
    return OnPath(path, Storing(text));
}

int ZdvfsFsetNTAclStr(int descriptor, const char* text) {
    return OnDescriptor(descriptor, Storing(text));
}
