// What the system's functions believe of a descriptor without looking: that its offsets and lengths lead to memory that
// is there, and of a text, that it is one.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "security/SecurityDescriptors.h"

namespace zd {
namespace {

constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";

// In numbers: the compiler takes it that a pointer's sum never wraps, and would leave the test for that out.
bool IsReadable(const BYTE* first, std::size_t bytes) noexcept {
    constexpr DWORD kOutOfReach = PAGE_NOACCESS | PAGE_GUARD | PAGE_EXECUTE;
    auto at = reinterpret_cast<std::uintptr_t>(first);
    const std::uintptr_t end = at + bytes;
    if (end < at) return false;
    while (at < end) {
        MEMORY_BASIC_INFORMATION region;
        if (::VirtualQuery(reinterpret_cast<const void*>(at), &region, sizeof region) == 0) return false;
        if (region.State != MEM_COMMIT || (region.Protect & kOutOfReach) != 0) return false;
        at = reinterpret_cast<std::uintptr_t>(region.BaseAddress) + region.RegionSize;
    }
    return true;
}

// The bytes of a SID whose head lies within `room` bytes; 0 where it is none, or longer.
std::size_t SidBytes(const BYTE* at, std::size_t room) noexcept {
    constexpr std::size_t kHead = 8;
    if (room < kHead || at[0] != SID_REVISION || at[1] > SID_MAX_SUB_AUTHORITIES) return 0;
    const std::size_t bytes = kHead + at[1] * sizeof(DWORD);
    return bytes <= room ? bytes : 0;
}

bool IsSid(const BYTE* at) noexcept {
    constexpr std::size_t kHead = 8;
    if (!IsReadable(at, kHead) || at[1] > SID_MAX_SUB_AUTHORITIES) return false;
    const std::size_t bytes = kHead + at[1] * sizeof(DWORD);
    return IsReadable(at, bytes) && SidBytes(at, bytes) != 0;
}

// The entries of the kinds that carry one mask and one SID; others are the system's business.
bool IsEntry(const ACE_HEADER& header, const BYTE* at) noexcept {
    constexpr std::size_t kBeforeSid = sizeof(ACE_HEADER) + sizeof(ACCESS_MASK);
    if (header.AceType > SYSTEM_ALARM_ACE_TYPE) return header.AceSize >= sizeof header;
    return header.AceSize > kBeforeSid && SidBytes(at + kBeforeSid, header.AceSize - kBeforeSid) != 0;
}

bool IsAcl(const BYTE* at) {
    if (!IsReadable(at, sizeof(ACL))) return false;
    ACL head;
    std::memcpy(&head, at, sizeof head);
    if (head.AclSize < sizeof head || !IsReadable(at, head.AclSize)) return false;
    std::size_t used = sizeof head;
    for (WORD i = 0; i < head.AceCount; ++i) {
        if (used + sizeof(ACE_HEADER) > head.AclSize) return false;
        ACE_HEADER entry;
        std::memcpy(&entry, at + used, sizeof entry);
        if (used + entry.AceSize > head.AclSize || !IsEntry(entry, at + used)) return false;
        used += entry.AceSize;
    }
    return true;
}

// One of the parts: none at all, or what it has to be.
template <class Test>
bool IsNoneOr(const void* part, Test test) {
    return part == nullptr || test(static_cast<const BYTE*>(part));
}

const void* At(const BYTE* base, DWORD offset) noexcept {
    return offset == 0 ? nullptr : base + offset;
}

// Skips the numbers of an identifier behind "S-". False where there is anything else.
bool SkipNumbers(std::string_view& text) noexcept {
    for (;;) {
        const bool isHex = text.starts_with("0x") || text.starts_with("0X");
        if (isHex) text.remove_prefix(2);
        std::size_t end = std::min(text.find_first_not_of(isHex ? kHexDigits : kDigits), text.size());
        // "D:" may follow at once.
        if (isHex && end > 0 && end < text.size() && text[end] == ':') --end;
        if (end == 0) return false;
        text.remove_prefix(end);
        if (!text.starts_with('-')) return true;
        text.remove_prefix(1);
    }
}

// Between the parts: inside the parentheses of an entry it may stand in a condition.
bool HasDoubledColon(std::string_view text) noexcept {
    int depth = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        depth += text[i] == '(' ? 1 : text[i] == ')' ? -1 : 0;
        if (depth == 0 && text.substr(i).starts_with("::")) return true;
    }
    return false;
}

}  // namespace

bool IsWholeDescriptor(PSECURITY_DESCRIPTOR descriptor) {
    const auto* const base = static_cast<const BYTE*>(descriptor);
    if (!IsReadable(base, sizeof(SECURITY_DESCRIPTOR_RELATIVE))) return false;
    SECURITY_DESCRIPTOR_RELATIVE relative;
    std::memcpy(&relative, base, sizeof relative);
    if ((relative.Control & SE_SELF_RELATIVE) != 0) {
        return IsNoneOr(At(base, relative.Owner), IsSid) && IsNoneOr(At(base, relative.Group), IsSid) &&
               ((relative.Control & SE_SACL_PRESENT) == 0 || IsNoneOr(At(base, relative.Sacl), IsAcl)) &&
               ((relative.Control & SE_DACL_PRESENT) == 0 || IsNoneOr(At(base, relative.Dacl), IsAcl));
    }
    if (!IsReadable(base, sizeof(SECURITY_DESCRIPTOR))) return false;
    SECURITY_DESCRIPTOR absolute;
    std::memcpy(&absolute, base, sizeof absolute);
    return IsNoneOr(absolute.Owner, IsSid) && IsNoneOr(absolute.Group, IsSid) &&
           ((absolute.Control & SE_SACL_PRESENT) == 0 || IsNoneOr(absolute.Sacl, IsAcl)) &&
           ((absolute.Control & SE_DACL_PRESENT) == 0 || IsNoneOr(absolute.Dacl, IsAcl));
}

bool IsConvertible(std::string_view text) noexcept {
    if (HasDoubledColon(text)) return false;
    for (std::size_t at = text.find("S-"); at != std::string_view::npos; at = text.find("S-")) {
        // An identifier stands at the beginning of a part or of a field.
        const bool isIdentifier = at > 0 && (text[at - 1] == ':' || text[at - 1] == ';');
        text.remove_prefix(at + 2);
        if (!isIdentifier) continue;
        if (!SkipNumbers(text)) return false;
        const bool isPart = text.size() > 1 && text[1] == ':';
        if (!text.empty() && text[0] != ';' && text[0] != ')' && !isPart) return false;
    }
    return true;
}

}  // namespace zd
