// Ini files of any bytes, and registry values of any type, length and content.
#include "HostileFixture.h"

namespace zd::test {

namespace {

constexpr std::uint64_t kIniCases = 250;
constexpr std::uint64_t kFileCases = 120;
constexpr std::uint64_t kRegistryCases = 250;
constexpr int kAgentPaths = 6;

const std::vector<std::wstring>& PluginValues() {
    static const std::vector<std::wstring> kNames = {L"LocalCacheOff",
                                                     L"MaxFileSizeMB",
                                                     L"MaxOpenFragments",
                                                     L"TaskCloseWait",
                                                     L"TaskTimeAdd",
                                                     L"SyncFileCount",
                                                     L"DebugLevel",
                                                     L"HighestValidNameChar",
                                                     L"EDB DIRECT IO",
                                                     L"AgentType",
                                                     L"LogSuppressorUpdateInterval",
                                                     L"LogNumMsgs",
                                                     L"LogOccurLimit",
                                                     L"LogTimeLimit",
                                                     L"LogNumCharsForMatch",
                                                     L"LogSuppressRepeatedMessages"};
    return kNames;
}

}  // namespace

template <class Fixture>
class CConfigurationTest : public CHostileTest<Fixture> {
protected:
    // What the settings have an effect on.
    void Work(IProtocolManager& manager, CRandom& random) {
        for (const wchar_t* name : {L"\\x.edb", L"\\vdb_1", L"\\dir\\a.vhd", L"\\a\x7F\xD801"}) {
            const Created file = this->Create(name, {}, &manager);
            if (file.code != 0) continue;
            DWORD written = 0;
            manager.ZdWriteFile(file.handle, 0, 5, "hello", &written);
            manager.ZdCloseFile(file.handle, random.OneIn(2));
            manager.ZdReleaseFile(file.handle);
        }
        manager.ZdRefreshSettings(random.Word(), false);
        manager.ZdRefreshSettings(random.Word(), true);
        std::set<std::wstring> names;
        manager.ZdEnumerateSpaList(&names);
    }
};

class HostileIni : public CConfigurationTest<CDoubleTest> {};

TEST_P(HostileIni, ValuesNeverHarmThePlugin) {
    ASSERT_EQ(0U, Connect());
    const Handle standing = Create(L"\\standing", {}, m_manager).handle;
    IProtocolManager* const other = NewManager();
    const std::string file = Narrow(Environment().AgentFolder()) + "zd.conf";
    const ConnectParameters parameters = Parameters(L"pool");
    ForEachCase("ini values", kIniCases, [&](CRandom& random) {
        for (const char* key : {"IFS_COMPRESSION", "ENCRYPTION", "RESTORE_DECRYPT_LOCAL", "PREFERRED_EXT_SEGKSIZE"}) {
            const std::string value = AnySegmentList(random);
            Note("%s %s", key, Shown(value).c_str());
            Hul().SetValue(file, "__dummy__section__", key, value);
        }
        EXPECT_EQ(0U, other->ZdConnect(&parameters));
        Work(*other, random);
        Look({standing});
    });
    Close(standing);
}

ZD_INSTANTIATE_GUARDS(HostileIni);

class HostileIniOnDisk : public CConfigurationTest<CLocalEngineTest> {
protected:
    void SetUp() override {
        CConfigurationTest::SetUp();
        CGuardAllocator::Attach(::GetModuleHandleW(L"zdvfs.dll"));
        CGuardAllocator::Attach(::GetModuleHandleW(L"hul.dll"));
        Registry().SetDword(kPluginKey, L"AgentType", 1);
    }
};

TEST_P(HostileIniOnDisk, FilesNeverHarmThePlugin) {
    ASSERT_EQ(0U, Connect());
    const Handle standing = Create(L"\\standing").handle;
    IProtocolManager* const other = NewManager();
    const ConnectParameters parameters = Parameters(L"pool");
    ForEachCase("ini files", kFileCases, [&](CRandom& random) {
        for (const wchar_t* name : {L"zd.conf", L"pool.cfg", L"a b.cfg", L"x.y.cfg"}) {
            const std::string content = AnyIniFile(random);
            Note("%s %s", Narrow(name).c_str(), Shown(content).c_str());
            WriteFileContent(Environment().AgentFolder() + name, content);
        }
        other->ZdConnect(&parameters);
        if (random.OneIn(8)) Work(*other, random);
        Look({standing});
    });
    Close(standing);
}

ZD_INSTANTIATE_GUARDS(HostileIniOnDisk);

class HostileRegistry : public CConfigurationTest<CDoubleTest> {
protected:
    void SetAny(CRandom& random, const std::wstring& key, const std::wstring& name) {
        if (random.OneIn(6)) return Registry().DeleteValue(key, name);
        const AnyValue value = AnyRegistryValue(random);
        Note("%s\\%s type %lu of %llu bytes, %02x...", Narrow(key).c_str(), Narrow(name).c_str(), value.type,
             value.data.size(), value.data.empty() ? 0U : value.data[0]);
        try {
            Registry().SetRaw(key, name, value.type, value.data);
        } catch (const std::runtime_error&) {
            // What the system does not keep nobody can read.
        }
    }

    void SetAnyValues(CRandom& random) {
        for (const std::wstring& name : PluginValues()) {
            if (random.OneIn(2)) SetAny(random, kPluginKey, name);
        }
        SetAny(random, kAgentKey, L"AgentType");
        SetAny(random, kAgentKey, L"ConfigFilePath");
        if (random.OneIn(3)) Registry().SetDword(kPluginKey, L"AgentType", static_cast<DWORD>(random.Number(5)));
        if (random.OneIn(4)) Registry().DeleteKey(kSpaListKey);
        const std::wstring pool = random.OneIn(2) ? L"pool" : std::wstring(1 + random.Number(255), L'p');
        SetAny(random, std::wstring(kSpaListKey) + L"\\" + pool, L"ConfigFilePath");
    }
};

TEST_P(HostileRegistry, ValuesNeverHarmThePlugin) {
    ASSERT_EQ(0U, Connect());
    const Handle standing = Create(L"\\standing").handle;
    const ConnectParameters parameters = Parameters(L"pool");
    std::uint64_t connected = 0;
    ForEachCase("registry values", kRegistryCases, [&](CRandom& random) {
        SetAnyValues(random);
        IProtocolManager* const other = NewManager();
        if (other->ZdConnect(&parameters) == 0) ++connected;
        Work(*other, random);
        Environment().ReleaseManager(other);
        // A bound on characters would refuse the name that the look opens.
        Registry().DeleteValue(kPluginKey, L"HighestValidNameChar");
        m_manager->ZdRefreshSettings(0, false);
        Look({standing});
    });
    std::printf("%llu of them connected\n", connected);
    EXPECT_LT(0U, connected);
    Close(standing);
}

ZD_INSTANTIATE_GUARDS(HostileRegistry);

// The agent's directory is read once in a process.
class HostileAgentPathOf : public CDoubleTest, public ::testing::WithParamInterface<int> {};

TEST_P(HostileAgentPathOf, ASeedNeverHarmsThePlugin) {
    PrintCaseOnFault();
    CGuardAllocator::Start(GetParam() % 2 == 0 ? EGuard::kEnd : EGuard::kBegin);
    CGuardAllocator::Attach(Plugin());
    CGuardAllocator::AttachFrees(::GetModuleHandleW(nullptr));
    // What a path without a root makes is made there.
    ::SetCurrentDirectoryW(Environment().Folder().c_str());
    const std::string name = "agent path " + std::to_string(GetParam());
    ForEachCase(name.c_str(), 1, [&](CRandom& random) {
        static const std::vector<std::size_t> kLengths = {0, 1, 2, 3, 7, 40, 2044, 2046, 2047, 2048, 2049, 2050, 9000};
        std::vector<std::uint8_t> data(random.Of(kLengths), random.OneIn(2) ? 'a' : 0);
        if (random.OneIn(3)) {
            const std::string bytes = random.Bytes(data.size());
            data.assign(bytes.begin(), bytes.end());
        }
        if (data.size() > 2 && random.OneIn(2)) data[data.size() - 1] = data[data.size() - 2] = 0;
        const DWORD type = random.OneIn(3) ? AnyRegistryValue(random).type : random.OneIn(2) ? REG_SZ : REG_EXPAND_SZ;
        Note("path of type %lu, %s", type, Shown(std::string(data.begin(), data.end())).c_str());
        for (const wchar_t* value : {L"path", L"logpath"}) {
            if (random.OneIn(3)) continue;
            Registry().SetRaw(kAgentKey, value, type, data);
        }
        EXPECT_EQ(0U, Connect());
        m_manager->ZdLogMessage(1, "a line\n");
        m_manager->ZdRefreshSettings(1, true);
    });
    ::SetCurrentDirectoryW(BinaryFolder().c_str());
}

class HostileTextOf : public CDoubleTest, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(HostileTextOf, FewBytesIsNotReadInFrontOfItsBuffer) {
    PrintCaseOnFault();
    CGuardAllocator::Start(EGuard::kBegin);
    CGuardAllocator::Attach(Plugin());
    CGuardAllocator::AttachFrees(::GetModuleHandleW(nullptr));
    const std::vector<std::uint8_t> data(GetParam(), 'a');
    Registry().SetRaw(kAgentKey, L"path", REG_SZ, data);
    Registry().SetRaw(kAgentKey, L"ConfigFilePath", REG_SZ, data);
    Note("%zu bytes", data.size());
    EXPECT_EQ(0U, Connect());
}

INSTANTIATE_TEST_SUITE_P(Bytes, HostileTextOf, ::testing::Values(0, 1, 2, 3));

INSTANTIATE_TEST_SUITE_P(Guarded, HostileAgentPathOf, ::testing::Range(0, kAgentPaths));

}  // namespace zd::test
