// GetProtocol, the object's beginning and end, and the slots that do little.
#include <cstdlib>
#include <set>

#include "harness/PluginFixture.h"
#include "log/ClosurePatches.h"
#include "TextCopies.h"

using namespace zd::test;

namespace {

class CEntryTest : public CDoubleTest {
protected:
    // An object that the fixture does not release.
    IProtocolManager* Get(CLogger* logger) {
        void* context = this;
        return Environment().Entry()(&context, logger);
    }
};

// ---- GetProtocol ----

TEST_F(CEntryTest, TheOnlyExportIsGetProtocol) {
    EXPECT_THAT(ExportedNames(Plugin()), ::testing::ElementsAre("GetProtocol"));
}

TEST_F(CEntryTest, NullContextAnswersNullAndLogsNothing) {
    EXPECT_EQ(nullptr, Environment().Entry()(nullptr, &Logger()));
    EXPECT_FALSE(Logger().initialised);
    EXPECT_ALL_CALLS();
    EXPECT_EQ(0U, Connect()) << "a later object is not harmed";
}

TEST_F(CEntryTest, ContextCellThatHoldsNullIsNoError) {
    void* context = nullptr;
    IProtocolManager* const manager = Environment().Entry()(&context, &Logger());
    ASSERT_NE(nullptr, manager);
    manager->Release();
}

TEST_F(CEntryTest, ContextCellIsReadDuringTheCallOnly) {
    auto cell = std::make_unique<void*>(this);
    IProtocolManager* const manager = Environment().Entry()(cell.get(), &Logger());
    ASSERT_NE(nullptr, manager);
    cell.reset();
    const ConnectParameters parameters = Parameters(L"pool");
    EXPECT_EQ(0U, manager->ZdConnect(&parameters));
    manager->Release();
}

TEST_F(CEntryTest, EachCallMakesAnObjectOfItsOwn) {
    IProtocolManager* const one = NewManager();
    EXPECT_NE(one, NewManager());
}

TEST_F(CEntryTest, NullLoggerLogsNothingUntilALaterCallBringsOne) {
    IProtocolManager* const silent = Get(nullptr);
    ASSERT_NE(nullptr, silent);
    const ConnectParameters parameters = Parameters(L"pool");
    EXPECT_EQ(0U, silent->ZdConnect(&parameters));
    silent->ZdLogMessage(1, "nobody hears this\n");
    EXPECT_EQ(0U, silent->ZdDisconnect());
    EXPECT_FALSE(Logger().initialised);

    IProtocolManager* const heard = NewManager();
    ASSERT_NE(nullptr, heard);
    ClearLogs();
    silent->ZdLogMessage(1, "through the later logger\n");
    EXPECT_LOG({1, "through the later logger\n"});
    silent->Release();
    EXPECT_LOG({6, "~CProtocolManager Enter\n"});
}

TEST_F(CEntryTest, SecondLoggerOfTheProcessIsIgnored) {
    IProtocolManager* const first = NewManager();
    ClearLogs();
    CLogger other;
    IProtocolManager* const second = Get(&other);
    ASSERT_NE(nullptr, second);
    first->ZdLogMessage(1, "first\n");
    second->ZdLogMessage(1, "second\n");
    EXPECT_LOG({1, "first\n"}, {1, "second\n"});
    EXPECT_FALSE(other.initialised);
    EXPECT_FALSE(other.lockInitialised);
    EXPECT_TRUE(other.queue.empty());
    EXPECT_EQ(1, other.level) << "DebugLevel goes to the logger in use";
    second->Release();
}

TEST_F(CEntryTest, DebugLevelBecomesTheLoggersLevel) {
    Registry().SetDword(kPluginKey, L"DebugLevel", 3);
    NewManager();
    EXPECT_EQ(3, Logger().level);
}

TEST_F(CEntryTest, ConstructionMakesNoStorageCall) {
    NewManager();
    EXPECT_ALL_CALLS();
}

// Each allocation of the construction fails once; the call answers null and nothing of the object is left.
TEST_F(CEntryTest, AllocationFailureAnswersNullAndLogsNothing) {
    NewManager()->ZdLogMessage(1, "the logger is in use from here on\n");
    ClearLogs();
    int left = 0;
    std::set<void*> live;
    bool counting = false;
    CClosurePatches patches(Plugin());
    patches.Replace<void*(std::size_t)>("malloc", [&](auto original, std::size_t size) -> void* {
        if (counting && left-- == 0) return nullptr;
        void* const block = original(size);
        if (counting && block != nullptr) live.insert(block);
        return block;
    });
    patches.Replace<char*(const char*)>("_strdup", [&](auto original, const char* text) -> char* {
        if (counting && left-- == 0) return nullptr;
        char* const copy = original(text);
        if (counting && copy != nullptr) live.insert(copy);
        return copy;
    });
    patches.Replace<void(void*)>("free", [&](auto original, void* block) {
        if (counting) live.erase(block);
        original(block);
    });
    IProtocolManager* manager = nullptr;
    int failures = 0;
    for (; failures < 1000; ++failures) {
        left = failures;
        live.clear();
        counting = true;
        manager = Get(&Logger());
        counting = false;
        if (manager != nullptr) break;
        EXPECT_TRUE(live.empty()) << live.size() << " blocks left behind by failure " << failures;
        EXPECT_LOG();
    }
    patches.Restore();
    ASSERT_NE(nullptr, manager);
    EXPECT_GT(failures, 0);
    const ConnectParameters parameters = Parameters(L"pool");
    EXPECT_EQ(0U, manager->ZdConnect(&parameters));
    manager->Release();
}

TEST_F(CEntryTest, ConstructionThatThrowsAnswersNull) {
    CClosurePatches patches(Plugin());
    using AllocateSid = std::remove_pointer_t<decltype(&::AllocateAndInitializeSid)>;
    patches.Replace<AllocateSid>("AllocateAndInitializeSid", [](auto, auto...) -> BOOL {
        ::SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    });
    EXPECT_EQ(nullptr, Get(&Logger()));
    patches.Restore();
    IProtocolManager* const manager = Get(&Logger());
    ASSERT_NE(nullptr, manager);
    manager->Release();
}

TEST_F(CEntryTest, SettingsKeyThatCannotBeOpenedIsLoggedOnceAndHarmsNothing) {
    Registry().DeleteKey(kProductKey);
    NewManager();
    EXPECT_LOG({1, "ProtocolManager Status: failed to open ZDVFS_REG_PATH\n"});
    EXPECT_EQ(0U, Connect());
    EXPECT_EQ(1, Logger().level);
}

// ---- The end ----

TEST_F(CEntryTest, ReleaseOfAConnectedObjectUnmountsItFirst) {
    IProtocolManager* const manager = Get(&Logger());
    const ConnectParameters parameters = Parameters(L"pool");
    ASSERT_EQ(0U, manager->ZdConnect(&parameters));
    ClearLogs();
    manager->Release();
    EXPECT_LOG({6, "~CProtocolManager Enter\n"}, {6, "ZdDiscconect Enter\n"}, {6, "ZdDiscconect Exit\n"});
    EXPECT_CALLS("ZdvfsUmount(\"pool\") = 0");
}

TEST_F(CEntryTest, ReleaseOfAConnectedObjectClosesItsHandles) {
    Double().MakeFile("pool/a.txt", "hello");
    IProtocolManager* const manager = Get(&Logger());
    const ConnectParameters parameters = Parameters(L"pool");
    ASSERT_EQ(0U, manager->ZdConnect(&parameters));
    ASSERT_EQ(0U, Create(L"\\a.txt", {}, manager).code);
    ClearLogs();
    manager->Release();
    EXPECT_CALLS("ZdvfsClose(*) = 0", "ZdvfsUmount(\"pool\") = 0");
}

TEST_F(CEntryTest, ReleaseOfAnUnconnectedObjectMakesNoStorageCall) {
    IProtocolManager* const manager = Get(&Logger());
    ClearLogs();
    manager->Release();
    EXPECT_LOG({6, "~CProtocolManager Enter\n"});
    EXPECT_ALL_CALLS();
}

TEST_F(CEntryTest, ReleaseAfterDisconnectMakesNoStorageCall) {
    IProtocolManager* const manager = Get(&Logger());
    const ConnectParameters parameters = Parameters(L"pool");
    ASSERT_EQ(0U, manager->ZdConnect(&parameters));
    ASSERT_EQ(0U, manager->ZdDisconnect());
    ClearLogs();
    manager->Release();
    EXPECT_LOG({6, "~CProtocolManager Enter\n"});
    EXPECT_ALL_CALLS();
}

// What connections take from the heap is given back, whichever way they end.
TEST_F(CEntryTest, ObjectsThatComeAndGoLeaveNoMemoryBehind) {
    Registry().SetDword(kPluginKey, L"AgentType", 2);
    Registry().SetText(std::wstring(kSpaListKey) + L"\\pool", L"ConfigFilePath", L"C:\\agent\\pool.cfg");
    const ConnectParameters parameters = Parameters(L"pool", L"second", L"third");
    CTextCopies copies(Plugin());
    for (const bool fails : {false, true, false}) {
        if (fails) Double().Add(OnCall("ZdvfsStatvfs").Fails(EIO));
        IProtocolManager* const manager = Get(&Logger());
        EXPECT_EQ(fails ? 1117U : 0U, manager->ZdConnect(&parameters));
        EXPECT_EQ(fails ? 1117U : 0U, manager->ZdConnect(&parameters)) << "connected over a connection";
        EXPECT_NE(0U, copies.Live()) << "the copies go another way than this test watches";
        if (fails) {
            EXPECT_EQ(0U, manager->ZdDisconnect());
        }
        manager->Release();
        EXPECT_EQ(0U, copies.Live());
        Double().ClearRules();
    }
    copies.StopCounting();
}

}  // namespace
