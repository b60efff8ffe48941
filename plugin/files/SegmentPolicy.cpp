#include "files/SegmentPolicy.h"

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>

#include "base/Conversion.h"
#include "log/Log.h"
#include "zdvfs.h"

namespace zd {
namespace {

constexpr wchar_t kDatabaseDirectory[] = L"\\vdb_";
constexpr int kLengthOfSize = 4;

// Sizes that the storage's signed number cannot hold count as none.
std::int32_t Usable(std::uint32_t bytes) noexcept {
    constexpr auto kLargest = static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max());
    return bytes > kLargest ? 0 : static_cast<std::int32_t>(bytes);
}

// Replaces every `from` by `to`; answers how many, 0 at once when they are equal.
std::size_t ReplaceCharacter(std::wstring& text, wchar_t from, wchar_t to) noexcept {
    if (from == to) return 0;
    std::size_t replaced = 0;
    for (wchar_t& unit : text) {
        if (unit != from) continue;
        unit = to;
        ++replaced;
    }
    return replaced;
}

bool IsInDatabaseDirectory(const wchar_t* name) {
    std::wstring lower(name);
    for (wchar_t& unit : lower) {
        if (unit >= L'A' && unit <= L'Z') unit = static_cast<wchar_t>(unit - L'A' + L'a');
    }
    ReplaceCharacter(lower, L'/', L'\\');
    return lower.find(kDatabaseDirectory) != std::wstring::npos;
}

std::int32_t SizeOfExtension(const std::vector<CExtensionSegment>& segments, const wchar_t* name) noexcept {
    const std::size_t length = std::wstring_view(name).size();
    for (const CExtensionSegment& segment : segments) {
        const std::size_t tail = segment.extension.size();
        if (tail > length || CompareNoCase(name + length - tail, segment.extension.c_str()) != 0) continue;
        return Usable(segment.bytes);
    }
    return 0;
}

void SetSegment(int descriptor, int request, std::int32_t size, const wchar_t* name, const char* what) {
    if (::ZdvfsIoctl(descriptor, request, size, kLengthOfSize) != 0) return;
    LogMade(kLogNotice, [&] { return FormatText("%s of %s set to %d\n", what, NameForLog(name).c_str(), size); });
}

}  // namespace

std::int32_t ApplySegmentSize(const CFilePolicy& policy, int descriptor, const wchar_t* name,
                              std::uint32_t cacheFlags) {
    const std::int32_t databaseSize = Usable(policy.edbSegmentSize);
    const std::int32_t size = databaseSize != 0 && IsInDatabaseDirectory(name)
                                  ? databaseSize
                                  : SizeOfExtension(policy.extensionSegments, name);
    if (size == 0) return 0;
    SetSegment(descriptor, kZdvfsIoctlSetSegmentSize, size, name, "Segment size");
    if ((cacheFlags & kZdvfsDirectIo) != 0) {
        SetSegment(descriptor, kZdvfsIoctlSetStreamSegmentSize, size, name, "Stream segment size");
    }
    return size;
}

}  // namespace zd
