// ZdDisconnect, and connections side by side.
#include <atomic>
#include <thread>

#include "ProtocolFixture.h"

using namespace zd::test;

namespace {

class CDisconnectTest : public CProtocolTest {
protected:
    void SetUp() override {
        CProtocolTest::SetUp();
        ASSERT_EQ(0U, Connect());
        ClearLogs();
    }

    Handle Open(const std::string& name, const CreateOptions& options = CreateOptions()) {
        if (options.isDirectory == 0) Double().MakeFile("pool/" + name, "hello");
        const Created created = Create(L"\\" + Widen(name), options);
        EXPECT_EQ(0U, created.code);
        return created.handle;
    }
};

TEST_F(CDisconnectTest, UnmountsThePool) {
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_ALL_CALLS("ZdvfsUmount(\"pool\") = 0");
    EXPECT_LOG({6, "ZdDiscconect Enter\n"}, {6, "ZdDiscconect Exit\n"});
}

TEST_F(CDisconnectTest, UnconnectedObjectMakesNoStorageCall) {
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    IProtocolManager* const fresh = NewManager();
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdDisconnect()) << "a second time";
    EXPECT_EQ(0U, fresh->ZdDisconnect()) << "never connected";
    EXPECT_ALL_CALLS();
}

TEST_F(CDisconnectTest, FailedUnmountIsNotLookedAt) {
    Double().Add(OnCall("ZdvfsUmount").Fails(EBUSY));
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_LOG({6, "ZdDiscconect Enter\n"}, {6, "ZdDiscconect Exit\n"});
    Double().ClearRules();
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdDisconnect()) << "it counts as disconnected";
    EXPECT_ALL_CALLS();
}

TEST_F(CDisconnectTest, UnmountThatThrowsIsSwallowed) {
    for (const EThrow thrown : {EThrow::kBadAlloc, EThrow::kRuntimeError, EThrow::kUnsignedLong}) {
        Double().Add(OnCall("ZdvfsUmount").Throws(thrown, 4711));
        EXPECT_EQ(0U, m_manager->ZdDisconnect());
        EXPECT_LOG({6, "ZdDiscconect Enter\n"}, {6, "ZdDiscconect Exit\n"});
        Double().ClearRules();
        ClearLogs();
        EXPECT_EQ(0U, m_manager->ZdDisconnect());
        EXPECT_ALL_CALLS();
        EXPECT_EQ(0U, Connect());
        ClearLogs();
    }
}

TEST_F(CDisconnectTest, ClosesEveryHandleBeforeItUnmounts) {
    Double().MakeDirectory("pool/dir");
    const Handle file = Open("a.txt");
    const Handle other = Open("b.txt");
    const Handle directory = Open("dir", {.isDirectory = 1, .disposition = kZdOpen});
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    std::vector<std::string> calls = TakeCalls();
    ASSERT_EQ(4U, calls.size());
    EXPECT_EQ("ZdvfsUmount(\"pool\") = 0", calls.back());
    std::sort(calls.begin(), calls.end());
    EXPECT_TRUE(
        LinesFit({"ZdvfsClose(*) = 0", "ZdvfsClose(*) = 0", "ZdvfsClosedir(*) = 0", "ZdvfsUmount(*) = 0"}, calls));
    // The handles are none any more.
    for (const Handle handle : {file, other, directory}) {
        EXPECT_EQ(6U, Read(handle, 0, 1).code);
        EXPECT_EQ(6U, m_manager->ZdCloseFile(handle, 0));
    }
    EXPECT_CALLS();
}

TEST_F(CDisconnectTest, ClosesAllFragmentsOfAHandleAndWritesItsLines) {
    Double().MakeFile("pool/big;F1", "x");
    const Handle handle = Open("big");
    EXPECT_EQ(6U, Read(handle, 0, 10).count);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_CALLS("ZdvfsClose(*) = 0", "ZdvfsClose(*) = 0", "ZdvfsUmount(\"pool\") = 0");
    EXPECT_LOG({6, "ZdDiscconect Enter\n"}, {6, "CloseFileHandle Enter Fragment: 0, Handle Value: *\n"},
               {6, "CloseFileHandle Enter Fragment: 1, Handle Value: *\n"}, {6, "CloseFileHandle: closeCount: 2\n"},
               {6,
                "CloseFileHandle: found direct-io/write-only/read-write file - m_OpenFlags:2, "
                "m_OpenDirectIOorWriteFiles: 0\n"},
               {6, "ZdDiscconect Exit\n"});
}

TEST_F(CDisconnectTest, DeletesNothing) {
    Open("a.txt");
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_TRUE(Double().Exists("pool/a.txt"));
    EXPECT_EQ(0U, Double().Count("ZdvfsUnlink"));
}

TEST_F(CDisconnectTest, HandleThatWasClosedIsEndedToo) {
    const Handle handle = Open("a.txt");
    ASSERT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_CALLS("ZdvfsUmount(\"pool\") = 0");
    EXPECT_EQ(6U, Read(handle, 0, 1).code);
}

TEST_F(CDisconnectTest, ExceptionWhileClosingEndsTheLoopAndIsSwallowed) {
    Open("a.txt");
    Open("b.txt");
    for (const EThrow thrown : {EThrow::kRuntimeError, EThrow::kBadAlloc, EThrow::kUnsignedLong}) {
        Double().Add(OnCall("ZdvfsClose").OnNth(1).Throws(thrown, 4711));
    }
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_EQ("ZdvfsUmount(\"pool\") = 0", LastCall("ZdvfsUmount").Line());
    EXPECT_TRUE(Double().Mounts().empty());
    EXPECT_EQ(1U, Double().Count("ZdvfsClose"));
    const std::vector<LogLine> lines = TakeLog();
    ASSERT_FALSE(lines.empty());
    EXPECT_TRUE(LogFits({{6, "ZdDiscconect Exit\n"}}, {lines.back()}));
    // The fixture sees to it that the other descriptor is closed when the object dies.
}

TEST_F(CDisconnectTest, FailedCloseDoesNotStopTheOthers) {
    Open("a.txt");
    Open("b.txt");
    Double().Add(OnCall("ZdvfsClose").OnNth(1).Fails(EIO));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_CALLS("ZdvfsClose(*) = -1", "ZdvfsClose(*) = 0", "ZdvfsUmount(\"pool\") = 0");
}

// The handle's lock is held for a whole read, and closing takes it.
TEST_F(CDisconnectTest, WaitsForAnOperationThatIsUnderWay) {
    const Handle handle = Open("a.txt");
    CGate reading;
    CGate proceed;
    std::atomic<bool> isReading{false};
    std::atomic<bool> wasCutOff{false};
    Double().Add(OnCall("ZdvfsPread").Before([&](const Call&) {
        isReading = true;
        reading.Set();
        proceed.Wait();
        isReading = false;
    }));
    Double().Add(OnCall("ZdvfsClose").Before([&](const Call&) { wasCutOff = isReading.load(); }));
    ClearLogs();
    Transfer transfer;
    std::thread reader([&] { transfer = Read(handle, 0, 5); });
    ASSERT_TRUE(reading.Wait());
    std::thread leaver([&] { EXPECT_EQ(0U, m_manager->ZdDisconnect()); });
    while (!Logged(TakeLog(), 6, "ZdDiscconect Enter\n")) ::SwitchToThread();
    proceed.Set();
    reader.join();
    leaver.join();
    EXPECT_EQ("hello", transfer.data);
    EXPECT_FALSE(wasCutOff);
    EXPECT_CALLS("ZdvfsPread(*) = 5", "ZdvfsClose(*) = 0", "ZdvfsUmount(\"pool\") = 0");
}

TEST_F(CDisconnectTest, ObjectConnectsAndDisconnectsOverAndOver) {
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(0U, m_manager->ZdDisconnect());
        EXPECT_TRUE(Double().Mounts().empty());
        EXPECT_EQ(0U, Connect(round % 2 == 0 ? L"pool" : L"p\u00f6l"));
        EXPECT_EQ(0U, Create(L"\\a.txt").code);
    }
}

// ---- Connections side by side ----

class CTwoConnectionsTest : public CDisconnectTest {
protected:
    void SetUp() override {
        CDisconnectTest::SetUp();
        m_other = NewManager();
    }

    DWORD ConnectOther(const wchar_t* pool) {
        const ConnectParameters parameters = Parameters(pool);
        return m_other->ZdConnect(&parameters);
    }

    IProtocolManager* m_other = nullptr;
};

TEST_F(CTwoConnectionsTest, OnePoolIsMountedOncePerConnection) {
    EXPECT_EQ(0U, ConnectOther(L"pool"));
    EXPECT_EQ(2, Double().Mounts()["pool"]);
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_EQ(1, Double().Mounts()["pool"]);
    Double().MakeFile("pool/a.txt", "hello");
    const Created created = Create(L"\\a.txt", {}, m_other);
    EXPECT_EQ(0U, created.code) << "the other connection works on";
    EXPECT_EQ("hello", Read(created.handle, 0, 5, m_other).data);
    EXPECT_EQ(0U, m_other->ZdDisconnect());
    EXPECT_TRUE(Double().Mounts().empty());
}

TEST_F(CTwoConnectionsTest, HandlesBelongToTheirConnection) {
    EXPECT_EQ(0U, ConnectOther(L"pool"));
    const Handle handle = Open("a.txt");
    EXPECT_EQ(6U, Read(handle, 0, 1, m_other).code);
    EXPECT_EQ(6U, m_other->ZdCloseFile(handle, 1));
    EXPECT_TRUE(Double().Exists("pool/a.txt"));
    EXPECT_EQ(0U, m_other->ZdDisconnect());
    EXPECT_EQ("hello", Read(handle, 0, 5).data);
}

TEST_F(CTwoConnectionsTest, PoolsHaveRootsOfTheirOwn) {
    EXPECT_EQ(0U, ConnectOther(L"second"));
    Double().MakeFile("pool/a.txt", "first");
    Double().MakeFile("second/a.txt", "other");
    EXPECT_EQ("first", Read(Create(L"\\a.txt").handle, 0, 5).data);
    EXPECT_EQ("other", Read(Create(L"\\a.txt", {}, m_other).handle, 0, 5, m_other).data);
}

TEST_F(CTwoConnectionsTest, BlocksAreOfTheirOwn) {
    EXPECT_EQ(0U, ConnectOther(L"second"));
    EXPECT_NE(Double().MountBlock("pool"), Double().MountBlock("second"));
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_STREQ("second", *reinterpret_cast<char**>(static_cast<char*>(Double().MountBlock("second")) + 32));
}

// The settings are the process's, what zd.conf says is the connection's.
TEST_F(CTwoConnectionsTest, SegmentSizesAreTheConnectionsOwn) {
    SetAgentValue("PREFERRED_EXT_SEGKSIZE", "vhd:4");
    EXPECT_EQ(0U, ConnectOther(L"second"));
    ClearLogs();
    Create(L"\\a.vhd");
    EXPECT_EQ(0U, Double().Count("ZdvfsIoctl"));
    Create(L"\\a.vhd", {}, m_other);
    EXPECT_TRUE(Fits("ZdvfsIoctl(*, 2, 4096, 4) = 0", LastCall("ZdvfsIoctl").Line()));
}

TEST_F(CTwoConnectionsTest, ReleaseOfOneLeavesTheOther) {
    EXPECT_EQ(0U, ConnectOther(L"pool"));
    Environment().ReleaseManager(m_manager);
    m_manager = m_other;
    EXPECT_EQ(1, Double().Mounts()["pool"]);
    EXPECT_EQ(0U, Create(L"\\a.txt").code);
    m_other->ZdRefreshSettings(0, true);
    EXPECT_EQ(6U, BlockLevel());
}

TEST_F(CTwoConnectionsTest, ObjectsConnectAndWorkOnSeveralThreadsAtOnce) {
    constexpr int kThreads = 4;
    std::vector<IProtocolManager*> managers;
    for (int i = 0; i < kThreads; ++i) managers.push_back(NewManager());
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            IProtocolManager* const manager = managers[static_cast<std::size_t>(i)];
            const ConnectParameters parameters = Parameters(i % 2 == 0 ? L"pool" : L"p" + std::to_wstring(i));
            for (int round = 0; round < 20; ++round) {
                if (manager->ZdConnect(&parameters) != 0) ++failures;
                const Created created = Create(L"\\t" + std::to_wstring(i), {}, manager);
                if (created.code != 0 || Write(created.handle, 0, "data", manager).code != 0) ++failures;
                manager->ZdRefreshSettings(0, round % 2 == 0);
                if (manager->ZdDisconnect() != 0) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, failures);
    EXPECT_THAT(Double().Mounts(), ::testing::ElementsAre(::testing::Pair("pool", 1)));
}

}  // namespace
