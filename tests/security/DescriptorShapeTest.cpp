// What is taken for a descriptor, and for a text of one, before the system's functions get to see it.
#include "security/SecurityDescriptors.h"

#include <gtest/gtest.h>
#include <sddl.h>

#include <cstring>
#include <string>
#include <vector>

namespace zd::test {
namespace {

using Bytes = std::vector<BYTE>;

constexpr std::size_t kPage = 4096;

// Bytes that end where memory ends.
class CAtTheEdge {
public:
    explicit CAtTheEdge(const Bytes& bytes) : m_pages(static_cast<BYTE*>(Reserve(MEM_RESERVE | MEM_COMMIT))) {
        DWORD before = 0;
        ::VirtualProtect(m_pages + kPage, kPage, PAGE_NOACCESS, &before);
        m_bytes = m_pages + kPage - bytes.size();
        if (!bytes.empty()) std::memcpy(m_bytes, bytes.data(), bytes.size());
    }
    CAtTheEdge(const CAtTheEdge&) = delete;
    CAtTheEdge& operator=(const CAtTheEdge&) = delete;
    ~CAtTheEdge() { ::VirtualFree(m_pages, 0, MEM_RELEASE); }

    void* Data() const { return m_bytes; }

    static void* Reserve(DWORD type) { return ::VirtualAlloc(nullptr, 2 * kPage, type, PAGE_READWRITE); }

private:
    BYTE* m_pages;
    BYTE* m_bytes = nullptr;
};

bool IsWhole(const Bytes& bytes) {
    const CAtTheEdge edge(bytes);
    return IsWholeDescriptor(edge.Data());
}

Bytes OfText(const char* text) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    EXPECT_NE(FALSE,
              ::ConvertStringSecurityDescriptorToSecurityDescriptorA(text, SDDL_REVISION_1, &descriptor, nullptr));
    const auto* const first = static_cast<const BYTE*>(descriptor);
    Bytes bytes(first, first + ::GetSecurityDescriptorLength(descriptor));
    ::LocalFree(descriptor);
    return bytes;
}

Bytes Whole() {
    return OfText("O:BAG:SYD:(A;;GA;;;BA)(D;;GR;;;WD)S:(AU;SA;GA;;;WD)");
}

SECURITY_DESCRIPTOR_RELATIVE& Head(Bytes& bytes) {
    return *reinterpret_cast<SECURITY_DESCRIPTOR_RELATIVE*>(bytes.data());
}

ACL& ListAt(Bytes& bytes, DWORD offset) {
    return *reinterpret_cast<ACL*>(bytes.data() + offset);
}

ACCESS_ALLOWED_ACE& FirstEntry(Bytes& bytes) {
    return *reinterpret_cast<ACCESS_ALLOWED_ACE*>(bytes.data() + Head(bytes).Dacl + sizeof(ACL));
}

SID& SidAt(Bytes& bytes, DWORD offset) {
    return *reinterpret_cast<SID*>(bytes.data() + offset);
}

TEST(DescriptorShape, AWholeDescriptorPassesAndNoneThatIsCutShort) {
    const Bytes whole = Whole();
    EXPECT_TRUE(IsWhole(whole));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(IsWhole(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)))) << length;
    }
}

TEST(DescriptorShape, PartsMayBeMissing) {
    EXPECT_TRUE(IsWhole(OfText("O:BA")));
    EXPECT_TRUE(IsWhole(OfText("D:")));
    Bytes bytes = Whole();
    Head(bytes).Owner = Head(bytes).Group = Head(bytes).Sacl = Head(bytes).Dacl = 0;
    EXPECT_TRUE(IsWhole(bytes));
}

TEST(DescriptorShape, EachPartMustBeWhatItClaims) {
    static const struct {
        const char* what;
        bool isWhole;
        void (*change)(Bytes& bytes);
    } kRows[] = {
        {"owner outside", false, [](Bytes& b) { Head(b).Owner = static_cast<DWORD>(b.size()); }},
        {"group outside", false, [](Bytes& b) { Head(b).Group = static_cast<DWORD>(b.size()); }},
        {"access list outside", false, [](Bytes& b) { Head(b).Dacl = static_cast<DWORD>(b.size()); }},
        {"audit list outside", false, [](Bytes& b) { Head(b).Sacl = static_cast<DWORD>(b.size()); }},
        {"owner of another revision", false, [](Bytes& b) { SidAt(b, Head(b).Owner).Revision = 2; }},
        {"owner with too many numbers", false, [](Bytes& b) { SidAt(b, Head(b).Owner).SubAuthorityCount = 16; }},
        {"group beyond its memory", false,
         [](Bytes& b) {
             Head(b).Group = static_cast<DWORD>(b.size());
             const Bytes head = {SID_REVISION, 15, 0, 0, 0, 0, 0, 5};
             b.insert(b.end(), head.begin(), head.end());
         }},
        {"list shorter than its head", false, [](Bytes& b) { ListAt(b, Head(b).Dacl).AclSize = 7; }},
        {"list longer than its memory", false, [](Bytes& b) { ListAt(b, Head(b).Dacl).AclSize = 0x7FFF; }},
        {"more entries than fit", false, [](Bytes& b) { ListAt(b, Head(b).Dacl).AceCount = 3; }},
        {"audit entries that do not fit", false, [](Bytes& b) { ListAt(b, Head(b).Sacl).AceCount = 2; }},
        {"entry longer than its list", false, [](Bytes& b) { FirstEntry(b).Header.AceSize = 0x1000; }},
        {"entry without room for its SID", false, [](Bytes& b) { FirstEntry(b).Header.AceSize = 8; }},
        {"entry with a cut head of a SID", false, [](Bytes& b) { FirstEntry(b).Header.AceSize = 12; }},
        {"SID longer than its entry", false, [](Bytes& b) { FirstEntry(b).Header.AceSize = 16; }},
        {"SID of another revision", false,
         [](Bytes& b) { reinterpret_cast<SID&>(FirstEntry(b).SidStart).Revision = 0; }},
        {"SID with too many numbers", false,
         [](Bytes& b) { reinterpret_cast<SID&>(FirstEntry(b).SidStart).SubAuthorityCount = 16; }},
        {"entry of a kind left to the system", true,
         [](Bytes& b) { FirstEntry(b).Header.AceType = SYSTEM_ALARM_ACE_TYPE + 1; }},
        {"such an entry without a head", false,
         [](Bytes& b) {
             FirstEntry(b).Header.AceType = SYSTEM_ALARM_ACE_TYPE + 1;
             FirstEntry(b).Header.AceSize = 3;
         }},
    };
    for (const auto& row : kRows) {
        Bytes bytes = Whole();
        row.change(bytes);
        EXPECT_EQ(row.isWhole, IsWhole(bytes)) << row.what;
    }
}

TEST(DescriptorShape, PartsOfAnAbsoluteOneMayLieAnywhereThatCanBeRead) {
    Bytes parts = Whole();
    SECURITY_DESCRIPTOR absolute{};
    absolute.Revision = SECURITY_DESCRIPTOR_REVISION;
    absolute.Control = SE_DACL_PRESENT | SE_SACL_PRESENT;
    absolute.Owner = &SidAt(parts, Head(parts).Owner);
    absolute.Group = &SidAt(parts, Head(parts).Group);
    absolute.Dacl = &ListAt(parts, Head(parts).Dacl);
    absolute.Sacl = &ListAt(parts, Head(parts).Sacl);
    EXPECT_TRUE(IsWholeDescriptor(&absolute));

    const CAtTheEdge nothing{Bytes()};
    const auto broken = [&absolute](auto change) {
        SECURITY_DESCRIPTOR copy = absolute;
        change(copy);
        return !IsWholeDescriptor(&copy);
    };
    EXPECT_TRUE(broken([&](SECURITY_DESCRIPTOR& d) { d.Owner = nothing.Data(); }));
    EXPECT_TRUE(broken([&](SECURITY_DESCRIPTOR& d) { d.Group = nothing.Data(); }));
    EXPECT_TRUE(broken([&](SECURITY_DESCRIPTOR& d) { d.Dacl = static_cast<PACL>(nothing.Data()); }));
    EXPECT_TRUE(broken([&](SECURITY_DESCRIPTOR& d) { d.Sacl = static_cast<PACL>(nothing.Data()); }));

    // Lists that are said to be absent are not looked at.
    absolute.Control = 0;
    absolute.Dacl = absolute.Sacl = static_cast<PACL>(nothing.Data());
    EXPECT_TRUE(IsWholeDescriptor(&absolute));
    const auto* const first = reinterpret_cast<const BYTE*>(&absolute);
    EXPECT_FALSE(IsWhole(Bytes(first, first + sizeof absolute - 1)));
}

TEST(DescriptorShape, MemoryThatCannotBeReadHoldsNone) {
    void* const reserved = CAtTheEdge::Reserve(MEM_RESERVE);
    EXPECT_FALSE(IsWholeDescriptor(reserved));
    ::VirtualFree(reserved, 0, MEM_RELEASE);
    EXPECT_FALSE(IsWholeDescriptor(nullptr));
    // Beyond what a process has, and around the end of all addresses.
    EXPECT_FALSE(IsWholeDescriptor(reinterpret_cast<void*>(0xFFFF800000000000U)));
    EXPECT_FALSE(IsWholeDescriptor(reinterpret_cast<void*>(0xFFFFFFFFFFFFFFF8U)));
}

TEST(DescriptorShape, TextsThatTheSystemStumblesOverAreRefused) {
    static constexpr struct {
        const char* text;
        bool isConvertible;
    } kRows[] = {
        {"", true},
        {"O:BAG:BAD:(A;;GA;;;BA)", true},
        {"O:S-1-5-18", true},
        {"O:S-1-5-18G:S-1-5-32-544D:(A;;GA;;;S-1-1-0)", true},
        {"D:(OA;;GA;;S-1;S-1-1-0)", true},
        {"O:S-0x1-0X5-0xabD:(A;;GA;;;WD)", true},
        {"O:S-1-0xa", true},
        {"O:S-1-0xagx", false},
        // No identifiers: at the very beginning, and inside a word.
        {"S-x", true},
        {"D:(A;;GA;;;US-x)", true},
        {"O:S-", false},
        {"O:S--1", false},
        {"O:S-1-", false},
        {"O:S-1-x", false},
        {"O:S-1-0x", false},
        {"O:S-1-0x:", false},
        {"O:S-1-0xA:", false},
        {"O:S-1-5G", false},
        {"O:S-1-5 G:BA", false},
        {"D:(A;;GA;;;S-1-1-0x)", false},
        {"O::", false},
        {"D:(A;;GA;;;BA)::", false},
        {"D:(XA;;GA;;;WD;(@User.a == \"::\"))", true},
    };
    for (const auto& row : kRows) EXPECT_EQ(row.isConvertible, IsConvertible(row.text)) << row.text;
}

}  // namespace
}  // namespace zd::test
