// Security descriptors, kept as the text that callers give.
#include <cstring>

#include "Descriptors.h"
#include "ErrorTable.h"
#include "Guard.h"
#include "ObjectStore.h"
#include "zdvfs.h"

using namespace zd::engine;

namespace {

// The longest text that is taken: more than any descriptor's 64 KiB of binary form spell out to.
constexpr std::size_t kMaximumDescriptorText = 1u << 20;

std::string ReadByPath(const char* path) {
    const CLocation location = Resolve(path);
    const CPoolLock lock(location.pool.get());
    Require(location, lock);
    return ReadMetadata(location, lock).descriptor;
}

std::string ReadByDescriptor(int descriptor) {
    const auto file = Descriptors().Get(descriptor);
    const CPoolLock lock(file->location.pool.get());
    const std::optional<CLocation> location = Descriptors().Find(*file, lock);
    return location ? ReadMetadata(*location, lock).descriptor : file->metadataAtOpen.descriptor;
}

void Store(const CLocation& location, const char* text, const CPoolLock& lock) {
    const std::string_view descriptor = text ? text : "";
    if (descriptor.size() > kMaximumDescriptorText) FailInvalid();
    // A new descriptor makes damaged metadata whole again.
    Metadata metadata = ReadMetadataOrDefault(location, lock);
    metadata.descriptor = descriptor;
    WriteMetadata(location, metadata, lock);
}

void Answer(const std::string& text, char* buffer, int size) {
    if (text.size() >= static_cast<std::size_t>(size)) Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(buffer, text.c_str(), text.size() + 1);
}

template <class Read>
int Query(char* buffer, int size, int* flag, Read&& read) {
    return GuardedCall([&] {
        if (!buffer || size <= 0) FailInvalid();
        const std::string text = read();
        Answer(text, buffer, size);
        if (flag) *flag = text.empty() ? 1 : 0;
    });
}

}  // namespace

int ZdvfsGetNTAclStr(const char* path, char* buffer, int size) {
    return Query(buffer, size, nullptr, [&] { return ReadByPath(path); });
}

int ZdvfsFgetNTAclStr(int descriptor, char* buffer, int size) {
    return Query(buffer, size, nullptr, [&] { return ReadByDescriptor(descriptor); });
}

int ZdvfsGetDsidNTAclStr(const char* path, char* buffer, int size, int* flag) {
    return Query(buffer, size, flag, [&] { return ReadByPath(path); });
}

int ZdvfsFgetDsidNTAclStr(int descriptor, char* buffer, int size, int* flag) {
    return Query(buffer, size, flag, [&] { return ReadByDescriptor(descriptor); });
}

int ZdvfsSetNTAclStr(const char* path, const char* text) {
    return GuardedCall([&] {
        const CLocation location = Resolve(path);
        if (location.IsPlace()) Fail(ERROR_ACCESS_DENIED);
        const CPoolLock lock(location.pool.get());
        Require(location, lock);
        Store(location, text, lock);
    });
}

int ZdvfsFsetNTAclStr(int descriptor, const char* text) {
    return GuardedCall([&] {
        const auto file = Descriptors().Get(descriptor);
        const CPoolLock lock(file->location.pool.get());
        const std::optional<CLocation> location = Descriptors().Find(*file, lock);
        if (!location) Fail(ERROR_FILE_NOT_FOUND);
        Store(*location, text, lock);
    });
}
