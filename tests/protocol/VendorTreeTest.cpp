// The choice between the two registry trees.
#include <set>

#include "log/ClosurePatches.h"
#include "ProtocolFixture.h"

using namespace zd::test;

namespace {

class CVendorTreeTest : public CProtocolTest {
protected:
    void SetUp() override {
        CProtocolTest::SetUp();
        Registry().DeleteKey(kProductKey);
        // The log makes its settings key, so a host of the former maker's tree says so.
        Logger().formerMakerKeys = true;
    }

    // Every value of a tree, with numbers of its own.
    void FillTree(const wchar_t* plugin, const wchar_t* agent, const wchar_t* pools, DWORD number) {
        Registry().SetDword(plugin, L"DebugLevel", number);
        Registry().SetDword(plugin, L"SyncFileCount", number);
        Registry().SetDword(plugin, L"MaxFileSizeMB", number);
        Registry().SetDword(plugin, L"LocalCacheOff", 1);
        Registry().SetDword(plugin, L"MaxOpenFragments", number);
        Registry().SetDword(plugin, L"HighestValidNameChar", 0x7A);
        Registry().SetDword(plugin, L"EDB DIRECT IO", 0);
        Registry().SetDword(agent, L"AgentType", 3);
        Registry().SetText(agent, L"path", Environment().AgentFolder());
        Registry().SetText(std::wstring(pools) + L"\\pool", L"ConfigFilePath", L"C:\\from-" + std::to_wstring(number));
    }

    static std::wstring FormerPoolKey() { return std::wstring(kFormerSpaListKey) + L"\\pool"; }
};

TEST_F(CVendorTreeTest, OnlyTheFormerTreePresentEveryKeyIsReadFromIt) {
    FillTree(kFormerPluginKey, kFormerAgentKey, kFormerSpaListKey, 6);
    Double().MakeFile("pool/top/QBX_ZD_MARKER");
    m_manager = NewManager();
    EXPECT_EQ(6, Logger().level);
    EXPECT_EQ("0x2b2", ConnectedBlock("flags"));
    EXPECT_EQ("6", BlockValue("sync"));
    EXPECT_EQ("\"C:\\from-6\"", BlockValue("file"));
    EXPECT_THAT(LastCall("InifileGetValueA").arguments, ::testing::HasSubstr(AgentFile("zd.conf")));
    EXPECT_EQ(L"top", Registry().Get(FormerPoolKey(), L"TopLevelDirectory")->Text());
    EXPECT_EQ(123U, Create(L"\\{").code);
    EXPECT_EQ("0x4102", OpenFlags(L"\\a.edb"));
    std::set<std::wstring> names;
    EXPECT_EQ(0U, m_manager->ZdEnumerateSpaList(&names));
    EXPECT_THAT(names, ::testing::ElementsAre(L"pool"));
    EXPECT_FALSE(Registry().KeyExists(kProductKey)) << "nothing is written into the other tree";
}

TEST_F(CVendorTreeTest, FragmentSizeComesFromTheFormerTreeToo) {
    FillTree(kFormerPluginKey, kFormerAgentKey, kFormerSpaListKey, 2);
    ASSERT_EQ(0U, Connect());
    const Handle handle = Create(L"\\a").handle;
    EXPECT_EQ(0U, Write(handle, 2097151, "ab").code);
    EXPECT_EQ("b", Double().Bytes("pool/a;F1"));
}

TEST_F(CVendorTreeTest, PoolsAreRegisteredInTheFormerTreeWhereOnlyThatExists) {
    Registry().SetDword(kFormerAgentKey, L"AgentType", 1);
    Registry().SetText(kFormerAgentKey, L"path", Environment().AgentFolder());
    Registry().CreateKey(kFormerPluginKey);
    const std::wstring file = MakePoolFile(L"pool.cfg", "5");
    EXPECT_EQ("\"" + Narrow(file) + "\"", ConnectedBlock("file"));
    EXPECT_EQ(file, Registry().Get(FormerPoolKey(), L"ConfigFilePath")->Text());
    EXPECT_FALSE(Registry().KeyExists(kProductKey));
}

TEST_F(CVendorTreeTest, ConfigurationFileOfOtherAgentTypesComesFromTheFormerTree) {
    Registry().SetDword(kFormerPluginKey, L"AgentType", 4);
    Registry().SetText(kFormerAgentKey, L"ConfigFilePath", L"C:\\former");
    EXPECT_EQ("\"C:\\former\"", ConnectedBlock("file"));
}

TEST_F(CVendorTreeTest, BothTreesPresentOnlyTheFirstIsRead) {
    FillTree(kFormerPluginKey, kFormerAgentKey, kFormerSpaListKey, 6);
    Registry().SetDword(kPluginKey, L"DebugLevel", 6);
    Registry().SetText(kAgentKey, L"path", Environment().AgentFolder());
    EXPECT_EQ("0x232", ConnectedBlock("flags")) << "an agent type of the other tree does not count";
    EXPECT_EQ("1000", BlockValue("sync"));
    EXPECT_EQ("0x102", OpenFlags(L"\\a"));
    std::set<std::wstring> names;
    EXPECT_EQ(2U, m_manager->ZdEnumerateSpaList(&names));
    EXPECT_THAT(names, ::testing::IsEmpty());
}

// The empty product key is enough to be the chosen one.
TEST_F(CVendorTreeTest, AnEmptyFirstTreeStillHidesTheFormerOne) {
    FillTree(kFormerPluginKey, kFormerAgentKey, kFormerSpaListKey, 6);
    Registry().CreateKey(kProductKey);
    m_manager = NewManager();
    EXPECT_LOG({1, "ProtocolManager Status: failed to open ZDVFS_REG_PATH\n"});
    EXPECT_EQ("0x232", ConnectedBlock("flags"));
    EXPECT_EQ("1000", BlockValue("sync"));
}

TEST_F(CVendorTreeTest, WithNeitherTreeTheFirstIsUsed) {
    Logger().formerMakerKeys = false;
    EXPECT_EQ("0x232", ConnectedBlock("flags"));
    EXPECT_EQ("1000", BlockValue("sync"));
    std::set<std::wstring> names;
    EXPECT_EQ(2U, m_manager->ZdEnumerateSpaList(&names));
    EXPECT_FALSE(Registry().KeyExists(kFormerProductKey));
}

// The object keeps its choice; agent type, pool list and pool registration choose afresh.
TEST_F(CVendorTreeTest, TreeThatAppearsLaterIsSeenByTheAgentAndByThePoolsOnly) {
    FillTree(kFormerPluginKey, kFormerAgentKey, kFormerSpaListKey, 6);
    Double().MakeFile("pool/top/QBX_ZD_MARKER");
    m_manager = NewManager();
    Registry().SetDword(kAgentKey, L"AgentType", 1);
    Registry().SetDword(kPluginKey, L"SyncFileCount", 99);
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\appeared");
    EXPECT_EQ("0x372", ConnectedBlock("flags"));
    EXPECT_EQ("\"C:\\appeared\"", BlockValue("file"));
    EXPECT_EQ("6", BlockValue("sync")) << "the settings key was opened at the start";
    EXPECT_EQ(L"top", Registry().Get(FormerPoolKey(), L"TopLevelDirectory")->Text());
    EXPECT_FALSE(Registry().Get(PoolKey(L"pool"), L"TopLevelDirectory").has_value());
    std::set<std::wstring> names;
    EXPECT_EQ(0U, m_manager->ZdEnumerateSpaList(&names));
    EXPECT_THAT(names, ::testing::ElementsAre(L"pool"));
}

// ---- Keys ----

class CKeyTest : public CProtocolTest {};

TEST_F(CKeyTest, KeysAreOpenedForReadingAndWritingWhereThePlugInWritesOrChooses) {
    Registry().CreateKey(PoolKey(L"pool"));
    Double().MakeFile("pool/top/QBX_ZD_MARKER");
    std::set<std::pair<std::wstring, REGSAM>> opened;
    using OpenKey = std::remove_pointer_t<decltype(&::RegOpenKeyExW)>;
    CClosurePatches patches(Plugin());
    patches.Replace<OpenKey>("RegOpenKeyExW",
                             [&](auto original, HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
                                 if (root == HKEY_LOCAL_MACHINE) opened.emplace(path, access);
                                 return original(root, path, options, access, key);
                             });
    EXPECT_EQ(0U, Connect());
    for (const std::wstring& path : {std::wstring(kProductKey), std::wstring(kPluginKey), PoolKey(L"pool")}) {
        EXPECT_EQ(1U, opened.count({path, 0x2001F})) << Narrow(path);
    }
}

TEST_F(CKeyTest, WhatCannotBeOpenedForWritingIsNotChosen) {
    Registry().SetDword(kFormerPluginKey, L"SyncFileCount", 7);
    Registry().SetDword(kFormerPluginKey, L"DebugLevel", 6);
    using OpenKey = std::remove_pointer_t<decltype(&::RegOpenKeyExW)>;
    CClosurePatches patches(Plugin());
    patches.Replace<OpenKey>("RegOpenKeyExW", [](auto original, HKEY root, LPCWSTR path, auto... rest) -> LSTATUS {
        return path != nullptr && std::wstring(path) == kProductKey ? ERROR_ACCESS_DENIED
                                                                    : original(root, path, rest...);
    });
    EXPECT_EQ("7", ConnectedBlock("sync"));
}

TEST_F(CKeyTest, KeysAndSearchesAreClosedButForTheSettingsKeyAndTheLogs) {
    Registry().SetDword(kPluginKey, L"AgentType", 1);
    Double().MakeFile("pool/top/QBX_ZD_MARKER");
    MakePoolFile(L"other.cfg", "5");
    std::multiset<HKEY> keys;
    std::multiset<HANDLE> searches;
    using OpenKey = std::remove_pointer_t<decltype(&::RegOpenKeyExW)>;
    using CreateKey = std::remove_pointer_t<decltype(&::RegCreateKeyExW)>;
    CClosurePatches patches(Plugin());
    patches.Replace<OpenKey>("RegOpenKeyExW",
                             [&](auto original, HKEY root, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
                                 const LSTATUS status = original(root, path, options, access, key);
                                 if (status == ERROR_SUCCESS) keys.insert(*key);
                                 return status;
                             });
    patches.Replace<CreateKey>(
        "RegCreateKeyExW", [&](auto original, HKEY root, LPCWSTR path, DWORD reserved, LPWSTR kind, DWORD options,
                               REGSAM access, LPSECURITY_ATTRIBUTES security, PHKEY key, LPDWORD disposition) {
            const LSTATUS status = original(root, path, reserved, kind, options, access, security, key, disposition);
            if (status == ERROR_SUCCESS) keys.insert(*key);
            return status;
        });
    patches.Replace<LSTATUS(HKEY)>("RegCloseKey", [&](auto original, HKEY key) {
        const auto found = keys.find(key);
        EXPECT_NE(keys.end(), found) << "closed twice";
        if (found != keys.end()) keys.erase(found);
        return original(key);
    });
    using FindFirst = std::remove_pointer_t<decltype(&::FindFirstFileW)>;
    patches.Replace<FindFirst>("FindFirstFileW", [&](auto original, LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
        const HANDLE search = original(pattern, data);
        if (search != INVALID_HANDLE_VALUE) searches.insert(search);
        return search;
    });
    patches.Replace<BOOL(HANDLE)>("FindClose", [&](auto original, HANDLE search) {
        searches.erase(search);
        return original(search);
    });
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(0U, Connect());
        std::set<std::wstring> names;
        EXPECT_EQ(0U, m_manager->ZdEnumerateSpaList(&names));
        m_manager->ZdRefreshSettings(0, true);
        m_manager->ZdRefreshSettings(0, false);
        Environment().ReleaseManager(m_manager);
        m_manager = nullptr;
        const std::multiset<HKEY> logs = {Logger().settingsKey};
        EXPECT_EQ(1U + logs.size(), keys.size());
        EXPECT_TRUE(searches.empty());
    }
}

}  // namespace
