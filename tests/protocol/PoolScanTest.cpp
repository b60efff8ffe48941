// The scan for pools and slot 19.
#include <set>

#include "log/ClosurePatches.h"
#include "ProtocolFixture.h"

using namespace zd::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class CPoolScanTest : public CProtocolTest {
protected:
    void SetUp() override {
        CProtocolTest::SetUp();
        m_manager = NewManager();
        ClearLogs();
    }

    // Scans and answers the calls of the ini reader.
    std::vector<std::string> Scan() {
        ClearLogs();
        m_manager->ZdRefreshSettings(0, true);
        std::vector<std::string> calls = TakeAllCalls();
        std::erase_if(calls, [](const std::string& line) { return !line.starts_with("Inifile"); });
        return calls;
    }

    static std::vector<std::string> CallsFor(const std::wstring& path, const std::string& result) {
        const std::string file = "\"" + Narrow(path) + "\"";
        return {"InifileReleaseA(" + file + ")",
                "InifileGetIntegerA(" + file + ", \"Main\", \"AgentID\", -1) = " + result};
    }

    std::vector<std::wstring> Pools() { return Registry().SubKeys(kSpaListKey); }

    // Gives a file the time of a second long ago, counted up.
    void SetTime(const std::wstring& path, int second) {
        const HANDLE file = ::CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, 0, nullptr);
        ASSERT_NE(INVALID_HANDLE_VALUE, file);
        const std::uint64_t ticks = 132000000000000000ULL + static_cast<std::uint64_t>(second) * 10000000ULL;
        FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
        EXPECT_NE(FALSE, ::SetFileTime(file, nullptr, nullptr, &time));
        ::CloseHandle(file);
    }
};

TEST_F(CPoolScanTest, FileWithAnAgentIdIsRegisteredUnderItsName) {
    const std::wstring path = MakePoolFile(L"Pool One.cfg", "5");
    EXPECT_EQ(CallsFor(path, "5"), Scan());
    EXPECT_THAT(Pools(), ElementsAre(L"Pool One"));
    const auto value = Registry().Get(PoolKey(L"Pool One"), L"ConfigFilePath");
    ASSERT_TRUE(value.has_value());
    EXPECT_EQ(DWORD{REG_SZ}, value->type);
    EXPECT_EQ(path, value->Text());
    EXPECT_EQ((path.size() + 1) * sizeof(wchar_t), value->data.size()) << "terminated";
}

TEST_F(CPoolScanTest, AgentIdOfZeroIsOne) {
    const std::wstring path = MakePoolFile(L"zero.cfg", "0");
    Scan();
    EXPECT_EQ(path, RegisteredFile(L"zero"));
}

TEST_F(CPoolScanTest, FileWithoutAnAgentIdOrWithAllBitsSetIsSkipped) {
    MakePoolFile(L"none.cfg", nullptr);
    MakePoolFile(L"all.cfg", "-1");
    EXPECT_EQ(4U, Scan().size());
    EXPECT_THAT(Pools(), IsEmpty());
}

TEST_F(CPoolScanTest, AgentIdInAnotherSectionDoesNotCount) {
    const std::wstring path = MakePoolFile(L"pool.cfg", nullptr);
    Hul().SetValue(Narrow(path), "__dummy__section__", "AgentID", "5");
    Scan();
    EXPECT_THAT(Pools(), IsEmpty());
}

TEST_F(CPoolScanTest, SeveralFilesAreRegisteredEach) {
    for (const wchar_t* name : {L"a.cfg", L"b.cfg", L"c.cfg"}) MakePoolFile(name, "5");
    Scan();
    EXPECT_THAT(Pools(), ::testing::UnorderedElementsAre(L"a", L"b", L"c"));
}

TEST_F(CPoolScanTest, NoFileEndsTheScanQuietly) {
    EXPECT_THAT(Scan(), IsEmpty());
    EXPECT_FALSE(Registry().KeyExists(kSpaListKey)) << "nothing is made without a pool";
}

TEST_F(CPoolScanTest, MissingDirectoryEndsTheScanQuietly) {
    ::RemoveDirectoryW(Environment().LogFolder().c_str());
    ::RemoveDirectoryW(Environment().AgentFolder().c_str());
    EXPECT_THAT(Scan(), IsEmpty());
}

TEST_F(CPoolScanTest, OtherFilesAreLeftAlone) {
    for (const wchar_t* name : {L"pool.conf", L"pool.cfg.bak", L"cfg", L"zd.conf"}) MakePoolFile(name, "5");
    EXPECT_THAT(Scan(), IsEmpty());
    EXPECT_THAT(Pools(), IsEmpty());
}

TEST_F(CPoolScanTest, UnchangedFileIsNotReadAgain) {
    const std::wstring path = MakePoolFile(L"pool.cfg", "5");
    SetTime(path, 1);
    EXPECT_EQ(CallsFor(path, "5"), Scan());
    EXPECT_THAT(Scan(), IsEmpty());
    Registry().DeleteKey(PoolKey(L"pool"));
    EXPECT_THAT(Scan(), IsEmpty());
    EXPECT_THAT(Pools(), IsEmpty());
}

TEST_F(CPoolScanTest, SkippedFileIsNotReadAgainEither) {
    SetTime(MakePoolFile(L"pool.cfg", nullptr), 1);
    EXPECT_EQ(2U, Scan().size());
    EXPECT_THAT(Scan(), IsEmpty());
}

TEST_F(CPoolScanTest, ChangedFileIsReadAgain) {
    const std::wstring path = MakePoolFile(L"pool.cfg", nullptr);
    SetTime(path, 1);
    Scan();
    Hul().SetValue(Narrow(path), "Main", "AgentID", "5");
    SetTime(path, 2);
    EXPECT_EQ(CallsFor(path, "5"), Scan());
    EXPECT_EQ(path, RegisteredFile(L"pool"));
    Registry().DeleteKey(PoolKey(L"pool"));
    SetTime(path, 1);
    EXPECT_EQ(CallsFor(path, "5"), Scan()) << "an older time is a change too";
    EXPECT_EQ(path, RegisteredFile(L"pool"));
}

TEST_F(CPoolScanTest, NewFileBesideAKnownOneIsTheOnlyOneRead) {
    SetTime(MakePoolFile(L"a.cfg", "5"), 1);
    Scan();
    const std::wstring path = MakePoolFile(L"b.cfg", "6");
    EXPECT_EQ(CallsFor(path, "6"), Scan());
    EXPECT_THAT(Pools(), ::testing::UnorderedElementsAre(L"a", L"b"));
}

TEST_F(CPoolScanTest, FailedRegistrationIsTriedAgainAtTheNextScan) {
    const std::wstring path = MakePoolFile(L"pool.cfg", "5");
    using SetValue = std::remove_pointer_t<decltype(&::RegSetValueExW)>;
    CClosurePatches patches(Plugin());
    patches.Replace<SetValue>("RegSetValueExW", [](auto, auto...) -> LSTATUS { return ERROR_ACCESS_DENIED; });
    EXPECT_EQ(CallsFor(path, "5"), Scan());
    EXPECT_EQ("(none)", Narrow(RegisteredFile(L"pool")));
    EXPECT_EQ(CallsFor(path, "5"), Scan());
    patches.Restore();
    EXPECT_EQ(CallsFor(path, "5"), Scan());
    EXPECT_EQ(path, RegisteredFile(L"pool"));
    EXPECT_THAT(Scan(), IsEmpty());
}

TEST_F(CPoolScanTest, KeyThatCannotBeMadeFailsTheRegistrationToo) {
    const std::wstring path = MakePoolFile(L"pool.cfg", "5");
    SetTime(path, 1);
    using CreateKey = std::remove_pointer_t<decltype(&::RegCreateKeyExW)>;
    for (const int refused : {1, 2}) {
        SCOPED_TRACE(refused);
        int calls = 0;
        CClosurePatches patches(Plugin());
        patches.Replace<CreateKey>(
            "RegCreateKeyExW", [&](auto original, HKEY root, LPCWSTR key, auto... arguments) -> LSTATUS {
                const bool isOfList = std::wstring_view(key).find(L"SpaList") != std::wstring_view::npos;
                return isOfList && ++calls == refused ? ERROR_ACCESS_DENIED : original(root, key, arguments...);
            });
        EXPECT_EQ(CallsFor(path, "5"), Scan());
        EXPECT_EQ(refused, calls) << "nothing is made behind a failure";
        EXPECT_FALSE(Registry().KeyExists(PoolKey(L"pool")));
    }
    EXPECT_EQ(CallsFor(path, "5"), Scan());
    EXPECT_EQ(path, RegisteredFile(L"pool"));
}

TEST_F(CPoolScanTest, DirectoryOfAConfigurationFilesNameIsNone) {
    const std::wstring path = Environment().AgentFolder() + L"pool.cfg";
    ASSERT_NE(FALSE, ::CreateDirectoryW(path.c_str(), nullptr));
    Hul().SetValue(Narrow(path), "Main", "AgentID", "5");
    EXPECT_THAT(Scan(), IsEmpty());
    EXPECT_THAT(Pools(), IsEmpty());
    ::RemoveDirectoryW(path.c_str());
}

// The system's filter compares short names as well, "POOL~1.CFG" of "pool.cfgx".
TEST_F(CPoolScanTest, NamesThatOnlyTheirShortNamesLetThroughAreSkipped) {
    const std::wstring path = MakePoolFile(L"a.cfg", "5");
    for (const wchar_t* name : {L"pool.cfgx", L"cfg", L".cfg"}) MakePoolFile(name, "5");
    using FindFirst = std::remove_pointer_t<decltype(&::FindFirstFileW)>;
    CClosurePatches patches(Plugin());
    patches.Replace<FindFirst>("FindFirstFileW", [&](auto original, LPCWSTR filter, LPWIN32_FIND_DATAW entry) {
        EXPECT_EQ(Environment().AgentFolder() + L"*.cfg", filter);
        return original((Environment().AgentFolder() + L"*").c_str(), entry);
    });
    EXPECT_EQ(CallsFor(path, "5"), Scan());
    EXPECT_THAT(Pools(), ElementsAre(L"a"));
}

TEST_F(CPoolScanTest, RegistrationReplacesThePathThatWasThere) {
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\old.cfg");
    Registry().SetText(PoolKey(L"pool"), L"TopLevelDirectory", L"kept");
    const std::wstring path = MakePoolFile(L"pool.cfg", "5");
    Scan();
    EXPECT_EQ(path, RegisteredFile(L"pool"));
    EXPECT_EQ(L"kept", Registry().Get(PoolKey(L"pool"), L"TopLevelDirectory")->Text());
}

TEST_F(CPoolScanTest, ScanIsSharedByTheObjectsOfTheProcess) {
    SetTime(MakePoolFile(L"pool.cfg", "5"), 1);
    Scan();
    m_manager = NewManager();
    EXPECT_THAT(Scan(), IsEmpty());
}

TEST_F(CPoolScanTest, ConnectScansOnlyWhereNoFileIsRegistered) {
    const std::wstring path = MakePoolFile(L"other.cfg", "5");
    Registry().SetDword(kPluginKey, L"AgentType", 1);
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\pool.cfg");
    EXPECT_EQ(0U, Connect());
    EXPECT_EQ("(none)", Narrow(RegisteredFile(L"other")));
    EXPECT_EQ(0U, Connect(L"unregistered"));
    EXPECT_EQ(path, RegisteredFile(L"other"));
    EXPECT_EQ("null", BlockValue("file"));
}

TEST_F(CPoolScanTest, ScanWritesNoLine) {
    MakePoolFile(L"pool.cfg", "5");
    Registry().SetDword(kPluginKey, L"AgentType", 1);
    ClearLogs();
    EXPECT_EQ(0U, Connect(L"other"));
    const std::vector<LogLine> lines = TakeLog();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_TRUE(LogFits({{6, "Config file not found scanning\n"}, {6, "Config file used (duped): (null)\n"}},
                        {lines[2], lines[3]}));
}

// ---- Slot 19 ----

class CPoolListTest : public CProtocolTest {
protected:
    void SetUp() override {
        CProtocolTest::SetUp();
        m_manager = NewManager();
        ClearLogs();
    }

    DWORD List(std::set<std::wstring>& names) { return m_manager->ZdEnumerateSpaList(&names); }
};

TEST_F(CPoolListTest, NamesOfTheSubkeysAreInserted) {
    for (const wchar_t* name : {L"b", L"A", L"with blank", L"\u4e2d"}) Registry().CreateKey(PoolKey(name));
    std::set<std::wstring> names;
    EXPECT_EQ(0U, List(names));
    EXPECT_THAT(names, ElementsAre(L"A", L"b", L"with blank", L"\u4e2d"));
    EXPECT_LOG();
    EXPECT_ALL_CALLS();
}

TEST_F(CPoolListTest, WhatTheCollectionHeldStays) {
    Registry().CreateKey(PoolKey(L"b"));
    std::set<std::wstring> names = {L"a", L"b"};
    EXPECT_EQ(0U, List(names));
    EXPECT_THAT(names, ElementsAre(L"a", L"b"));
}

TEST_F(CPoolListTest, EmptyListIsASuccess) {
    Registry().CreateKey(kSpaListKey);
    std::set<std::wstring> names;
    EXPECT_EQ(0U, List(names));
    EXPECT_THAT(names, IsEmpty());
}

TEST_F(CPoolListTest, ValuesOfTheKeyAreNoPools) {
    Registry().SetText(kSpaListKey, L"value", L"x");
    std::set<std::wstring> names;
    EXPECT_EQ(0U, List(names));
    EXPECT_THAT(names, IsEmpty());
}

TEST_F(CPoolListTest, MissingKeyGivesTheErrorOfOpeningIt) {
    std::set<std::wstring> names = {L"kept"};
    EXPECT_EQ(2U, List(names));
    EXPECT_THAT(names, ElementsAre(L"kept"));
}

TEST_F(CPoolListTest, NullCollectionIsAnInvalidParameter) {
    Registry().CreateKey(PoolKey(L"b"));
    EXPECT_EQ(87U, m_manager->ZdEnumerateSpaList(nullptr));
}

TEST_F(CPoolListTest, ErrorThatStopsTheEnumerationIsTheResult) {
    Registry().CreateKey(PoolKey(L"a"));
    Registry().CreateKey(PoolKey(L"b"));
    using EnumKey = std::remove_pointer_t<decltype(&::RegEnumKeyExW)>;
    CClosurePatches patches(Plugin());
    patches.Replace<EnumKey>("RegEnumKeyExW", [](auto original, HKEY key, DWORD index, auto... rest) -> LSTATUS {
        return index == 1 ? ERROR_ACCESS_DENIED : original(key, index, rest...);
    });
    std::set<std::wstring> names;
    EXPECT_EQ(5U, List(names));
    EXPECT_EQ(1U, names.size());
}

// The room for a name is that of 260 characters and its terminator.
TEST_F(CPoolListTest, NamesOf260CharactersFit) {
    Registry().CreateKey(kSpaListKey);
    using EnumKey = std::remove_pointer_t<decltype(&::RegEnumKeyExW)>;
    CClosurePatches patches(Plugin());
    patches.Replace<EnumKey>("RegEnumKeyExW",
                             [](auto, HKEY, DWORD index, LPWSTR name, LPDWORD length, auto...) -> LSTATUS {
                                 if (index > 0) return ERROR_NO_MORE_ITEMS;
                                 if (*length <= 260) return ERROR_MORE_DATA;
                                 std::fill_n(name, 260, L'n');
                                 name[260] = L'\0';
                                 *length = 260;
                                 return ERROR_SUCCESS;
                             });
    std::set<std::wstring> names;
    EXPECT_EQ(0U, List(names));
    EXPECT_THAT(names, ElementsAre(std::wstring(260, L'n')));
}

}  // namespace
