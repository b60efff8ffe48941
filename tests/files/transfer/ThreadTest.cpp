// Several threads, on one handle and on handles of their own.
#include <thread>

#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CThreadTest : public CFilesTest {
protected:
    static void Run(int threads, const std::function<void(int)>& work) {
        std::vector<std::thread> running;
        for (int t = 0; t < threads; ++t) running.emplace_back([&work, t] { work(t); });
        for (std::thread& thread : running) thread.join();
    }
};

TEST_F(CThreadTest, ThreadsOnOneHandleWriteAndReadTheirOwnRanges) {
    constexpr int kThreads = 6;
    constexpr std::size_t kRange = 700;  // over several fragments of 64 bytes, no range ends at a boundary
    for (const DWORD limit : {1U, 2U, 0xFFFFFFFFU, 100U}) {
        SCOPED_TRACE(limit);
        ConnectWith(limit);
        const Handle handle = OpenSized(64, std::string(kThreads * kRange, '#'));
        Run(kThreads, [&](int t) {
            const auto base = static_cast<std::int64_t>(kRange) * t;
            for (unsigned round = 0; round < 10; ++round) {
                const std::string data = Pattern(kRange, static_cast<unsigned>(t) * 100 + round);
                ASSERT_EQ(kRange, Write(handle, base, data).count);
                ASSERT_TRUE(data == Read(handle, base, kRange).data) << "thread " << t;
                if (round == 5) {
                    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
                }
            }
        });
        std::string expected;
        for (unsigned t = 0; t < kThreads; ++t) expected += Pattern(kRange, t * 100 + 9);
        EXPECT_TRUE(expected == StoredWhole());
        EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    }
}

TEST_F(CThreadTest, AWriteOverSeveralFragmentsIsSeenWholeOrNotAtAll) {
    ConnectWith(2);
    constexpr std::size_t kBytes = 60;
    const Handle handle = OpenSized(7, std::string(kBytes, 'a'));
    Run(4, [&](int t) {
        for (int round = 0; round < 100; ++round) {
            if (t % 2 == 0) {
                ASSERT_EQ(0U, Write(handle, 0, std::string(kBytes, static_cast<char>('a' + (t + round) % 26))).code);
            } else {
                const std::string seen = Read(handle, 0, kBytes).data;
                ASSERT_EQ(std::string(kBytes, seen.empty() ? '?' : seen[0]), seen);
            }
        }
    });
    Close(handle);
}

TEST_F(CThreadTest, ThreadsOnHandlesOfTheirOwnDoNotDisturbEachOther) {
    ConnectWith(2);
    constexpr int kThreads = 5;
    std::vector<Handle> handles;
    for (int t = 0; t < kThreads; ++t) handles.push_back(OpenSized(50, "", "file" + std::to_string(t)));
    Run(kThreads, [&](int t) {
        const Handle handle = handles[static_cast<std::size_t>(t)];
        std::string expected;
        for (unsigned round = 0; round < 30; ++round) {
            const std::string piece = Pattern(37, round + static_cast<unsigned>(t) * 1000);
            ASSERT_EQ(0U, Write(handle, static_cast<std::int64_t>(expected.size()), piece).code);
            expected += piece;
            ASSERT_TRUE(expected == Read(handle, 0, 5000).data);
        }
        ASSERT_EQ(0U, m_manager->ZdSetFileSize(handle, 333));
        ASSERT_TRUE(expected.substr(0, 333) == StoredWhole("file" + std::to_string(t)));
    });
    for (const Handle handle : handles) Close(handle);
    EXPECT_EQ(0, OpenWriters());
}

TEST_F(CThreadTest, HandlesOnOneFileWriteDisjointRangesSideBySide) {
    ConnectWith();
    constexpr int kThreads = 4;
    constexpr std::size_t kRange = 90;
    const Handle first = OpenSized(40, std::string(kThreads * kRange, '#'));
    Run(kThreads, [&](int t) {
        const Created own = Create(L"\\A", kOpenToWrite);  // no such file: names of the storage differ by case
        EXPECT_EQ(2U, own.code);
        const Created created = Create(L"\\a", kOpenToWrite);
        ASSERT_EQ(0U, created.code);
        const auto base = static_cast<std::int64_t>(kRange) * t;
        for (unsigned round = 0; round < 20; ++round) {
            ASSERT_EQ(0U, Write(created.handle, base, Pattern(kRange, static_cast<unsigned>(t) + round)).code);
        }
        Close(created.handle);
    });
    std::string expected;
    for (unsigned t = 0; t < kThreads; ++t) expected += Pattern(kRange, t + 19);
    EXPECT_TRUE(expected == Read(first, 0, 1000).data);
    Close(first);
    EXPECT_EQ(0, OpenWriters());
}

}  // namespace
}  // namespace zd::test
