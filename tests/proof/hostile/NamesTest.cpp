// Names of any kind, through every operation that takes one.
#include "CanaryTree.h"
#include "HostileFixture.h"

namespace zd::test {

namespace {

constexpr std::uint64_t kDoubleCases = 12000;
constexpr std::uint64_t kLocalCases = 1200;
constexpr std::uint64_t kConnectCases = 1500;

CreateOptions AnyOptions(CRandom& random) {
    static const std::vector<DWORD> kAttributes = {0,
                                                   FILE_ATTRIBUTE_NORMAL,
                                                   FILE_ATTRIBUTE_TEMPORARY,
                                                   FILE_FLAG_BACKUP_SEMANTICS,
                                                   FILE_FLAG_DELETE_ON_CLOSE,
                                                   FILE_FLAG_SEQUENTIAL_SCAN,
                                                   FILE_ATTRIBUTE_REPARSE_POINT};
    static const std::vector<DWORD> kAccess = {0, 1, 2, 3, 4, 0x20, MAXIMUM_ALLOWED, GENERIC_ALL, 0xFFFFFFFF};
    CreateOptions options;
    options.isDirectory = random.OneIn(3) ? 1 : 0;
    options.attributes = random.OneIn(8) ? random.Word() : random.Of(kAttributes);
    options.disposition = random.OneIn(30) ? random.Word() : static_cast<DWORD>(random.Number(7));
    options.access = random.Of(kAccess);
    return options;
}

// Works on an object that a hostile name has opened, and takes most of them away again.
template <class Test>
void UseAndClose(Test& test, IProtocolManager& manager, Handle handle, CRandom& random) {
    test.GuardedQuery(handle);
    test.GuardedList(handle);
    if (random.OneIn(2)) test.GuardedWrite(handle, AnyNumber(random, 1000), random.Bytes(random.Number(40)));
    if (random.OneIn(2)) {
        const std::wstring name = AnyName(random);
        Note("ZdRenameFile to %s", Shown(name).c_str());
        manager.ZdRenameFile(handle, CGuardedName(name), random.OneIn(2));
    }
    if (random.OneIn(3)) {
        const CGuardedRecord<PSECURITY_DESCRIPTOR> descriptor;
        if (manager.ZdGetSecurity(handle, random.Next(), &descriptor) == 0) ::LocalFree(*descriptor);
    }
    if (random.OneIn(4)) manager.ZdSetFileBasicInfo(handle, 0, 1, AnyNumber(random, 1 << 20), 0, random.Word());
    manager.ZdCloseFile(handle, random.OneIn(5) ? 0 : 1);
    manager.ZdReleaseFile(handle);
}

void SetAndReadLabel(IProtocolManager& manager, const std::wstring& name) {
    manager.ZdSetVolumeLabel(CGuardedName(name));
    const CGuardedRecord<VolumeInformation> volume;
    manager.ZdQueryVolumeInfo(4, &volume);
    EXPECT_EQ(name.substr(0, 127), (*volume).label);
}

}  // namespace

template <class Fixture>
class CNamesTest : public CHostileTest<Fixture> {
public:
    using CHostileTest<Fixture>::GuardedQuery;
    using CHostileTest<Fixture>::GuardedList;
    using CHostileTest<Fixture>::GuardedWrite;

protected:
    void UseName(CRandom& random) {
        IProtocolManager& manager = *this->m_manager;
        const std::wstring name = AnyName(random);
        Note("name %s", Shown(name).c_str());
        switch (random.Number(8)) {
            case 0: {
                const CGuardedRecord<FileInformation> information;
                manager.ZdQueryPathInfo(CGuardedName(name), &information);
                break;
            }
            case 1:
                manager.ZdControlPath(CGuardedName(random.OneIn(3) ? name : L"\\\\.zdvfs\\" + name));
                break;
            case 2:
                SetAndReadLabel(manager, name);
                break;
            default: {
                const CreateOptions options = AnyOptions(random);
                Note("ZdCreateFile directory %lu attributes %#lx disposition %lu access %#lx", options.isDirectory,
                     options.attributes, options.disposition, options.access);
                const Created created = this->GuardedCreate(name, options);
                if (created.code != 0) {
                    EXPECT_EQ(kUntouchedHandle, created.handle);
                    break;
                }
                ++m_opened;
                UseAndClose(*this, manager, created.handle, random);
            }
        }
        this->Look({m_standing});
    }

    // Names that are all refused would prove little.
    void ExpectManyOpened(std::uint64_t cases) {
        std::printf("%llu of them opened\n", m_opened);
        EXPECT_LE(ProofBudget(cases) / 20, m_opened);
    }

    Handle m_standing = 0;
    std::uint64_t m_opened = 0;
};

class HostileNames : public CNamesTest<CDoubleTest> {
protected:
    void SetUp() override {
        CNamesTest::SetUp();
        Double().MakeFile("canary/secret.txt", "keep out");
        Double().MakeFile("pool/a.txt", "hello");
        Double().MakeFile("pool/dir/b.txt", "hello");
        Double().MakeFile("pool/big", std::string(1 << 20, 'x'));
        Double().MakeFile("pool/big;F1", std::string(1 << 20, 'y'));
        Double().MakeFile("pool/big;F2", "z");
        ASSERT_EQ(0U, Connect());
        m_standing = Create(L"\\standing").handle;
    }
};

TEST_P(HostileNames, NeverHarmThePlugin) {
    ForEachCase("names", kDoubleCases, [this](CRandom& random) { UseName(random); });
    ExpectManyOpened(kDoubleCases);
    EXPECT_EQ("keep out", Double().Bytes("canary/secret.txt"));
    EXPECT_EQ(1700000000, Double().State("canary/secret.txt").accessTime);
    Close(m_standing);
}

TEST_P(HostileNames, OfPoolsNeverHarmThePlugin) {
    IProtocolManager* const other = NewManager();
    ForEachCase("pool names", kConnectCases, [&](CRandom& random) {
        std::wstring pool = AnyName(random);
        if (!pool.empty() && random.OneIn(2)) pool.erase(0, 1);
        const std::wstring second = AnyName(random), third = random.OneIn(2) ? AnyName(random) : L"";
        Note("pool %s second %s third %s", Shown(pool).c_str(), Shown(second).c_str(), Shown(third).c_str());
        const CGuardedRecord<ConnectParameters> parameters;
        *parameters = Parameters(pool, second, third);
        Double().MakeDirectory("pool");
        EXPECT_NO_THROW(other->ZdConnect(&parameters));
        other->ZdPathIoctl(1, 0);
        other->ZdRefreshSettings(1, true);
        if (random.OneIn(2)) other->ZdDisconnect();
        Look({m_standing});
    });
    other->ZdDisconnect();
    Close(m_standing);
}

TEST_P(HostileNames, InAListingNeverHarmThePlugin) {
    ForEachCase("listed names", kConnectCases, [this](CRandom& random) {
        std::vector<std::string> names;
        for (std::size_t i = random.Number(12); i > 0; --i) {
            std::string name = random.Bytes(random.OneIn(4) ? 1020 + random.Number(4) : random.Number(30));
            if (random.OneIn(2)) std::fill(name.begin(), name.end(), 'n');
            if (random.OneIn(3)) name = name.substr(0, 1000) + ";F" + std::to_string(random.Number(4));
            for (char& unit : name) unit = unit == '\0' || unit == '/' ? 'x' : unit;
            if (name.empty() || name == "." || name == "..") continue;
            Note("listed %s", Shown(name).c_str());
            Double().MakeFile("pool/listed/" + name, "12345");
            names.push_back(name);
        }
        Double().MakeDirectory("pool/listed");
        const Created directory = GuardedCreate(L"\\listed", {.isDirectory = 1, .disposition = kZdOpen});
        ASSERT_EQ(0U, directory.code);
        GuardedList(directory.handle);
        Close(directory.handle);
        Double().Remove("pool/listed");
        Look({m_standing});
    });
    Close(m_standing);
}

ZD_INSTANTIATE_GUARDS(HostileNames);

class HostileNamesOnDisk : public CNamesTest<CLocalEngineTest> {
protected:
    void SetUp() override {
        CNamesTest::SetUp();
        CGuardAllocator::Attach(::GetModuleHandleW(L"zdvfs.dll"));
        CGuardAllocator::Attach(::GetModuleHandleW(L"hul.dll"));
        ASSERT_EQ(0U, Connect());
        ASSERT_EQ(0U, Create(L"\\dir", {.isDirectory = 1}).code);
        m_standing = Create(L"\\standing").handle;
    }
};

TEST_P(HostileNamesOnDisk, NeverReachOutOfThePool) {
    MakeCanaries(Environment().Folder() + L"canary\\", 20);
    MakeCanaries(Environment().PoolsFolder() + L"canary\\", 20);
    MakeCanaries(Environment().PoolsFolder() + L"a.txt\\", 3);
    const std::vector<std::wstring> without = {L"pools\\pool", L"agent\\log"};
    const Tree before = TreeOf(Environment().Folder(), without);
    ForEachCase("names on disk", kLocalCases, [this](CRandom& random) { UseName(random); });
    ExpectManyOpened(kLocalCases);
    const Tree after = TreeOf(Environment().Folder(), without);
    EXPECT_EQ(before.size(), after.size());
    for (const auto& [path, state] : before) {
        EXPECT_TRUE(after.contains(path) && after.at(path) == state) << "changed: " << Narrow(path);
    }
    for (const auto& [path, state] : after) EXPECT_TRUE(before.contains(path)) << "new: " << Narrow(path);
    Close(m_standing);
}

ZD_INSTANTIATE_GUARDS(HostileNamesOnDisk);

}  // namespace zd::test
