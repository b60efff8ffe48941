// The plug-in's own side of the log, linked in: what operations call, without the interface in between.
#include "log/Log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <string>
#include <vector>

#include "ClosurePatches.h"
#include "harness/RegistrySandbox.h"
#include "log/LogFile.h"
#include "log/LogState.h"

namespace {

// Allocations that this thread may still make; negative: as many as it wants.
thread_local int t_allocationsLeft = -1;

void* Allocate(std::size_t size) {
    if (t_allocationsLeft == 0) return nullptr;
    if (t_allocationsLeft > 0) --t_allocationsLeft;
    return ::HeapAlloc(::GetProcessHeap(), 0, size);
}

}  // namespace

void* operator new(std::size_t size) {
    void* const block = Allocate(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void operator delete(void* block) noexcept {
    ::HeapFree(::GetProcessHeap(), 0, block);
}
void operator delete(void* block, std::size_t) noexcept {
    ::HeapFree(::GetProcessHeap(), 0, block);
}

namespace zd::test {
namespace {

constexpr DWORD kPatience = 20000;

class LogCall : public ::testing::Test {
protected:
    void SetUp() override {
        static int tests = 0;
        ASSERT_EQ(++tests, 1) << "the log lasts as long as the process: run one test a process (ctest does)";
        g_logState.Create();
        m_patches.Replace<decltype(::OutputDebugStringA)>("OutputDebugStringA", [this](auto, const char* text) {
            if (m_gate != nullptr) ::WaitForSingleObject(m_gate, INFINITE);
            m_shown.emplace_back(text + 11);  // without the prefix; the log runs without a file, so no path comes
        });
    }

    void TearDown() override {
        if (m_gate != nullptr) ::SetEvent(m_gate);
        EXPECT_TRUE(m_logger.Stop(kPatience));
        m_patches.Restore();
    }

    void Adopt(std::int32_t level) {
        m_logger.level = level;
        AdoptLogger(&m_logger);
    }

    // From now on the writer stays in its first output until `m_gate` is set.
    void HoldTheWriter() { m_gate = ::CreateEventW(nullptr, TRUE, FALSE, nullptr); }

    // What the writer has shown; it has ended then.
    const std::vector<std::string>& Shown() {
        EXPECT_TRUE(m_logger.Stop(kPatience));
        return m_shown;
    }

    CRegistrySandbox m_registry;
    CLogger& m_logger = *new CLogger;  // outlives the writer thread, whatever the test does
    HANDLE m_gate = nullptr;
    CClosurePatches m_patches{::GetModuleHandleW(nullptr)};

private:
    std::vector<std::string> m_shown;  // by the writer thread alone, until it has ended
};

using Texts = std::vector<std::string>;

// Neither argument could be formatted.
TEST_F(LogCall, LineThatDoesNotPassIsNotFormatted) {
    const auto* const wild = reinterpret_cast<const char*>(std::uintptr_t{16});
    LogLine(1, "no log is set: %s\n", wild);
    Adopt(5);
    LogLine(6, "not passing: %s\n", wild);
    LogLine(666, "no line: %s\n", wild);
    EXPECT_FALSE(m_logger.initialised);
}

TEST_F(LogCall, LineIsFormattedAtAnyLength) {
    Adopt(6);
    const std::string longName(700, 'n');
    LogLine(6, "%s %ld %#x %lld\n", "name", 12L, 0x1fu, 9876543210LL);
    LogLine(6, "%s\n", longName.c_str());
    EXPECT_EQ(Shown(), (Texts{"name 12 0x1f 9876543210\n", longName + "\n"}));
}

TEST_F(LogCall, NullFormatAndNullTextAreIgnored) {
    Adopt(6);
    const char* volatile none = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    LogLine(1, none);
#pragma GCC diagnostic pop
    LogText(1, none);
    EXPECT_FALSE(m_logger.initialised);
}

TEST_F(LogCall, IsLoggedTellsWhetherALineWouldBeWritten) {
    EXPECT_FALSE(IsLogged(1)) << "no log is set";
    Adopt(3);
    EXPECT_TRUE(IsLogged(-1));
    EXPECT_TRUE(IsLogged(3));
    EXPECT_FALSE(IsLogged(4));
    m_logger.level = 1000;
    EXPECT_TRUE(IsLogged(665));
    EXPECT_FALSE(IsLogged(666));
    EXPECT_FALSE(m_logger.initialised) << "asking brings nothing up";
}

TEST_F(LogCall, LevelIsOneWithoutALog) {
    EXPECT_EQ(GetLogLevel(), 1);
    EXPECT_EQ(SetLogLevel(6), 1);
    EXPECT_EQ(GetLogLevel(), 1);
}

TEST_F(LogCall, LevelBelowOneIsStoredAsOne) {
    Adopt(4);
    EXPECT_EQ(GetLogLevel(), 4);
    EXPECT_EQ(SetLogLevel(0), 1);
    EXPECT_EQ(m_logger.level, 1);
    EXPECT_EQ(SetLogLevel(-7), 1);
    EXPECT_EQ(m_logger.level, 1);
    EXPECT_EQ(SetLogLevel(6), 6);
    EXPECT_EQ(m_logger.level, 6);
    m_logger.level = 0;
    EXPECT_EQ(GetLogLevel(), 1);
    EXPECT_EQ(m_logger.level, 1);
}

TEST_F(LogCall, FirstLoggerStays) {
    AdoptLogger(nullptr);
    Adopt(6);
    CLogger other;
    other.level = 2;
    AdoptLogger(&other);
    AdoptLogger(nullptr);
    EXPECT_EQ(GetLogLevel(), 6);
}

// Each count of allocations that succeed before one fails, through first use and later lines.
TEST_F(LogCall, MemoryThatCannotBeHadLosesTheLineOnly) {
    Adopt(6);
    const std::string text(600, 't');
    int lost = 0;
    for (int allocations = 0; allocations < 40; ++allocations) {
        t_allocationsLeft = allocations;
        errno = 12345;
        ::SetLastError(54321);
        if (allocations % 2 == 0) {
            LogText(6, text.c_str());
        } else {
            LogLine(6, "%s", text.c_str());
        }
        if (t_allocationsLeft == 0) ++lost;
        t_allocationsLeft = -1;
        EXPECT_EQ(errno, 12345);
        EXPECT_EQ(::GetLastError(), 54321u);
    }
    EXPECT_GT(lost, 0);
    EXPECT_LT(lost, 40);
    LogText(6, "last\n");
    ASSERT_FALSE(Shown().empty());
    EXPECT_EQ(Shown().back(), "last\n");
    EXPECT_NE(m_logger.currentProcess, nullptr);
}

// The texts are too long for the string objects to hold them without an allocation.
TEST_F(LogCall, SuppressionSurvivesMemoryThatCannotBeHad) {
    Adopt(6);
    LogText(6, "first\n");
    m_logger.suppressor.enabled = true;
    const char* const cycle = "a line that is repeated many times, and long\n";
    int lost = 0;
    for (int allowed = 0; allowed < 30; ++allowed) {
        const std::string other = "another line, which breaks the cycle, " + std::to_string(allowed) + "\n";
        for (int i = 0; i < 3; ++i) LogText(6, cycle);  // the second one may still belong to no cycle
        EXPECT_EQ(m_logger.suppressor.recent.size(), 1u);
        ::SetLastError(54321);
        t_allocationsLeft = allowed;
        LogText(6, other.c_str());
        if (t_allocationsLeft == 0) ++lost;
        t_allocationsLeft = -1;
        EXPECT_EQ(::GetLastError(), 54321u);
        for (const RecentMessage& message : m_logger.suppressor.recent) EXPECT_NE(message.record, nullptr);
        EXPECT_LE(m_logger.suppressor.recent.size(), 1u);
    }
    EXPECT_GT(lost, 0);
    EXPECT_LT(lost, 30);
    LogText(6, "last\n");
    ASSERT_FALSE(Shown().empty());
    EXPECT_EQ(Shown().back(), "last\n");
}

TEST_F(LogCall, DrainingWithoutALogOrALineIsDoneAtOnce) {
    DrainLog(INFINITE);
    Adopt(6);
    DrainLog(INFINITE);
    EXPECT_FALSE(m_logger.initialised);
}

TEST_F(LogCall, DrainingWaitsForTheWriter) {
    Adopt(6);
    std::atomic<int> written = 0;
    m_patches.Replace<decltype(::OutputDebugStringA)>("OutputDebugStringA", [&](auto original, const char* text) {
        ::Sleep(5);
        original(text);
        ++written;
    });
    for (int line = 0; line < 20; ++line) LogText(6, "line\n");
    errno = 12345;
    ::SetLastError(54321);
    DrainLog(kPatience);
    EXPECT_EQ(::GetLastError(), 54321u);
    EXPECT_EQ(errno, 12345);
    EXPECT_EQ(written, 20);
}

TEST_F(LogCall, DrainingGivesUpAfterItsTime) {
    HoldTheWriter();
    Adopt(6);
    LogText(6, "line\n");
    const ULONGLONG begin = ::GetTickCount64();
    DrainLog(100);
    const ULONGLONG took = ::GetTickCount64() - begin;
    EXPECT_GE(took, 90u);
    EXPECT_LT(took, 10000u);
    EXPECT_FALSE(m_logger.queue.empty());
}

TEST_F(LogCall, DrainingAfterTheStopIsDoneAtOnce) {
    Adopt(6);
    LogText(6, "line\n");
    ASSERT_TRUE(m_logger.Stop(kPatience));
    m_logger.Stop(0);  // leaves a record that nobody takes
    const ULONGLONG begin = ::GetTickCount64();
    DrainLog(kPatience);
    EXPECT_LT(::GetTickCount64() - begin, kPatience / 2);
}

class DirectoryChain : public ::testing::Test {
protected:
    void SetUp() override {
        char temporary[MAX_PATH];
        ASSERT_NE(::GetTempPathA(MAX_PATH, temporary), 0u);
        m_root = std::string(temporary) + "zdchain-" + std::to_string(::GetCurrentProcessId());
        ASSERT_TRUE(::CreateDirectoryA(m_root.c_str(), nullptr));
    }
    void TearDown() override {
        for (auto made = m_made.rbegin(); made != m_made.rend(); ++made) ::RemoveDirectoryA((m_root + *made).c_str());
        ::DeleteFileA((m_root + "\\file").c_str());
        ::RemoveDirectoryA(m_root.c_str());
    }

    // Runs the chain for a path below the root and checks that the path is given back whole.
    int Make(std::string path) {
        const std::string before = path;
        const int result = CreateDirectoryChain(path.data());
        EXPECT_EQ(path, before);
        return result;
    }
    bool IsDirectory(const std::string& below) {
        m_made.push_back(below);
        const DWORD attributes = ::GetFileAttributesA((m_root + below).c_str());
        return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    }

    std::string m_root;
    std::vector<std::string> m_made;
};

TEST_F(DirectoryChain, PathWithoutASeparatorFails) {
    EXPECT_EQ(Make("file.log"), -1);
    EXPECT_EQ(Make(""), -1);
}

TEST_F(DirectoryChain, ExistingDirectoryIsFine) {
    EXPECT_EQ(Make(m_root + "\\file.log"), 0);
}

TEST_F(DirectoryChain, MissingDirectoriesAreMade) {
    EXPECT_EQ(Make(m_root + "\\a\\b/c\\file.log"), 0);
    EXPECT_TRUE(IsDirectory("\\a"));
    EXPECT_TRUE(IsDirectory("\\a\\b"));
    EXPECT_TRUE(IsDirectory("\\a\\b\\c"));
    EXPECT_FALSE(IsDirectory("\\a\\b\\c\\file.log"));
}

TEST_F(DirectoryChain, PathEndingInASeparatorLosesOnlyThat) {
    EXPECT_EQ(Make(m_root + "\\d\\"), 0);
    EXPECT_TRUE(IsDirectory("\\d"));
}

TEST_F(DirectoryChain, FileInTheWayFails) {
    const HANDLE file = ::CreateFileA((m_root + "\\file").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    ::CloseHandle(file);
    EXPECT_EQ(Make(m_root + "\\file\\below\\file.log"), -1);
}

TEST_F(DirectoryChain, DriveThatDoesNotExistFails) {
    EXPECT_EQ(Make("\\\\?\\Q:\\a\\b\\file.log"), -1);
}

}  // namespace
}  // namespace zd::test
