// A connect that fails leaves nothing behind, at whatever step it fails.
#include <map>
#include <thread>

#include "log/ClosurePatches.h"
#include "ProtocolFixture.h"
#include "TextCopies.h"

using namespace zd::test;

namespace {

class CFailedConnectTest : public CProtocolTest {
protected:
    void SetUp() override {
        CProtocolTest::SetUp();
        m_manager = NewManager();
        ClearLogs();
    }

    // Connects with all words; -1 where it threw.
    std::int64_t TryConnect() {
        const ConnectParameters parameters = Parameters(L"pool", L"second", L"third");
        try {
            return m_manager->ZdConnect(&parameters);
        } catch (unsigned long) {
            return -1;
        }
    }

    void ExpectNothingIsLeft() {
        EXPECT_TRUE(Double().Mounts().empty());
        EXPECT_EQ(0U, Double().OpenDescriptors().size());
        EXPECT_EQ(0U, Double().OpenStreams().size());
        Double().ClearRules();
        ClearLogs();
        // The object is unconnected: nothing to disconnect.
        EXPECT_EQ(0U, m_manager->ZdDisconnect());
        EXPECT_ALL_CALLS();
    }
};

TEST_F(CFailedConnectTest, FailedMountIsNotUnmounted) {
    Double().Add(OnCall("ZdvfsMountV1").Fails(EACCES));
    EXPECT_EQ(5, TryConnect());
    EXPECT_EQ(1U, TakeCalls().size());
    EXPECT_LOG({6, "ZdConnect Enter\n"}, {6, "Agent Type is: 0\n"}, {6, "ZdConnect Exit\n"});
    ExpectNothingIsLeft();
}

TEST_F(CFailedConnectTest, FailedVolumeQueryUnmounts) {
    Double().Add(OnCall("ZdvfsStatvfs").Fails(ENOSPC));
    EXPECT_EQ(39, TryConnect());
    EXPECT_CALLS("ZdvfsMountV1(*) = 0", "ZdvfsStatvfs(\"pool\") = -1", "ZdvfsUmount(\"pool\") = 0");
    EXPECT_LOG({6, "ZdConnect Enter\n"}, {6, "Agent Type is: 0\n"}, {6, "ZdConnect Exit\n"});
    ExpectNothingIsLeft();
}

TEST_F(CFailedConnectTest, UnmountOfAFailedConnectDoesNotChangeTheResult) {
    Double().Add(OnCall("ZdvfsStatvfs").Fails(ENOSPC));
    Double().Add(OnCall("ZdvfsUmount").Fails(EBUSY));
    EXPECT_EQ(39, TryConnect());
    Double().Add(OnCall("ZdvfsUmount").Throws(EThrow::kRuntimeError));
    EXPECT_EQ(39, TryConnect());
}

TEST_F(CFailedConnectTest, MountThatAnswersAPositiveNumberIsASuccess) {
    Double().Add(OnCall("ZdvfsStatvfs").Answers(1));
    EXPECT_EQ(0, TryConnect());
}

// Every call of a connect fails once, in each way; the object connects again afterwards.
TEST_F(CFailedConnectTest, WhateverFailsTheObjectConnectsAgain) {
    Registry().SetDword(kPluginKey, L"AgentType", 2);
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\pool.cfg");
    Double().MakeFile("pool/top/QBX_ZD_MARKER");
    ASSERT_EQ(0, TryConnect());
    std::vector<std::string> functions;
    for (const Call& call : Double().Calls()) functions.push_back(call.function);
    ASSERT_EQ(0U, m_manager->ZdDisconnect());
    static constexpr struct {
        EThrow thrown;
        std::int64_t code;
    } kWays[] = {{EThrow::kBadAlloc, 8}, {EThrow::kRuntimeError, -1}, {EThrow::kUnsignedLong, 4711}};
    std::map<std::string, int> seen;
    int lost = 0;  // blocks of the converter that it would not take back
    AllowLeaks();
    for (const std::string& function : functions) {
        const int nth = ++seen[function];
        for (const auto& way : kWays) {
            SCOPED_TRACE(function + " " + std::to_string(nth) + ", " + std::to_string(way.code));
            Double().Add(OnCall(function).OnNth(nth).Throws(way.thrown, 4711));
            EXPECT_EQ(way.code, TryConnect());
            if (function == "_HulFree") ++lost;
            EXPECT_EQ(lost, Hul().LiveBlocks());
            ExpectNothingIsLeft();
            EXPECT_EQ(0, TryConnect());
            EXPECT_EQ("\"second\"", BlockValue("second"));
            EXPECT_EQ(0U, m_manager->ZdDisconnect());
        }
    }
}

// Each allocation of a connect fails once.
TEST_F(CFailedConnectTest, AllocationFailureGivesEightAndLeavesNothingBehind) {
    Registry().SetDword(kPluginKey, L"AgentType", 2);
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\pool.cfg");
    SetAgentValue("PREFERRED_EXT_SEGKSIZE", "edb:4,vhd:8");
    ASSERT_EQ(0, TryConnect());
    ASSERT_EQ(0U, m_manager->ZdDisconnect());
    Registry().SetDword(kPluginKey, L"DebugLevel", 1);
    m_manager->ZdRefreshSettings(0, false);
    int left = 0;
    bool counting = false;
    CClosurePatches patches(Plugin());
    patches.Replace<void*(std::size_t)>("malloc", [&](auto original, std::size_t size) -> void* {
        return counting && left-- == 0 ? nullptr : original(size);
    });
    patches.Replace<char*(const char*)>("_strdup", [&](auto original, const char* text) -> char* {
        return counting && left-- == 0 ? nullptr : original(text);
    });
    int failures = 0;
    for (; failures < 1000; ++failures) {
        left = failures;
        counting = true;
        const std::int64_t code = TryConnect();
        counting = false;
        if (left >= 0) {
            EXPECT_EQ(0, code);
            break;
        }
        // Memory for a line of the log, or that has another way out, may be missing without harm.
        if (code == 0) {
            EXPECT_EQ(0U, m_manager->ZdDisconnect());
            continue;
        }
        EXPECT_EQ(8, code) << "failure " << failures;
        ExpectNothingIsLeft();
    }
    EXPECT_GT(failures, 5);
    patches.Restore();
}

TEST_F(CFailedConnectTest, ConverterThatThrowsWhenItsBlockIsGivenBackDoesNotChangeTheResult) {
    Registry().SetDword(kPluginKey, L"AgentType", 2);
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\pool.cfg");
    CClosurePatches patches(Plugin());
    patches.Replace<char*(const char*)>("_strdup", [](auto original, const char* text) -> char* {
        return std::strcmp(text, "C:\\pool.cfg") == 0 ? nullptr : original(text);
    });
    for (const bool throws : {false, true}) {
        SCOPED_TRACE(throws);
        if (throws) Double().Add(OnCall("_HulFree").Throws(EThrow::kRuntimeError));
        EXPECT_EQ(8, TryConnect());
        EXPECT_EQ(1U, Double().Count("_HulFree"));
        EXPECT_EQ(throws ? 1 : 0, Hul().LiveBlocks());
        EXPECT_EQ(0U, Double().Count("ZdvfsMountV1"));
        ExpectNothingIsLeft();
    }
    patches.Restore();
    EXPECT_EQ(0, TryConnect());
    AllowLeaks();  // the block that was not taken back
}

TEST_F(CFailedConnectTest, FailedConnectGivesItsWordsBackAtOnce) {
    CTextCopies copies(Plugin());
    std::size_t atMount = 0;
    Double().Add(OnCall("ZdvfsMountV1").Before([&](const Call&) { atMount = copies.Live(); }).Fails(EIO));
    EXPECT_EQ(1117, TryConnect());
    copies.StopCounting();
    EXPECT_EQ(3U, atMount) << "pool, second and third name";
    EXPECT_EQ(0U, copies.Live());
}

TEST_F(CFailedConnectTest, FailedConnectOverAConnectionLeavesNeither) {
    ASSERT_EQ(0U, Connect(L"one"));
    Double().MakeFile("one/a.txt", "hello");
    const Handle handle = Create(L"\\a.txt").handle;
    Double().Add(OnCall("ZdvfsMountV1").Fails(EACCES));
    EXPECT_EQ(5U, Connect(L"two"));
    EXPECT_EQ(6U, Read(handle, 0, 1).code);
    ExpectNothingIsLeft();
    EXPECT_EQ(0U, Connect(L"one"));
}

// Names of an object whose connect failed do not reach into the pool that it wanted.
TEST_F(CFailedConnectTest, FailedConnectTakesTheRootPrefixBack) {
    Double().Add(OnCall("ZdvfsStatvfs").Fails(EIO));
    EXPECT_EQ(1117, TryConnect());
    Double().ClearRules();
    ClearLogs();
    EXPECT_NE(0U, Create(L"a.txt", {.disposition = kZdOpen}).code);
    EXPECT_EQ("ZdvfsStat(\"/a.txt\") = -1", LastCall("ZdvfsStat").Line());
}

TEST_F(CFailedConnectTest, BlockOfAFailedConnectIsNotInTheListOfMounts) {
    char* block = nullptr;
    Double().Add(OnCall("ZdvfsStatvfs")
                     .Before([&](const Call&) { block = static_cast<char*>(Double().MountBlock("pool")); })
                     .Fails(EIO));
    EXPECT_EQ(1117, TryConnect());
    Double().ClearRules();
    ASSERT_NE(nullptr, block);
    IProtocolManager* const other = NewManager();
    Registry().SetDword(kPluginKey, L"DebugLevel", 4);
    other->ZdRefreshSettings(0, false);
    other->ZdRefreshSettings(0, true);
    std::uint32_t level = 0;
    std::memcpy(&level, block + 16, sizeof(level));
    EXPECT_EQ(6U, level);
}

TEST_F(CFailedConnectTest, LockIsFreeAfterEveryWayOut) {
    for (const EThrow thrown : {EThrow::kBadAlloc, EThrow::kRuntimeError, EThrow::kUnsignedLong}) {
        Double().Add(OnCall("ZdvfsMountV1").Throws(thrown, 4711));
        EXPECT_NE(0, TryConnect());
        Double().ClearRules();
        CGate done;
        std::thread second([&] {
            EXPECT_EQ(0, TryConnect());
            EXPECT_EQ(0U, m_manager->ZdDisconnect());
            done.Set();
        });
        const bool free = done.Wait();
        EXPECT_TRUE(free);
        free ? second.join() : second.detach();
    }
}

}  // namespace
