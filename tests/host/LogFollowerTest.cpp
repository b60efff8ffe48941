// The log's follower with more files than it follows.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "log/LogReader.h"
#include "text/Failure.h"

namespace {

// A folder of log files that is gone with the test.
class CTemporaryLogs {
public:
    CTemporaryLogs() : m_path(L"follow." + std::to_wstring(::GetCurrentProcessId())) {
        ::CreateDirectoryW(m_path.c_str(), nullptr);
    }
    ~CTemporaryLogs() {
        for (const std::wstring& name : zd::host::LogFileNames(m_path))
            ::DeleteFileW(zd::host::PathBelow(m_path, name).c_str());
        ::RemoveDirectoryW(m_path.c_str());
    }
    CTemporaryLogs(const CTemporaryLogs&) = delete;
    CTemporaryLogs& operator=(const CTemporaryLogs&) = delete;

    const std::wstring& Path() const { return m_path; }

    void Append(int file, const std::string& text) const {
        const std::wstring name = L"(ZDVFS)2026-11-16-" + std::to_wstring(1000 + file) + L".LOG";
        const HANDLE handle =
            ::CreateFileW(zd::host::PathBelow(m_path, name).c_str(), FILE_APPEND_DATA,
                          FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        DWORD written = 0;
        EXPECT_TRUE(::WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr));
        ::CloseHandle(handle);
    }

private:
    std::wstring m_path;
};

constexpr int kMost = zd::host::CLogFollower::kMostTails;

TEST(LogFollower, GivesUpTheFileThatWasIdleLongest) {
    const CTemporaryLogs logs;
    std::vector<std::string> texts;
    zd::host::CLogFollower follower(logs.Path(), {},
                                    [&](zd::host::LogEntry&& entry) { texts.push_back(std::move(entry.text)); });
    logs.Append(0, "busy\n");
    logs.Append(1, "idle\n");
    follower.Read();
    ::Sleep(50);
    logs.Append(0, "still busy\n");
    for (int file = 2; file <= kMost; ++file) logs.Append(file, "new\n");
    follower.Read();
    follower.FlushAll();
    logs.Append(0, "followed\n");
    logs.Append(1, "given up\n");
    follower.Read();
    follower.FlushAll();
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "busy\nstill busy"), 1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "idle"), 1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "new"), kMost - 1);
    EXPECT_EQ(std::count(texts.begin(), texts.end(), "followed"), 1);
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(kMost) + 2);
}

// Nobody reads on where nothing can be written, or after Ctrl-C.
TEST(LogFollower, DoesNotSwallowWhatEndsTheCommand) {
    const CTemporaryLogs logs;
    zd::host::CLogFollower follower(
        logs.Path(), {}, [](zd::host::LogEntry&& /*entry*/) { throw zd::host::CFatalFailure("cannot write"); });
    logs.Append(0, "kept, since it may go on");
    follower.Read();
    for (int file = 1; file <= kMost; ++file) logs.Append(file, "new\n");
    EXPECT_THROW(follower.Read(), zd::host::CFatalFailure);
}

}  // namespace
