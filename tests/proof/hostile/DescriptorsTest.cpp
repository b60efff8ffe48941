// Security descriptors of any bytes from the host, and of any text from the storage.
#include "HostileFixture.h"

namespace zd::test {

namespace {

constexpr std::uint64_t kCases = 2000;

// The plug-in believes the offsets and lengths in a descriptor, and so does the system below it: those that point out
// of the block end the process. True as soon as it looks at them itself.
constexpr bool kOffsetsAreChecked = true;
// The same of stored texts: some systems' conversion ends the process at an empty part with a second colon behind it,
// and never comes back from an identifier with anything but numbers in it.
constexpr bool kTextsAreChecked = true;

std::string HostDescriptor(CRandom& random) {
    std::string bytes = random.OneIn(4) ? ValidDescriptor(random) : AnyDescriptor(random);
    return kOffsetsAreChecked || LiesInItsBlock(bytes) ? bytes : ValidDescriptor(random);
}

// Whether each identifier written out is made of numbers.
bool HasPlainSids(const std::string& text) {
    for (std::size_t at = text.find("S-"); at != std::string::npos; at = text.find("S-", at + 1)) {
        std::size_t end = text.find_first_not_of("0123456789-", at + 2);
        if (end == std::string::npos) end = text.size();
        if (text.find("--", at) < end || text[end - 1] == '-') return false;
        const bool isPart = end + 1 < text.size() && text[end + 1] == ':';
        if (end < text.size() && text[end] != ';' && text[end] != ')' && !isPart) return false;
    }
    return true;
}

std::string StoredText(CRandom& random) {
    std::string text = AnySddl(random);
    const bool isHarmless = text.find("::") == std::string::npos && HasPlainSids(text);
    return kTextsAreChecked || isHarmless ? text : std::string();
}

}  // namespace

class HostileDescriptors : public CHostileDoubleTest {
protected:
    void SetUp() override {
        CHostileDoubleTest::SetUp();
        ASSERT_EQ(0U, Connect());
        m_standing = Create(L"\\standing").handle;
        m_file = Create(L"\\a.txt").handle;
        m_directory = Create(L"\\dir", {.isDirectory = 1}).handle;
    }

    void TearDown() override {
        for (const Handle handle : {m_standing, m_file, m_directory}) Close(handle);
        CHostileDoubleTest::TearDown();
    }

    // Answers whether the descriptor was taken.
    bool Give(CRandom& random, const std::string& bytes) {
        const CGuardedBytes descriptor(bytes);
        Note("descriptor %s", Shown(bytes).c_str());
        if (random.OneIn(2)) {
            const Handle handle = random.OneIn(3) ? m_directory : m_file;
            return m_manager->ZdSetSecurity(handle, random.Next(), descriptor.Data()) == 0;
        }
        const CreateOptions options{.isDirectory = random.OneIn(3) ? 1U : 0U,
                                    .disposition = static_cast<DWORD>(random.Number(6)),
                                    .access = random.OneIn(2) ? 0x3U : 0U,
                                    .descriptor = descriptor.Data()};
        const Created created = GuardedCreate(L"\\new", options);
        if (created.code != 0) return false;
        Close(created.handle);
        Double().Remove("pool/new");
        return true;
    }

    Handle m_standing = 0;
    Handle m_file = 0;
    Handle m_directory = 0;
};

TEST_P(HostileDescriptors, OfTheHostNeverHarmThePlugin) {
    std::uint64_t taken = 0;
    ForEachCase("descriptors", kCases, [&](CRandom& random) {
        if (Give(random, HostDescriptor(random))) ++taken;
        Look({m_standing, m_file, m_directory});
    });
    std::printf("%llu of them taken\n", taken);
    EXPECT_LT(0U, taken);
}

TEST_P(HostileDescriptors, OfTheStorageNeverHarmThePlugin) {
    std::uint64_t read = 0;
    ForEachCase("stored texts", kCases, [&](CRandom& random) {
        NodeState state = Double().State("pool/a.txt");
        state.sddl = StoredText(random);
        if (random.OneIn(4)) state.dsidText = StoredText(random);
        if (random.OneIn(4)) state.dsidFlag = static_cast<int>(random.Word());
        Note("text %s", Shown(state.sddl).c_str());
        ASSERT_TRUE(Double().SetState("pool/a.txt", state));
        const CGuardedRecord<PSECURITY_DESCRIPTOR> descriptor;
        if (m_manager->ZdGetSecurity(m_file, random.Next(), &descriptor) == 0) {
            ++read;
            EXPECT_TRUE(::IsValidSecurityDescriptor(*descriptor));
            ::LocalFree(*descriptor);
        }
        const Created created = GuardedCreate(L"\\a.txt", {.disposition = static_cast<DWORD>(random.Number(6))});
        if (created.code == 0) Close(created.handle);
        Look({m_standing, m_file, m_directory});
    });
    std::printf("%llu of them read\n", read);
    EXPECT_LT(0U, read);
}

// The group's offset leads to the last bytes of the block, where there is no room for it.
TEST_P(HostileDescriptors, WithAPartBehindTheBlockAreRefused) {
    std::string bytes("\x01\x00\x00\x80\x14\x00\x00\x00\x24", 9);
    bytes.resize(sizeof(SECURITY_DESCRIPTOR_RELATIVE), '\0');
    bytes.append("\x01\x02\x00\x00\x00\x00\x00\x05\x20\x00\x00\x00\x20\x02\x00\x00\x01\x00\x00\x00", 20);
    // A whole page has a guard at either end.
    const CGuardedBytes page(std::string(4096 - bytes.size(), 'x') + bytes);
    void* const descriptor = static_cast<char*>(page.Data()) + 4096 - bytes.size();
    EXPECT_EQ(1338U, m_manager->ZdSetSecurity(m_file, 0, descriptor));
    EXPECT_EQ(1338U, GuardedCreate(L"\\new", {.descriptor = descriptor}).code);
}

TEST_P(HostileDescriptors, OfTextsThatTheSystemDoesNotSurviveAreRefused) {
    for (const char* text : {"O::BA", "D::(A;;FA;;;BA)",
                             "O:S-1-5-2\xDB-1-2-3-1001G:S-1-5-21-1-2-3\xB2"
                             "513D:P(A;;FA;;;BA)"}) {
        NodeState state = Double().State("pool/a.txt");
        state.sddl = text;
        ASSERT_TRUE(Double().SetState("pool/a.txt", state));
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        EXPECT_EQ(1338U, m_manager->ZdGetSecurity(m_file, 0, &descriptor)) << text;
        EXPECT_EQ(1338U, Create(L"\\a.txt").code) << text;
    }
}

// What the system writes itself is never taken for such a text.
TEST_P(HostileDescriptors, OfTheSystemsOwnTextsAreRead) {
    for (const char* text : {"O:S-1-5-21-1-2-3-1001G:S-1-5-21-1-2-3-513D:P(A;;0x1f01ff;;;S-1-5-21-1-2-3-1001)",
                             "O:BAG:SYD:", "O:S-1-5-18D:(A;;FA;;;WD)S:(AU;SAFA;FA;;;S-1-1-0)"}) {
        NodeState state = Double().State("pool/a.txt");
        state.sddl = text;
        ASSERT_TRUE(Double().SetState("pool/a.txt", state));
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        EXPECT_EQ(0U, m_manager->ZdGetSecurity(m_file, 0, &descriptor)) << text;
        ::LocalFree(descriptor);
    }
}

ZD_INSTANTIATE_GUARDS(HostileDescriptors);

}  // namespace zd::test
