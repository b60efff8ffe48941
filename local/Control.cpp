// Control requests: all succeed, and the pool remembers them.
#include <cstdarg>
#include <cstring>

#include "Descriptors.h"
#include "ErrorTable.h"
#include "Guard.h"
#include "RequestLog.h"
#include "zdvfs.h"

using namespace zd::engine;

namespace {

// The engine's own request: (char* buffer, int size) receives the text of the request log.
constexpr int kQueryRequests = 0x5A440001;

constexpr std::size_t kArgumentSlot = 8;
constexpr std::size_t kLocalityLength = 32;

// Hosts pass requests and their arguments through unseen, so an address is looked at before it is used.
bool IsReadable(const void* address, std::size_t length) {
    const auto* at = static_cast<const char*>(address);
    const char* end = at + length;
    while (at && at < end) {
        MEMORY_BASIC_INFORMATION region;
        if (::VirtualQuery(at, &region, sizeof region) == 0 || region.State != MEM_COMMIT) return false;
        if ((region.Protect & (PAGE_NOACCESS | PAGE_GUARD | PAGE_EXECUTE)) != 0) return false;
        at = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
    }
    return at != nullptr;
}

bool HasArguments(va_list arguments, std::size_t count) {
    return IsReadable(arguments, count * kArgumentSlot);
}

// The value that a request carries, as text; "-" where the engine does not know the request's arguments.
std::string ValueOf(int request, va_list arguments) {
    switch (request) {
        case kZdvfsIoctlSetSegmentSize:
        case kZdvfsIoctlSetEncryption:
        case kZdvfsIoctlSetCompression:
        case kZdvfsIoctlTaskTime:
        case kZdvfsIoctlSyncFileCount:
        case kZdvfsIoctlSetStreamSegmentSize:
            return HasArguments(arguments, 2) ? std::to_string(va_arg(arguments, int)) : "-";
        case kZdvfsIoctlSetStorageLocality: {
            if (!HasArguments(arguments, 5)) return "-";
            va_arg(arguments, void*);
            va_arg(arguments, int);
            const char* text = va_arg(arguments, const char*);
            std::string value;
            while (value.size() < kLocalityLength && IsReadable(text + value.size(), 1) && text[value.size()] != '\0') {
                value += text[value.size()];
            }
            return value;
        }
        default:
            return "-";
    }
}

CRequestLog ReadLog(const CPool& pool) {
    return CRequestLog(ReadWholeFile(pool.RequestFile()).value_or(""));
}

void Answer(const CPool& pool, va_list arguments) {
    if (!HasArguments(arguments, 2)) FailInvalid();
    char* buffer = va_arg(arguments, char*);
    const int size = va_arg(arguments, int);
    if (!buffer || size <= 0) FailInvalid();
    const CPoolLock lock(&pool);
    const std::string text = ReadLog(pool).FormatForQuery();
    if (text.size() >= static_cast<std::size_t>(size)) Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(buffer, text.c_str(), text.size() + 1);
}

void Remember(const CPool& pool, int request, const std::string& value, const std::string& path) {
    try {
        const CPoolLock lock(&pool);
        CRequestLog log = ReadLog(pool);
        log.Note(request, value, path, CurrentSeconds());
        ReplaceFile(pool.RequestFile(), pool.NewAside(), log.Format(), /*durable=*/false);
    } catch (const EngineError& error) {
        // The request itself has nothing that could fail.
        pool.Log(2,
                 "control request " + std::to_string(request) + " not noted: error " + std::to_string(error.windows));
    }
}

}  // namespace

int ZdvfsVIoctl(int descriptor, int request, va_list arguments) {
    return GuardedCall([&] {
        const auto file = Descriptors().Get(descriptor);
        const CLocation location = Descriptors().LocationOf(*file);
        if (request == kQueryRequests) {
            Answer(*location.pool, arguments);
        } else {
            Remember(*location.pool, request, ValueOf(request, arguments), location.Display());
        }
    });
}

int ZdvfsIoctl(int descriptor, int request, ...) {
    va_list arguments;
    va_start(arguments, request);
    const int result = ZdvfsVIoctl(descriptor, request, arguments);
    va_end(arguments);
    return result;
}
