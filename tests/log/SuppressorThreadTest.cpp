// Lines from several threads: each one is written or counted, once, and the queue tells so in order.
#include <atomic>
#include <cstdio>
#include <thread>

#include "SuppressorFixture.h"

namespace zd::test {
namespace {

constexpr int kThreads = 4;
constexpr int kLines = 1000;

class SuppressorThreads : public CSuppressorTest {
protected:
    // Runs `body` on every thread at once.
    template <class Body>
    static void OnThreads(Body body) {
        CGate go;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&go, &body, thread] {
                go.Wait();
                body(thread);
            });
        }
        go.Set();
        for (std::thread& thread : threads) thread.join();
    }

    // How often one and the same line came, by what was written and what is still remembered.
    int Accounted(const Texts& texts) {
        int total = 0;
        bool open = false;  // a line was written whose repetitions are not told
        for (const std::string& text : texts) {
            int messages = 0;
            int times = 0;
            if (std::sscanf(text.c_str(), "The previous %d messages have repeated %d times\n", &messages, &times) ==
                2) {
                EXPECT_EQ(1, messages);
                EXPECT_TRUE(open) << "a summary without its line";
                total += times;
                open = false;
            } else {
                EXPECT_EQ("A\n", text);
                total += open ? 1 : 0;
                open = true;
            }
        }
        if (!Suppressor().recent.empty()) return total + Suppressor().recent.front().count;
        return total + (open ? 1 : 0);
    }
};

TEST_F(SuppressorThreads, OneLineFromAllOfThemIsToldExactlyAtEachLimit) {
    Suppressor().occurrenceLimit = 100;
    Start();
    OnThreads([this](int) {
        for (int i = 0; i < kLines; ++i) Say("A\n");
    });
    Texts expected;
    for (int i = 0; i < kThreads * kLines / 101; ++i) {
        expected.push_back("A\n");
        expected.push_back(Summary(1, 101));
    }
    expected.push_back("A\n");
    EXPECT_EQ(expected, Queued());
    EXPECT_EQ("A61", Remembered());
}

TEST_F(SuppressorThreads, EachLineIsWrittenOrCountedWhileTheLevelChanges) {
    Suppressor().timeLimit = -1;  // each change of the level tells and forgets
    Suppressor().occurrenceLimit = 50;
    Start();
    std::atomic<int> said{0};
    OnThreads([this, &said](int thread) {
        for (int i = 0; i < kLines; ++i) {
            if (thread == 0 && i % 10 == 0) Reload();
            Say("A\n");
            ++said;
        }
    });
    EXPECT_EQ(said.load(), Accounted(Queued()));
    EXPECT_EQ(kThreads * kLines, said.load());
}

TEST_F(SuppressorThreads, LinesOfEachThreadKeepTheirOrderWhereNoneIsRepeated) {
    Start();
    OnThreads([this](int thread) {
        for (int i = 0; i < kLines; ++i) {
            Say((std::to_string(thread) + " " + std::to_string(i) + "\n").c_str());
        }
    });
    int next[kThreads] = {};
    const Texts texts = Queued();
    EXPECT_EQ(static_cast<std::size_t>(kThreads * kLines), texts.size());
    for (const std::string& text : texts) {
        int thread = 0;
        int number = 0;
        ASSERT_EQ(2, std::sscanf(text.c_str(), "%d %d\n", &thread, &number)) << text;
        EXPECT_EQ(next[thread]++, number);
    }
}

TEST_F(SuppressorThreads, SummariesStayWithinTheLimitsWhateverTheOrder) {
    Suppressor().maxMessages = 3;
    Suppressor().occurrenceLimit = 20;
    Start();
    OnThreads([this](int thread) {
        const std::string own = std::string(1, static_cast<char>('A' + thread)) + "\n";
        for (int i = 0; i < kLines; ++i) Say(own.c_str());
    });
    // Whatever the order was: no more messages than are remembered are ever told, none beyond the limit, and no
    // summary follows another without a line between them.
    bool lineBefore = false;
    for (const std::string& text : Queued()) {
        int messages = 0;
        int times = 0;
        if (std::sscanf(text.c_str(), "The previous %d messages have repeated %d times\n", &messages, &times) == 2) {
            EXPECT_TRUE(lineBefore);
            EXPECT_GE(messages, 1);
            EXPECT_LE(messages, 3);
            EXPECT_GE(times, 2);
            EXPECT_LE(times, 21);
            lineBefore = false;
        } else {
            lineBefore = true;
        }
    }
    EXPECT_LE(Suppressor().recent.size(), 3U);
}

TEST_F(SuppressorThreads, FirstLinesOfTheProcessAreFoldedToo) {
    Suppressor().enabled = true;
    m_manager = NewManager();
    OnThreads([this](int thread) {
        if (thread == 0) Reload();
        for (int i = 0; i < 10; ++i) Say("A\n");
    });
    EXPECT_EQ(kThreads * 10, Accounted(Queued()));
}

TEST_F(SuppressorThreads, CountedLinesLeaveTheErrorsOfTheirThreadAlone) {
    Start();
    Say("A\n");
    ::SetLastError(4711);
    errno = 42;
    Say("A\n");
    EXPECT_EQ(4711U, ::GetLastError());
    EXPECT_EQ(42, errno);
    Say("B\n");
    EXPECT_EQ(4711U, ::GetLastError());
    EXPECT_EQ(42, errno);
}

}  // namespace
}  // namespace zd::test
