#include "ObjectStore.h"

#include "Descriptors.h"
#include "ErrorTable.h"
#include "NameCodec.h"

namespace zd::engine {
namespace {

// What a file shows that somebody put into the pool's directory without the engine.
constexpr std::uint32_t kForeignFileAttributes = FILE_ATTRIBUTE_NORMAL;

Metadata DefaultMetadata(const CLocation& location) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!::GetFileAttributesExW(location.DataPath().c_str(), GetFileExInfoStandard, &data)) FailLast();
    Metadata metadata;
    const bool isFile = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
    metadata.attributes = isFile ? kForeignFileAttributes : 0;
    metadata.creationTime = SecondsOf(data.ftCreationTime);
    return metadata;
}

// A shortened name on disk stands for the name that its sidecar holds, and for no other of the same hash.
bool HasItsLongName(const std::wstring& sidecar, const std::string& name) {
    const auto metadata = ParseMetadata(ReadWholeFile(sidecar).value_or(""));
    return metadata && metadata->longName == name;
}

bool LongNamesMatch(const CLocation& location) {
    // Only a name of more than a third of the limit can have been shortened.
    CLocation prefix{location.pool, {}};
    for (const std::string& name : location.names) {
        prefix.names.push_back(name);
        if (name.size() * 3 <= kMaximumEncodedLength || !IsHashedName(NameOnDisk(name))) continue;
        if (!HasItsLongName(prefix.SidecarPath(), name)) return false;
    }
    return true;
}

Metadata FreshMetadata(const CLocation& location, std::uint32_t attributes) {
    Metadata metadata;
    metadata.attributes = attributes;
    metadata.creationTime = CurrentSeconds();
    if (IsHashedName(NameOnDisk(location.names.back()))) metadata.longName = location.names.back();
    return metadata;
}

// Writes the sidecar of an object under the name that the object is about to get.
void CopySidecar(const CLocation& from, const CLocation& to, const CPoolLock& lock) {
    const bool longName = IsHashedName(NameOnDisk(to.names.back()));
    const std::optional<std::string> text = ReadWholeFile(from.SidecarPath());
    std::optional<Metadata> metadata = text ? ParseMetadata(*text) : DefaultMetadata(from);
    if (metadata) {
        metadata->longName = longName ? to.names.back() : std::string();
        WriteMetadata(to, *metadata, lock);
        return;
    }
    // Damaged metadata goes along as it is, so that its object is not taken for one that never had any.
    if (longName) Fail(ERROR_FILE_CORRUPT);
    ReplaceFile(to.SidecarPath(), to.pool->NewAside(), *text, to.pool->IsDurable());
}

// The name that an entry of the file system stands for; empty for the engine's own files and for what is no name.
std::string VisibleName(const CLocation& directory, const std::wstring& entry) {
    const std::string onDisk = Narrow(entry);
    if (auto name = NameFromDisk(onDisk)) return *std::move(name);
    if (!IsHashedName(onDisk)) return {};
    const std::wstring sidecar = directory.DataPath() + L'\\' + WidenAscii(kSidecarPrefix) + entry;
    auto metadata = ParseMetadata(ReadWholeFile(sidecar).value_or(""));
    if (!metadata || NameOnDisk(metadata->longName) != onDisk) return {};
    return std::move(metadata->longName);
}

}  // namespace

ObjectKind Look(const CLocation& location, const CPoolLock&) {
    const ObjectKind kind = KindOf(location.DataPath());
    if (kind != ObjectKind::kMissing && !LongNamesMatch(location)) return ObjectKind::kMissing;
    return kind;
}

ObjectKind Require(const CLocation& location, const CPoolLock& lock) {
    const ObjectKind kind = Look(location, lock);
    if (kind == ObjectKind::kMissing) FailMissing(location, lock);
    return kind;
}

void RequireDirectory(const CLocation& location, const CPoolLock& lock) {
    if (Require(location, lock) != ObjectKind::kDirectory) Fail(ERROR_DIRECTORY);
}

void RequireParent(const CLocation& location, const CPoolLock& lock) {
    const ObjectKind kind = Look(location.Parent(), lock);
    if (kind == ObjectKind::kMissing) FailMissing(location, lock);
    if (kind == ObjectKind::kFile) Fail(ERROR_DIRECTORY);
}

void FailMissing(const CLocation& location, const CPoolLock& lock) {
    CLocation parent{location.pool, {}};
    for (std::size_t i = 0; i + 1 < location.names.size(); ++i) {
        parent.names.push_back(location.names[i]);
        const ObjectKind kind = Look(parent, lock);
        if (kind == ObjectKind::kFile) Fail(ERROR_DIRECTORY);
        if (kind == ObjectKind::kMissing) Fail(ERROR_PATH_NOT_FOUND);
    }
    Fail(ERROR_FILE_NOT_FOUND);
}

Metadata ReadMetadata(const CLocation& location, const CPoolLock&) {
    if (location.IsPlace()) return {};
    const std::optional<std::string> text = ReadWholeFile(location.SidecarPath());
    if (!text) return DefaultMetadata(location);
    std::optional<Metadata> metadata = ParseMetadata(*text);
    if (!metadata) {
        location.pool->Log(1, "damaged metadata of " + location.Display());
        Fail(ERROR_FILE_CORRUPT);
    }
    return *std::move(metadata);
}

Metadata ReadMetadataOrDefault(const CLocation& location, const CPoolLock& lock) {
    try {
        return ReadMetadata(location, lock);
    } catch (const EngineError& error) {
        if (error.windows != ERROR_FILE_CORRUPT) throw;
        return DefaultMetadata(location);
    }
}

void WriteMetadata(const CLocation& location, const Metadata& metadata, const CPoolLock&) {
    const CPool& pool = *location.pool;
    ReplaceFile(location.SidecarPath(), pool.NewAside(), FormatMetadata(metadata), pool.IsDurable());
}

CUniqueHandle CreateFileObject(const CLocation& location, std::uint32_t attributes, DWORD access, DWORD flags,
                               const CPoolLock& lock) {
    RequireParent(location, lock);
    WriteMetadata(location, FreshMetadata(location, attributes), lock);
    try {
        return OpenHandle(location.DataPath(), access, CREATE_NEW, flags);
    } catch (...) {
        RemoveFile(location.SidecarPath());
        throw;
    }
}

void CreateDirectoryObject(const CLocation& location, std::uint32_t attributes, const CPoolLock& lock) {
    RequireParent(location, lock);
    WriteMetadata(location, FreshMetadata(location, attributes), lock);
    if (::CreateDirectoryW(location.DataPath().c_str(), nullptr)) return;
    const DWORD error = ::GetLastError();
    RemoveFile(location.SidecarPath());
    Fail(error);
}

void RemoveObject(const CLocation& location, const CPoolLock& lock) {
    if (Require(location, lock) == ObjectKind::kDirectory && !ListObjects(location, lock).empty()) {
        Fail(ERROR_DIR_NOT_EMPTY);
    }
    // An open file keeps its name until its last handle is closed, so it goes under another name first.
    const std::wstring trash = location.pool->NewTrash();
    MoveNew(location.DataPath(), trash);
    RemoveFile(location.SidecarPath());
    if (!RemoveTree(trash)) location.pool->Log(2, "left for a later mount to remove: " + Narrow(trash));
}

void RenameObject(const CLocation& from, const CLocation& to, const CPoolLock& lock) {
    Require(from, lock);
    if (from == to) return;
    if (from.Contains(to)) FailInvalid();
    if (Look(to, lock) != ObjectKind::kMissing) Fail(ERROR_ALREADY_EXISTS);
    RequireParent(to, lock);

    CopySidecar(from, to, lock);
    try {
        MoveNew(from.DataPath(), to.DataPath());
    } catch (...) {
        RemoveFile(to.SidecarPath());
        throw;
    }
    RemoveFile(from.SidecarPath());
    Descriptors().ObjectMoved(from, to);
}

std::vector<std::string> ListObjects(const CLocation& directory, const CPoolLock&) {
    std::vector<std::string> names;
    for (const std::wstring& entry : NamesIn(directory.DataPath())) {
        std::string name = VisibleName(directory, entry);
        if (!name.empty()) names.push_back(std::move(name));
    }
    return names;
}

}  // namespace zd::engine
