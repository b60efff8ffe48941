// Which values are handles, and how long a record lives.
#include <atomic>
#include <thread>

#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CHandleTest : public CConnectedFilesTest {
protected:
    struct Use {
        const char* name;
        std::function<DWORD(Handle)> call;
        const char* error;  // the beginning of the operation's error lines
    };

    // Every operation of this folder that takes a handle and answers for an unknown one.
    std::vector<Use> Uses(Handle known) {
        return {
            {"close", [this](Handle h) { return m_manager->ZdCloseFile(h, 0); }, "ZdCloseFile"},
            {"close and delete", [this](Handle h) { return m_manager->ZdCloseFile(h, 1); }, "ZdCloseFile"},
            {"read", [this](Handle h) { return Read(h, 0, 1).code; }, "ZdReadFile"},
            {"write", [this](Handle h) { return Write(h, 0, "x").code; }, "ZdWriteFile"},
            {"set size", [this](Handle h) { return m_manager->ZdSetFileSize(h, 1); }, "ZdSetFileSize"},
            {"append to", [=, this](Handle h) { return m_manager->ZdAppendFile(h, known, 0, 0, 1); }, "ZdAppendFile"},
            {"append from", [=, this](Handle h) { return m_manager->ZdAppendFile(known, h, 0, 0, 1); }, "ZdAppendFile"},
        };
    }

    // Expects that every use of the value is refused with 6, with no storage call and no error line.
    void ExpectUnknown(Handle handle, Handle known) {
        for (const Use& use : Uses(known)) {
            ClearLogs();
            EXPECT_EQ(6U, use.call(handle)) << use.name;
            EXPECT_CALLS() << use.name;
            for (const LogLine& line : TakeLog()) EXPECT_EQ(6U, line.level) << use.name << ": " << line.text;
        }
    }
};

TEST_F(CHandleTest, UnknownHandlesAreInvalidInEveryOperation) {
    const Handle known = Open({"hello"});
    for (const Handle handle : {Handle{1}, known + 1, known - 8, ~Handle{0}, Handle{0xCDCDCDCDCDCDCDCD}}) {
        SCOPED_TRACE(Pointer(handle));
        ExpectUnknown(handle, known);
    }
    EXPECT_EQ("hello", StoredWhole());
    Close(known);
}

TEST_F(CHandleTest, HandleZeroIsInvalidWhereItsPartGivesNothingElse) {
    const Handle known = Open({"hello"});
    for (const Use& use : Uses(known)) {
        ClearLogs();
        const bool closes = std::string(use.name).starts_with("close");
        EXPECT_EQ(closes ? 0U : 6U, use.call(0)) << use.name;
        EXPECT_CALLS() << use.name;
    }
    Close(known);
}

TEST_F(CHandleTest, ReleasedHandleIsUnknown) {
    const Handle known = Open({"hello"}, "known");
    const Handle released = Open({"hello"}, "released");
    Close(released);
    ExpectUnknown(released, known);
    Close(known);
}

TEST_F(CHandleTest, HandleOfAnotherConnectionIsUnknown) {
    IProtocolManager* const other = NewManager();
    const ConnectParameters parameters = Parameters(L"pool");
    ASSERT_EQ(0U, other->ZdConnect(&parameters));
    const Handle known = Open({"hello"});
    const Created foreign = Create(L"\\a", kOpenToWrite, other);
    ASSERT_EQ(0U, foreign.code);
    ExpectUnknown(foreign.handle, known);
    Close(foreign.handle, other);
    Close(known);
}

TEST_F(CHandleTest, DisconnectEndsEveryHandle) {
    const Handle first = Open({"one"}, "one");
    Open({"two"}, "two");
    Double().MakeDirectory("pool/dir");
    ASSERT_EQ(0U, Create(L"\\dir", {.isDirectory = 1, .disposition = kZdOpen}).code);
    EXPECT_EQ(0U, m_manager->ZdDisconnect());
    EXPECT_TRUE(Double().OpenDescriptors().empty());
    EXPECT_TRUE(Double().OpenStreams().empty());
    ASSERT_EQ(0U, Connect());
    const Handle known = Open({"hello"});
    ExpectUnknown(first, known);
    Close(known);
}

TEST_F(CHandleTest, DataOperationsOnADirectoryAreDeniedWithoutStorageCalls) {
    const Handle file = Open({"hello"});
    Double().MakeDirectory("pool/dir");
    const Created directory = Create(L"\\dir", {.isDirectory = 1, .disposition = kZdOpen});
    ASSERT_EQ(0U, directory.code);
    for (const Use& use : Uses(file)) {
        if (std::string(use.name).starts_with("close")) continue;
        ClearLogs();
        EXPECT_EQ(5U, use.call(directory.handle)) << use.name;
        EXPECT_CALLS() << use.name;
    }
    EXPECT_EQ(5U, m_manager->ZdAppendFile(directory.handle, directory.handle, 0, 0, 1));
    EXPECT_EQ(5U, Read(directory.handle, 0, 0).code);
    EXPECT_CALLS();
    EXPECT_EQ("hello", StoredWhole());
    Close(directory.handle);
    Close(file);
}

TEST_F(CHandleTest, RecordOutlivesItsReleaseWhileAnOperationHoldsIt) {
    const Handle handle = Open({"hello"});
    CGate reading;
    CGate proceed;
    Double().Add(OnCall("ZdvfsPread").Before([&](const Call&) {
        reading.Set();
        EXPECT_TRUE(proceed.Wait());
    }));
    Transfer transfer;
    std::thread reader([&] { transfer = Read(handle, 0, 5); });
    ASSERT_TRUE(reading.Wait());
    CGate released;
    std::thread releaser([&] {
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
        released.Set();
    });
    // The release waits for the record's lock, which the read holds.
    while (!Logged(TakeLog(), 6, "ZdReleaseFile Enter\n")) ::SwitchToThread();
    EXPECT_FALSE(released.IsSet());
    EXPECT_CALLS("ZdvfsPread(10, 5, 0) = ...");
    proceed.Set();
    reader.join();
    releaser.join();
    EXPECT_EQ(0U, transfer.code);
    EXPECT_EQ("hello", transfer.data);
    EXPECT_CALLS("ZdvfsClose(10) = 0");
    EXPECT_EQ(6U, Read(handle, 0, 1).code);
}

TEST_F(CHandleTest, OperationsOnOneHandleTakeTurns) {
    const Handle handle = Open({"hello"});
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    const auto enter = [&](const Call&) {
        const int now = ++inside;
        int seen = most;
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        for (int i = 0; i < 20; ++i) ::SwitchToThread();
        --inside;
    };
    for (const char* function : {"ZdvfsPread", "ZdvfsPwrite", "ZdvfsFtruncate", "ZdvfsAppend", "ZdvfsClose"}) {
        Double().Add(OnCall(function).Before(enter));
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 25; ++i) {
                EXPECT_EQ(0U, Read(handle, t, 3).code);
                EXPECT_EQ(0U, Write(handle, t * 10, "data").code);
                EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 40 + t));
                EXPECT_EQ(0U, m_manager->ZdAppendFile(handle, handle, 50, 0, 4));
                EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(1, most.load());
    Close(handle);
}

TEST_F(CHandleTest, AHandleAtWorkDoesNotHoldTheOthersUp) {
    const Handle busy = Open({"busy"}, "busy");
    const Handle free = Open({"free"}, "free");
    CGate reading;
    CGate proceed;
    Double().Add(OnCall("ZdvfsPread").ForPath("pool/busy").Before([&](const Call&) {
        reading.Set();
        EXPECT_TRUE(proceed.Wait());
    }));
    std::thread reader([&] { EXPECT_EQ("busy", Read(busy, 0, 4).data); });
    ASSERT_TRUE(reading.Wait());
    EXPECT_EQ("free", Read(free, 0, 4).data);
    EXPECT_EQ(0U, Write(free, 4, "dom").code);
    const Created third = Create(L"\\busy", kOpenToRead);
    EXPECT_EQ(0U, third.code) << "a second handle on the busy name";
    Close(third.handle);
    Close(free);
    proceed.Set();
    reader.join();
    Close(busy);
    EXPECT_EQ("freedom", StoredWhole("free"));
}

TEST_F(CHandleTest, ThreadsOpenUseAndReleaseSideBySide) {
    constexpr int kThreads = 6;
    constexpr int kRounds = 40;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            // Half of them share a name, in two spellings.
            const std::string own = t % 2 == 0 ? (t % 4 == 0 ? "Shared" : "sHARED") : "own" + std::to_string(t);
            for (int i = 0; i < kRounds; ++i) {
                const Created file = Create(HostName(own));
                ASSERT_EQ(0U, file.code);
                EXPECT_EQ(0U, Write(file.handle, 0, "0123456789").code);
                EXPECT_EQ("0123456789", Read(file.handle, 0, 100).data);
                if (i % 2 == 0) {
                    EXPECT_EQ(0U, m_manager->ZdCloseFile(file.handle, 0));
                }
                EXPECT_EQ(0U, m_manager->ZdReleaseFile(file.handle));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(Double().OpenDescriptors().empty());
    EXPECT_EQ(0, OpenWriters());
}

}  // namespace
}  // namespace zd::test
