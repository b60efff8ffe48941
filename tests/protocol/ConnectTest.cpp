// ZdConnect: its steps in order, the names, and the block it mounts, field by field.
#include "log/ClosurePatches.h"
#include "ProtocolFixture.h"

using namespace zd::test;

namespace {

class CConnectTest : public CProtocolTest {
protected:
    void SetUp() override {
        CProtocolTest::SetUp();
        m_manager = NewManager();
        ClearLogs();
    }

    static std::vector<std::string> StorageCalls(const std::string& pool) {
        return {"ZdvfsMountV1(\"6.0.0.0\", block{*, pool=\"" + pool + "\", *}, 5344) = 0",
                "ZdvfsStatvfs(\"" + pool + "\") = 0",
                "ZdvfsOpendir(\"" + pool + "\") = dir*",
                "ZdvfsReaddir(dir*) = \".\"",
                "ZdvfsReaddir(dir*) = \"..\"",
                "ZdvfsReaddir(dir*) = null",
                "ZdvfsClosedir(dir*) = 0",
                "ZdvfsOpen(\"" + pool + "\", 0x0, 0x0) = *",
                "ZdvfsIoctl(*, 10, 0, 4) = 0",
                "ZdvfsIoctl(*, 9, 0, 4) = 0",
                "ZdvfsClose(*) = 0"};
    }
};

// ---- The steps ----

TEST_F(CConnectTest, StorageCallsOfAnOrdinaryConnect) {
    EXPECT_EQ(0U, Connect());
    EXPECT_TRUE(LinesFit(StorageCalls("pool"), TakeCalls()));
}

TEST_F(CConnectTest, LinesOfAnOrdinaryConnect) {
    EXPECT_EQ(0U, Connect());
    EXPECT_LOG({6, "ZdConnect Enter\n"}, {6, "Agent Type is: 0\n"},
               {6, "CProtocolManager::ZdConnect: Compression is not enabled"},
               {6, "CProtocolManager::ZdConnect: Encryption is not enabled"}, {6, "ZdConnect Exit\n"});
}

TEST_F(CConnectTest, AgentIsAskedBeforeThePoolIsMounted) {
    EXPECT_EQ(0U, Connect());
    const std::vector<std::string> calls = TakeAllCalls();
    ASSERT_GE(calls.size(), 6U);
    for (std::size_t i = 0; i < 4; ++i) EXPECT_TRUE(calls[i].starts_with("Inifile")) << calls[i];
    EXPECT_TRUE(calls[4].starts_with("ZdvfsMountV1(")) << calls[4];
}

TEST_F(CConnectTest, NamesOfFilesStandBehindThePoolsName) {
    EXPECT_EQ(0U, Connect(L"my pool"));
    Double().MakeFile("my pool/a.txt", "hello");
    ClearLogs();
    const Created created = Create(L"\\a.txt", {.disposition = kZdOpen, .access = 1});
    EXPECT_EQ(0U, created.code);
    EXPECT_EQ("my pool/a.txt", LastCall("ZdvfsOpen").path);
    EXPECT_TRUE(LastCall("ZdvfsOpen").arguments.starts_with("\"my pool/a.txt\", ")) << "no slash is added in front";
}

TEST_F(CConnectTest, NamesThatAreNoAsciiGoToTheStorageInUtf8) {
    EXPECT_EQ(0U, Connect(L"p\u00f6\u00f6l\u4e2d", L"\u00e4", L"\u00fc"));
    EXPECT_EQ("\"p\xc3\xb6\xc3\xb6l\xe4\xb8\xad\"", BlockValue("pool"));
    EXPECT_EQ("\"\xc3\xa4\"", BlockValue("second"));
    EXPECT_EQ("\"\xc3\xbc\"", BlockValue("third"));
    EXPECT_TRUE(LinesFit(StorageCalls("p\xc3\xb6\xc3\xb6l\xe4\xb8\xad"), TakeCalls()));
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_CALLS("ZdvfsUmount(\"p\xc3\xb6\xc3\xb6l\xe4\xb8\xad\") = 0");
}

TEST_F(CConnectTest, FieldsWithoutATerminatorEndWithTheirWidth) {
    ConnectParameters parameters{};
    std::fill(std::begin(parameters.poolName), std::end(parameters.poolName), L'p');
    std::fill(std::begin(parameters.secondName), std::end(parameters.secondName), L's');
    std::fill(std::begin(parameters.thirdName), std::end(parameters.thirdName), L't');
    EXPECT_EQ(0U, m_manager->ZdConnect(&parameters));
    EXPECT_EQ("\"" + std::string(260, 'p') + "\"", BlockValue("pool"));
    EXPECT_EQ("\"" + std::string(256, 's') + "\"", BlockValue("second"));
    EXPECT_EQ("\"" + std::string(256, 't') + "\"", BlockValue("third"));
}

TEST_F(CConnectTest, WhatStandsBehindATerminatorIsNotRead) {
    ConnectParameters parameters = Parameters(L"pool");
    parameters.poolName[5] = L'\\';
    parameters.secondName[1] = L'x';
    EXPECT_EQ(0U, m_manager->ZdConnect(&parameters));
    EXPECT_EQ("\"pool\"", BlockValue("pool"));
    EXPECT_EQ("null", BlockValue("second"));
}

TEST_F(CConnectTest, RecordIsReadDuringTheCallOnly) {
    auto parameters = std::make_unique<ConnectParameters>(Parameters(L"pool", L"second", L"third"));
    EXPECT_EQ(0U, m_manager->ZdConnect(parameters.get()));
    std::memset(parameters.get(), 0xCD, sizeof(*parameters));
    parameters.reset();
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_EQ("ZdvfsUmount(\"pool\") = 0", LastCall("ZdvfsUmount").Line());
}

// ---- Bad records ----

TEST_F(CConnectTest, NullRecordIsAnInvalidParameter) {
    EXPECT_EQ(87U, m_manager->ZdConnect(nullptr));
    EXPECT_ALL_CALLS();
    EXPECT_LOG({6, "ZdConnect Enter\n"}, {6, "ZdConnect Exit\n"});
    EXPECT_EQ(0U, Connect());
}

TEST_F(CConnectTest, PoolNameWithABackslashIsAnInvalidParameter) {
    for (const wchar_t* name : {L"\\", L"\\pool", L"po\\ol", L"pool\\"}) {
        EXPECT_EQ(87U, Connect(name)) << Narrow(name);
    }
    EXPECT_ALL_CALLS();
    EXPECT_EQ(0U, Connect(L"pool", L"se\\cond", L"th\\ird")) << "the other names may hold one";
    EXPECT_EQ("\"se\\cond\"", BlockValue("second"));
}

TEST_F(CConnectTest, BadRecordOnAConnectedObjectChangesNothing) {
    EXPECT_EQ(0U, Connect());
    Double().MakeFile("pool/a.txt", "hello");
    const Handle handle = Create(L"\\a.txt").handle;
    ClearLogs();
    EXPECT_EQ(87U, m_manager->ZdConnect(nullptr));
    EXPECT_EQ(87U, Connect(L"a\\b"));
    EXPECT_ALL_CALLS();
    EXPECT_EQ("hello", Read(handle, 0, 5).data);
}

// ---- The generated name ----

TEST_F(CConnectTest, EmptyPoolNameMountsAPoolNamedByARandomNumber) {
    CClosurePatches patches(Plugin());
    patches.Replace<int(unsigned*)>("rand_s", [](auto, unsigned* value) {
        *value = 4711;
        return 0;
    });
    EXPECT_EQ(0U, Connect(L""));
    EXPECT_EQ("\"  4711\"", BlockValue("pool"));
    EXPECT_TRUE(LinesFit(StorageCalls("  4711"), TakeCalls()));
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_CALLS("ZdvfsUmount(\"  4711\") = 0");
}

TEST_F(CConnectTest, GeneratedNameHasAtLeastSixCharacters) {
    EXPECT_EQ(0U, Connect(L""));
    EXPECT_GE(BlockValue("pool").size(), 8U) << "quotes included";
}

TEST_F(CConnectTest, NameThatCannotBeGeneratedForLackOfMemoryMountsNothing) {
    bool isShort = false;
    CClosurePatches patches(Plugin());
    patches.Replace<int(unsigned*)>("rand_s", [&](auto, unsigned* value) {
        *value = 1234567890;
        isShort = true;
        return 0;
    });
    patches.Replace<void*(std::size_t)>("malloc", [&](auto original, std::size_t size) -> void* {
        return std::exchange(isShort, false) ? nullptr : original(size);
    });
    EXPECT_EQ(L"", m_manager->ZdGetRandomTag());
    EXPECT_EQ(8U, Connect(L""));
    EXPECT_EQ(0U, Double().Count("ZdvfsMountV1"));
    const std::vector<LogLine> lines = TakeLog();
    EXPECT_TRUE(Logged(lines, 1, "ZdConnect Status:  ERROR:  Not Enough Memory, dwError Code:    *\n"));
    patches.Restore();
    EXPECT_EQ(0U, Connect(L""));
}

// A host may put a table of its own over the object.
TEST_F(CConnectTest, GeneratedNameComesFromTheObjectsOwnSlot) {
    // A member function is called as a plain one that takes the object.
    struct CTag {
        static std::wstring Answer(void*) { return L"from-slot-28"; }
    };
    constexpr std::size_t kSlots = 30;
    void** const original = *reinterpret_cast<void***>(m_manager);
    std::vector<void*> table(original, original + kSlots);
    table[28] = reinterpret_cast<void*>(&CTag::Answer);
    *reinterpret_cast<void***>(m_manager) = table.data();
    const DWORD code = Connect(L"");
    *reinterpret_cast<void***>(m_manager) = original;
    EXPECT_EQ(0U, code);
    EXPECT_EQ("\"from-slot-28\"", BlockValue("pool"));
}

// ---- The block ----

// All 5344 bytes as the storage library sees them.
TEST_F(CConnectTest, BlockIsZeroButForItsFields) {
    Registry().SetDword(kPluginKey, L"AgentType", 2);
    Registry().SetDword(kPluginKey, L"SyncFileCount", 0x11223344);
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\pool.cfg");
    EXPECT_EQ(0U, Connect(L"pool", L"second", L"third"));
    const Call mount = LastCall("ZdvfsMountV1");
    ASSERT_EQ(5344U, mount.data.size());
    std::vector<std::uint8_t> block = mount.data;
    const auto number = [&block](std::size_t position, std::uint32_t value) {
        std::uint32_t stored = 0;
        std::memcpy(&stored, block.data() + position, sizeof(stored));
        EXPECT_EQ(value, stored) << "at " << position;
        std::memset(block.data() + position, 0, sizeof(stored));
    };
    const auto text = [&block](std::size_t position, const char* value) {
        const char* stored = nullptr;
        std::memcpy(&stored, block.data() + position, sizeof(stored));
        EXPECT_STREQ(value, stored) << "at " << position;
        std::memset(block.data() + position, 0, sizeof(stored));
    };
    number(0, 0x232);
    number(16, 6);
    number(4200, 0x11223344);
    number(4212, 5);
    number(4220, 1);
    // The connection lives, and with it the texts.
    text(32, "pool");
    text(4232, "C:\\pool.cfg");
    text(4272, "second");
    text(4280, "third");
    text(4288, "ZDDO_AGENT");
    std::uint64_t callback = 0;
    std::memcpy(&callback, block.data() + 24, sizeof(callback));
    EXPECT_NE(0U, callback);
    std::memset(block.data() + 24, 0, sizeof(callback));
    for (std::size_t i = 0; i < block.size(); ++i) EXPECT_EQ(0, block[i]) << "at " << i;
}

TEST_F(CConnectTest, FieldsWithoutAValueAreNull) {
    EXPECT_EQ(0U, Connect());
    std::vector<std::uint8_t> block = LastCall("ZdvfsMountV1").data;
    ASSERT_EQ(5344U, block.size());
    for (std::size_t i = 4232; i < block.size(); ++i) EXPECT_EQ(0, block[i]) << "at " << i;
    for (std::size_t i = 8; i < 16; ++i) EXPECT_EQ(0, block[i]) << "at " << i;
}

TEST_F(CConnectTest, BlockStaysAtItsAddressFromMountToUnmount) {
    EXPECT_EQ(0U, Connect());
    const void* const block = Double().MountBlock("pool");
    ASSERT_NE(nullptr, block);
    Registry().SetDword(kPluginKey, L"DebugLevel", 5);
    m_manager->ZdRefreshSettings(0, false);
    m_manager->ZdRefreshSettings(0, true);
    EXPECT_EQ(block, Double().MountBlock("pool"));
    EXPECT_EQ(5U, BlockLevel());
}

TEST_F(CConnectTest, CallbackOfTheBlockWritesToTheLog) {
    EXPECT_EQ(0U, Connect());
    void (*callback)(std::uint32_t, const char*) = nullptr;
    std::memcpy(&callback, static_cast<const char*>(Double().MountBlock("pool")) + 24, sizeof(callback));
    ASSERT_NE(nullptr, callback);
    ClearLogs();
    callback(3, "100% from the storage\n");
    callback(7, "above the level\n");
    callback(1, nullptr);
    callback(666, "no line\n");
    EXPECT_LOG({3, "100% from the storage\n"});
}

// ---- Connecting again ----

TEST_F(CConnectTest, ConnectOnAConnectedObjectDisconnectsFirst) {
    EXPECT_EQ(0U, Connect(L"one"));
    Double().MakeFile("one/a.txt", "hello");
    const Handle handle = Create(L"\\a.txt").handle;
    ClearLogs();
    EXPECT_EQ(0U, Connect(L"two"));
    const std::vector<std::string> calls = TakeCalls();
    ASSERT_GE(calls.size(), 3U);
    EXPECT_TRUE(LinesFit({"ZdvfsClose(*) = 0", "ZdvfsUmount(\"one\") = 0", "ZdvfsMountV1(*pool=\"two\"*) = 0"},
                         {calls.begin(), calls.begin() + 3}));
    EXPECT_EQ(6U, Read(handle, 0, 1).code);
    EXPECT_THAT(Double().Mounts(), ::testing::ElementsAre(::testing::Pair("two", 1)));
}

TEST_F(CConnectTest, WordsOfAnEarlierConnectAreGoneFromTheBlock) {
    Registry().SetDword(kPluginKey, L"AgentType", 2);
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\pool.cfg");
    EXPECT_EQ(0U, Connect(L"pool", L"second", L"third"));
    Registry().SetDword(kPluginKey, L"AgentType", 1);
    EXPECT_EQ(0U, Connect(L"other"));
    for (const char* word : {"second", "third", "kind", "file"}) EXPECT_EQ("null", BlockValue(word)) << word;
    EXPECT_EQ("0x372", BlockValue("flags"));
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    Registry().SetDword(kPluginKey, L"AgentType", 0);
    EXPECT_EQ("0x232", ConnectedBlock("flags"));
    EXPECT_EQ("\"pool\"", BlockValue("pool"));
}

TEST_F(CConnectTest, SettingsOfZdConfAreReadAtEachConnect) {
    SetAgentValue("RESTORE_DECRYPT_LOCAL", "0");
    EXPECT_EQ("0x32", ConnectedBlock("flags"));
    SetAgentValue("RESTORE_DECRYPT_LOCAL", "7");
    EXPECT_EQ("0x232", ConnectedBlock("flags"));
    SetAgentValue("RESTORE_DECRYPT_LOCAL", "-1");
    EXPECT_EQ("0x232", ConnectedBlock("flags"));
    Hul().RemoveValue(AgentFile("zd.conf"), "__dummy__section__", "RESTORE_DECRYPT_LOCAL");
    EXPECT_EQ("0x232", ConnectedBlock("flags")) << "1 when absent";
}

}  // namespace
