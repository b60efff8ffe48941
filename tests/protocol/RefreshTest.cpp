// Slot 22: reading the settings anew, and what the activity report does beside the task's time.
#include <thread>

#include "ProtocolFixture.h"

using namespace zd::test;

namespace {

class CRefreshTest : public CProtocolTest {
protected:
    void SetUp() override {
        CProtocolTest::SetUp();
        ASSERT_EQ(0U, Connect());
        ClearLogs();
    }

    void SetSetting(const wchar_t* name, DWORD value) { Registry().SetDword(kPluginKey, name, value); }
    void Reload() { m_manager->ZdRefreshSettings(0, false); }
    void ReportActivity() { m_manager->ZdRefreshSettings(0, true); }
};

// ---- false ----

TEST_F(CRefreshTest, ReloadSetsTheLoggersLevel) {
    SetSetting(L"DebugLevel", 3);
    Reload();
    EXPECT_EQ(3, Logger().level);
    SetSetting(L"DebugLevel", 0);
    Reload();
    EXPECT_EQ(1, Logger().level);
    SetSetting(L"DebugLevel", 6);
    Reload();
    EXPECT_EQ(6, Logger().level);
    Registry().DeleteValue(kPluginKey, L"DebugLevel");
    Reload();
    EXPECT_EQ(1, Logger().level) << "1 when absent";
    Registry().SetText(kPluginKey, L"DebugLevel", L"6");
    Reload();
    EXPECT_EQ(1, Logger().level) << "text is no level";
}

TEST_F(CRefreshTest, ReloadReplacesALevelThatTheHostSet) {
    Logger().SetLevel(2);
    Reload();
    EXPECT_EQ(6, Logger().level);
}

TEST_F(CRefreshTest, ReloadMakesNewSettingsHold) {
    EXPECT_EQ("0x4101", OpenFlags(L"\\a.edb"));
    SetSetting(L"EDB DIRECT IO", 0);
    SetSetting(L"HighestValidNameChar", 0x7A);
    EXPECT_EQ("0x4101", OpenFlags(L"\\a.edb")) << "not before they are read";
    EXPECT_EQ(0U, Create(L"\\{").code);
    Reload();
    EXPECT_EQ("0x102", OpenFlags(L"\\a.edb"));
    EXPECT_EQ(123U, Create(L"\\{").code);
    Registry().DeleteValue(kPluginKey, L"EDB DIRECT IO");
    Registry().DeleteValue(kPluginKey, L"HighestValidNameChar");
    Reload();
    EXPECT_EQ("0x4101", OpenFlags(L"\\a.edb"));
    EXPECT_EQ(0U, Create(L"\\{").code);
}

TEST_F(CRefreshTest, ReloadTouchesNeitherStorageNorBlocksNorPools) {
    MakePoolFile(L"pool.cfg", "5");
    SetSetting(L"DebugLevel", 3);
    ClearLogs();
    Reload();
    EXPECT_ALL_CALLS();
    EXPECT_EQ(6U, BlockLevel());
    EXPECT_EQ("(none)", Narrow(RegisteredFile(L"pool")));
}

TEST_F(CRefreshTest, ReloadWorksOnAnUnconnectedObject) {
    IProtocolManager* const other = NewManager();
    SetSetting(L"DebugLevel", 3);
    other->ZdRefreshSettings(0, false);
    EXPECT_EQ(3, Logger().level);
}

// Readers see the old map or the new one, never a map that is half filled.
TEST_F(CRefreshTest, ReadersNeverMissASettingWhileTheMapIsReplaced) {
    SetSetting(L"EDB DIRECT IO", 0);
    Reload();
    CGate done;
    std::thread reloading([&] {
        for (int i = 0; i < 300; ++i) m_manager->ZdRefreshSettings(0, false);
        done.Set();
    });
    int wrong = 0;
    while (!done.IsSet()) {
        Double().ClearCalls();
        if (OpenFlags(L"\\a.edb", {.disposition = kZdOpenIf}) != "0x102") ++wrong;
    }
    reloading.join();
    EXPECT_EQ(0, wrong);
}

// ---- true ----

TEST_F(CRefreshTest, ActivityCopiesTheLevelIntoEveryConnectionsBlock) {
    IProtocolManager* const other = NewManager();
    const ConnectParameters parameters = Parameters(L"second");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    SetSetting(L"DebugLevel", 4);
    Reload();
    EXPECT_EQ(6U, BlockLevel("pool"));
    EXPECT_EQ(6U, BlockLevel("second"));
    ReportActivity();
    EXPECT_EQ(4U, BlockLevel("pool"));
    EXPECT_EQ(4U, BlockLevel("second"));
    EXPECT_EQ(4, Logger().level);
}

TEST_F(CRefreshTest, ActivityWritesLevelZeroWhereThereIsNoDebugLevel) {
    Registry().DeleteValue(kPluginKey, L"DebugLevel");
    Reload();
    EXPECT_EQ(1, Logger().level);
    ReportActivity();
    EXPECT_EQ(0U, BlockLevel());
    EXPECT_EQ(1, Logger().level);
}

TEST_F(CRefreshTest, ActivityWritesTheLevelAsItIsStored) {
    SetSetting(L"DebugLevel", 0x80000005);
    Reload();
    ReportActivity();
    EXPECT_EQ(0x80000005U, BlockLevel());
}

TEST_F(CRefreshTest, ActivityDoesNotReadTheSettingsAnew) {
    SetSetting(L"DebugLevel", 3);
    SetSetting(L"EDB DIRECT IO", 0);
    SetSetting(L"HighestValidNameChar", 0x7A);
    ReportActivity();
    EXPECT_EQ(6, Logger().level);
    EXPECT_EQ(6U, BlockLevel());
    EXPECT_EQ("0x4101", OpenFlags(L"\\a.edb"));
    EXPECT_EQ(0U, Create(L"\\{").code) << "the bound is copied from the map, which is the old one";
}

TEST_F(CRefreshTest, ActivityScansForPools) {
    const std::wstring path = MakePoolFile(L"found.cfg", "5");
    ReportActivity();
    EXPECT_EQ(path, RegisteredFile(L"found"));
}

TEST_F(CRefreshTest, ActivityLeavesTheBlockOfAClosedConnectionAlone) {
    IProtocolManager* const other = NewManager();
    const ConnectParameters parameters = Parameters(L"second");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    auto* const block = static_cast<char*>(Double().MountBlock("second"));
    ASSERT_NE(nullptr, block);
    ASSERT_EQ(0U, other->ZdDisconnect());
    SetSetting(L"DebugLevel", 4);
    Reload();
    ReportActivity();
    std::uint32_t level = 0;
    std::memcpy(&level, block + 16, sizeof(level));
    EXPECT_EQ(6U, level);
    EXPECT_EQ(4U, BlockLevel("pool"));
}

TEST_F(CRefreshTest, ActivityOnAnUnconnectedObjectReachesItsOwnBlock) {
    IProtocolManager* const other = NewManager();
    SetSetting(L"DebugLevel", 4);
    Reload();
    other->ZdRefreshSettings(0, true);
    const ConnectParameters parameters = Parameters(L"second");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    EXPECT_EQ(4U, BlockLevel("second"));
    EXPECT_EQ(4U, BlockLevel("pool"));
}

TEST_F(CRefreshTest, NeitherWayLetsAnExceptionOut) {
    MakePoolFile(L"found.cfg", "5");
    Double().Add(OnCall("InifileReleaseA").Throws(EThrow::kRuntimeError));
    EXPECT_NO_THROW(ReportActivity());
    Double().ClearRules();
    Double().Add(OnCall("InifileGetIntegerA").Throws(EThrow::kBadAlloc));
    EXPECT_NO_THROW(ReportActivity());
    EXPECT_NO_THROW(Reload());
}

}  // namespace
