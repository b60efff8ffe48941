// An append holds both of its handles, and opposite appends get by each other.
#include <atomic>
#include <thread>

#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CAppendLockTest : public CConnectedFilesTest {
protected:
    // Runs an append that stops inside ZdvfsAppend while another thread works on `busy`, and tells whether the other
    // thread's storage call was made before the append's ended.
    bool GotIn(Handle target, Handle source, Handle busy) {
        std::atomic<bool> appending{false};
        std::atomic<bool> gotIn{false};
        CGate entered;
        CGate proceed;
        Double().Add(OnCall("ZdvfsAppend").Before([&](const Call&) {
            appending = true;
            entered.Set();
            EXPECT_TRUE(proceed.Wait());
            appending = false;
        }));
        Double().Add(OnCall("ZdvfsPread").Before([&](const Call&) { gotIn = appending.load(); }));
        std::thread appender([&] { EXPECT_EQ(0U, m_manager->ZdAppendFile(target, source, 4, 0, 2)); });
        EXPECT_TRUE(entered.Wait());
        ClearLogs();
        CGate done;
        std::thread reader([&] {
            EXPECT_EQ(0U, Read(busy, 0, 2).code);
            done.Set();
        });
        while (!Logged(TakeLog(), 6, "ZdReadFile Enter*")) ::SwitchToThread();
        // The reader stands before its lock or has it; some turns more would take it on to the storage.
        for (int turn = 0; turn < 200 && !done.IsSet(); ++turn) ::SwitchToThread();
        proceed.Set();
        reader.join();
        appender.join();
        Double().ClearRules();
        return gotIn;
    }
};

TEST_F(CAppendLockTest, TargetIsHeldForTheTransfer) {
    const Handle target = Open({"0123"}, "t");
    const Handle source = Open({"abcd"}, "s");
    EXPECT_FALSE(GotIn(target, source, target));
    Close(target);
    Close(source);
}

TEST_F(CAppendLockTest, SourceIsHeldForTheTransfer) {
    const Handle target = Open({"0123"}, "t");
    const Handle source = Open({"abcd"}, "s");
    EXPECT_FALSE(GotIn(target, source, source));
    Close(target);
    Close(source);
}

TEST_F(CAppendLockTest, AThirdHandleIsFreeEvenOnTheSameName) {
    const Handle target = Open({"0123"}, "t");
    const Handle source = Open({"abcd"}, "s");
    const Created third = Create(L"\\s", kOpenToRead);
    ASSERT_EQ(0U, third.code);
    CGate entered;
    CGate proceed;
    Double().Add(OnCall("ZdvfsAppend").Before([&](const Call&) {
        entered.Set();
        EXPECT_TRUE(proceed.Wait());
    }));
    std::thread appender([&] { EXPECT_EQ(0U, m_manager->ZdAppendFile(target, source, 4, 0, 2)); });
    ASSERT_TRUE(entered.Wait());
    EXPECT_EQ("abcd", Read(third.handle, 0, 4).data) << "handles on one name are not serialised";
    proceed.Set();
    appender.join();
    Close(third.handle);
    Close(target);
    Close(source);
}

TEST_F(CAppendLockTest, OppositeAppendsDoNotDeadlock) {
    constexpr int kRounds = 500;
    const Handle first = Open({"0123456789"}, "one");
    const Handle second = Open({"abcdefghij"}, "two");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                const Handle target = t % 2 == 0 ? first : second;
                const Handle source = t % 2 == 0 ? second : first;
                ASSERT_EQ(0U, m_manager->ZdAppendFile(target, source, 10, 0, 10));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ("0123456789abcdefghij", StoredWhole("one"));
    EXPECT_EQ("abcdefghij0123456789", StoredWhole("two"));
    Close(first);
    Close(second);
}

TEST_F(CAppendLockTest, ARingOfAppendsDoesNotDeadlock) {
    constexpr int kRounds = 300;
    const Handle handles[] = {Open({"0123456789"}, "one"), Open({"abcdefghij"}, "two"), Open({"ABCDEFGHIJ"}, "three")};
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < kRounds; ++i) {
                ASSERT_EQ(0U, m_manager->ZdAppendFile(handles[t], handles[(t + 1) % 3], 10, 0, 10));
                ASSERT_EQ(0U, m_manager->ZdAppendFile(handles[t], handles[t], 20, 0, 5));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ("0123456789abcdefghij01234", StoredWhole("one"));
    for (const Handle handle : handles) Close(handle);
}

}  // namespace
}  // namespace zd::test
