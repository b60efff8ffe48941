// Where the log file lies, how it is opened, and when a new one begins.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "harness/TextCompare.h"
#include "LogFixture.h"

namespace zd::test {
namespace {

using LogFile = CLogTest;

constexpr time_t kMinute = 60;
constexpr time_t kThen = 1794799765;  // a second within a minute, in November 2026
constexpr std::uint32_t kFull = 104857600;

std::string WithSlashes(std::string path) {
    for (char& c : path) {
        if (c == '\\') c = '/';
    }
    return path;
}

TEST_F(LogFile, LogPathWithoutASeparatorGetsABackslash) {
    SetClock([] { return kThen; });
    SetAgentText("logpath", m_sandbox + "log");
    LogThese(1, {"line\n"});
    EXPECT_EQ(Debugged().front(), m_sandbox + "log\\" + FileName(kThen));
    EXPECT_EQ(FilesIn(m_sandbox + "log"), Texts{FileName(kThen)});
    EXPECT_TRUE(Logger().fileActive);
}

TEST_F(LogFile, LogPathEndingInABackslashIsUsedAsItStands) {
    SetClock([] { return kThen; });
    SetAgentText("logpath", m_sandbox + "log\\");
    LogThese(1, {"line\n"});
    EXPECT_EQ(Debugged().front(), m_sandbox + "log\\" + FileName(kThen));
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
}

TEST_F(LogFile, LogPathEndingInASlashIsUsedAsItStands) {
    SetClock([] { return kThen; });
    const std::string directory = WithSlashes(m_sandbox + "log\\");
    SetAgentText("logpath", directory);
    LogThese(1, {"line\n"});
    EXPECT_EQ(Debugged().front(), directory + FileName(kThen));
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
}

TEST_F(LogFile, OnlyPathSetPutsTheFileIntoItsLogDirectory) {
    SetClock([] { return kThen; });
    SetAgentText("path", m_sandbox);
    LogThese(1, {"line\n"});
    EXPECT_EQ(Debugged().front(), m_sandbox + "log\\" + FileName(kThen));
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
}

TEST_F(LogFile, PathWithoutASeparatorIsUsedAsItStands) {
    SetClock([] { return kThen; });
    SetAgentText("path", m_sandbox + "agent");
    LogThese(1, {"line\n"});
    EXPECT_EQ(FilesIn(m_sandbox + "agentlog"), Texts{FileName(kThen)});
}

TEST_F(LogFile, MissingParentDirectoriesAreMade) {
    SetClock([] { return kThen; });
    SetAgentText("path", m_sandbox + "a\\b\\c\\");
    LogThese(1, {"line\n"});
    EXPECT_EQ(FilesIn(m_sandbox + "a\\b\\c\\log"), Texts{FileName(kThen)});
}

TEST_F(LogFile, LogPathComesBeforePath) {
    LogToSandbox();
    SetAgentText("path", m_sandbox + "elsewhere\\");
    LogThese(1, {"line\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
    EXPECT_FALSE(Exists(m_sandbox + "elsewhere"));
}

TEST_F(LogFile, ValueOfAnotherTypeCountsAsAbsent) {
    Registry().SetDword(kAgentKey, L"logpath", 0x41414141);
    SetAgentText("path", m_sandbox);
    LogThese(1, {"line\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
}

TEST_F(LogFile, EmptyLogPathCountsAsAbsent) {
    SetAgentText("logpath", "");
    SetAgentText("path", m_sandbox);
    LogThese(1, {"line\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
}

TEST_F(LogFile, ExpandableTextIsTakenAsStored) {
    ASSERT_TRUE(::SetEnvironmentVariableA("ZDLOGTEST", "elsewhere"));
    SetAgentText("logpath", m_sandbox + "%ZDLOGTEST%", REG_EXPAND_SZ);
    LogThese(1, {"line\n"});
    EXPECT_EQ(FilesIn(m_sandbox + "%ZDLOGTEST%").size(), 1u);
}

TEST_F(LogFile, TextWithoutATerminatorIsTakenToItsEnd) {
    const std::wstring directory = Widen(m_logDirectory);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(directory.data());
    Registry().SetRaw(kAgentKey, L"logpath", REG_SZ, {bytes, bytes + directory.size() * sizeof(wchar_t)});
    LogThese(1, {"line\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
}

// The registry hands out what was stored, and what stood in the buffer behind it stays there.
TEST_F(LogFile, TextIsEndedByItsSizeWhereTheRegistryDoesNotEndIt) {
    SetAgentText("logpath", "anything");
    Replace<decltype(::RegQueryValueExA)>(
        "RegQueryValueExA", [this](auto, HKEY, const char*, DWORD*, DWORD* type, BYTE* data, DWORD* size) -> LSTATUS {
            EXPECT_EQ(*size, 1024u);
            *type = REG_SZ;
            std::fill_n(data, *size, BYTE{'x'});
            std::copy(m_logDirectory.begin(), m_logDirectory.end(), data);
            *size = static_cast<DWORD>(m_logDirectory.size());
            return ERROR_SUCCESS;
        });
    LogThese(1, {"line\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
}

TEST_F(LogFile, LogPathThatIsTooLongDoesNotFallBackToPath) {
    SetAgentText("logpath", std::string(5000, 'x'));
    SetAgentText("path", m_sandbox);
    LogThese(1, {"line\n"});
    EXPECT_EQ(Logger().file, nullptr);
    EXPECT_FALSE(Exists(m_logDirectory));
    EXPECT_EQ(DebuggedLines(), Texts{"line\n"});
}

struct CLength {
    const char* value;
    std::size_t length;
    bool opened;
};

class LogFileLength : public CLogTest, public ::testing::WithParamInterface<CLength> {};

// Whatever the length, the path is whole or there is no file. The open is only watched: the system's own limit is
// lower.
TEST_P(LogFileLength, TextThatDoesNotFitGivesNoFile) {
    SetClock([] { return kThen; });
    std::vector<std::string> opened;
    Replace<decltype(::_fsopen)>("_fsopen", [&](auto, const char* path, const char*, int) -> FILE* {
        opened.emplace_back(path);
        errno = EACCES;
        return nullptr;
    });
    const std::string text = std::string(GetParam().length - 1, 'x') + "\\";
    SetAgentText(GetParam().value, text);
    LogThese(1, {"line\n"});
    const std::string below = GetParam().value == std::string("path") ? "log\\" : "";
    const Texts expected = GetParam().opened ? Texts{text + below + FileName(kThen)} : Texts{};
    EXPECT_EQ(opened, expected);
    EXPECT_EQ(DebuggedLines(), Texts{"line\n"});
    EXPECT_FALSE(Logger().fileActive);
}

INSTANTIATE_TEST_SUITE_P(Rows, LogFileLength,
                         ::testing::Values(CLength{"logpath", 766, true}, CLength{"logpath", 767, false},
                                           CLength{"logpath", 1023, false}, CLength{"logpath", 1024, false},
                                           CLength{"logpath", 5000, false}, CLength{"path", 993, true},
                                           CLength{"path", 994, false}, CLength{"path", 1023, false},
                                           CLength{"path", 5000, false}),
                         [](const auto& row) { return row.param.value + ("Of" + std::to_string(row.param.length)); });

TEST_F(LogFile, WithoutTheAgentKeyLinesStillReachTheOtherOutputs) {
    LogThese(1, {"error\n"});
    EXPECT_TRUE(Logger().initialised);
    EXPECT_FALSE(Logger().fileActive);
    EXPECT_EQ(Logger().file, nullptr);
    EXPECT_EQ(Debugged(), Texts{"***\tZDVFS:\terror\n"}) << "no path is shown";
    EXPECT_EQ(Events().size(), 1u);
}

TEST_F(LogFile, WithoutEitherValueLinesStillReachTheOtherOutputs) {
    Registry().CreateKey(kAgentKey);
    LogThese(1, {"error\n"});
    EXPECT_TRUE(Logger().initialised);
    EXPECT_FALSE(Logger().fileActive);
    EXPECT_EQ(Debugged(), Texts{"***\tZDVFS:\terror\n"});
    EXPECT_EQ(Events().size(), 1u);
}

TEST_F(LogFile, FormerMakerFlagTakesBothKeysOfTheFormerMaker) {
    Logger().formerMakerKeys = true;
    SetAgentText("logpath", m_sandbox + "new");
    Registry().SetText(kFormerAgentKey, L"logpath", Widen(m_logDirectory));
    LogThese(1, {"line\n"});
    EXPECT_EQ(LoggedTexts(), Texts{"line"});
    EXPECT_FALSE(Exists(m_sandbox + "new"));
    EXPECT_TRUE(Registry().KeyExists(kFormerPluginKey));
    EXPECT_NE(Logger().settingsKey, nullptr);
}

struct COpening {
    const char* name;
    int error;
    bool directoryFails;
    int opens;
};

class LogFileOpening : public CLogTest, public ::testing::WithParamInterface<COpening> {};

// The mode and the sharing are watched on the way.
TEST_P(LogFileOpening, OnlyAMissingDirectoryIsMadeAndTriedOnceMore) {
    LogToSandbox();
    std::vector<std::string> opened;
    Replace<decltype(::_fsopen)>("_fsopen", [&](auto, const char* path, const char* mode, int share) -> FILE* {
        EXPECT_STREQ(mode, "a+t");
        EXPECT_EQ(share, 0x40);
        opened.emplace_back(path);
        errno = GetParam().error;
        return nullptr;
    });
    if (GetParam().directoryFails) {
        Replace<decltype(::CreateDirectoryA)>("CreateDirectoryA", [](auto, const char*, LPSECURITY_ATTRIBUTES) -> BOOL {
            ::SetLastError(ERROR_ACCESS_DENIED);
            return FALSE;
        });
    }
    LogThese(1, {"first\n", "second\n"});
    ASSERT_EQ(opened.size(), static_cast<std::size_t>(GetParam().opens));
    EXPECT_EQ(opened.front(), opened.back());
    EXPECT_TRUE(Logger().initialised);
    EXPECT_FALSE(Logger().fileActive);
    EXPECT_EQ(DebuggedLines(), (Texts{"first\n", "second\n"}));
    EXPECT_EQ(Events().size(), 2u);
}

INSTANTIATE_TEST_SUITE_P(Rows, LogFileOpening,
                         ::testing::Values(COpening{"Missing", ENOENT, false, 2},
                                           COpening{"MissingForGood", ENOENT, true, 1},
                                           COpening{"Denied", EACCES, false, 1},
                                           COpening{"TooManyOpen", EMFILE, false, 1}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(LogFile, OthersMayReadAndWriteWhileItIsOpen) {
    LogToSandbox();
    Start();
    Say(1, "line\n");
    ASSERT_TRUE(WaitForEmptyQueue());
    const auto names = FilesIn(m_logDirectory);
    ASSERT_EQ(names.size(), 1u);
    const HANDLE other = ::CreateFileA((m_logDirectory + names[0]).c_str(), GENERIC_READ | GENERIC_WRITE,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(other, INVALID_HANDLE_VALUE);
    ::CloseHandle(other);
}

TEST_F(LogFile, ExistingFileIsAppendedToAndCountedFromZero) {
    LogToSandbox();
    SetClock([] { return kThen; });
    ASSERT_TRUE(::CreateDirectoryA(m_logDirectory.c_str(), nullptr));
    FILE* const earlier = std::fopen((m_logDirectory + FileName(kThen)).c_str(), "wb");
    ASSERT_NE(earlier, nullptr);
    std::fputs("earlier (1:a, 2) - text\r\n", earlier);
    std::fclose(earlier);
    LogThese(1, {"line\n"});
    EXPECT_EQ(LoggedTexts(), (Texts{"text", "line"}));
    // The runtime counts characters before it turns a line end into two.
    const std::string line = TimeText(kThen) + "(" + std::to_string(::GetCurrentProcessId()) + ":" + OwnImageName() +
                             ", " + std::to_string(::GetCurrentThreadId()) + ") - line\n";
    EXPECT_EQ(Logger().bytesWritten, line.size());
}

TEST_F(LogFile, CrossingTheLimitBeginsAFileNamedForTheCurrentMinute) {
    LogToSandbox();
    std::atomic<time_t> now = kThen;
    SetClock([&] { return now.load(); });
    Start();
    Say(1, "old file\n");
    const HANDLE thread = Logger().writerThread;
    const HANDLE event = Logger().wakeEvent;
    const HANDLE source = Logger().eventSource;
    const HKEY key = Logger().settingsKey;
    ASSERT_TRUE(WaitForEmptyQueue());
    Logger().bytesWritten = kFull;
    now = kThen + kMinute;
    Say(1, "new file\n");
    Say(1, "new file again\n");
    Finish();
    EXPECT_EQ(FilesIn(m_logDirectory), (Texts{FileName(kThen), FileName(kThen + kMinute)}));
    EXPECT_NE(Bytes(m_logDirectory + FileName(kThen)).find(" - old file\r\n"), std::string::npos);
    const std::string second = Bytes(m_logDirectory + FileName(kThen + kMinute));
    EXPECT_NE(second.find(" - new file\r\n"), std::string::npos);
    EXPECT_NE(second.find(" - new file again\r\n"), std::string::npos);
    EXPECT_EQ(Logger().bytesWritten, second.size() - 2) << "two line ends were one character each when counted";
    EXPECT_EQ(Logger().writerThread, thread);
    EXPECT_EQ(Logger().wakeEvent, event);
    EXPECT_EQ(Logger().eventSource, source);
    EXPECT_EQ(Logger().settingsKey, key);
    EXPECT_TRUE(Logger().fileActive);
}

TEST_F(LogFile, CrossingTheLimitWithinAMinuteAppendsToTheSameFile) {
    LogToSandbox();
    SetClock([] { return kThen; });
    Start();
    Say(1, "before\n");
    ASSERT_TRUE(WaitForEmptyQueue());
    Logger().bytesWritten = kFull;
    Say(1, "after\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), (Texts{"before", "after"}));
    EXPECT_LT(Logger().bytesWritten, 200u) << "the count began anew";
}

TEST_F(LogFile, OneByteBelowTheLimitStaysInTheFile) {
    LogToSandbox();
    std::atomic<time_t> now = kThen;
    SetClock([&] { return now.load(); });
    Start();
    Say(1, "before\n");
    ASSERT_TRUE(WaitForEmptyQueue());
    Logger().bytesWritten = kFull - 1;
    now = kThen + kMinute;
    Say(1, "fills it\n");
    Say(1, "next file\n");
    Finish();
    EXPECT_NE(Bytes(m_logDirectory + FileName(kThen)).find("fills it"), std::string::npos);
    const std::string second = Bytes(m_logDirectory + FileName(kThen + kMinute));
    EXPECT_EQ(second.find("fills it"), std::string::npos);
    EXPECT_NE(second.find("next file"), std::string::npos);
}

TEST_F(LogFile, NewFileThatCannotBeNamedCostsTheLineThatWantedIt) {
    LogToSandbox();
    const DWORD caller = ::GetCurrentThreadId();
    std::atomic<bool> refuse = false;
    SetClock([&]() -> time_t { return refuse && ::GetCurrentThreadId() != caller ? -5 : kThen; });
    Start();
    Say(1, "before\n");
    ASSERT_TRUE(WaitForEmptyQueue());
    refuse = true;
    Logger().bytesWritten = kFull;
    Say(1, "lost\n");
    Say(1, "later\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), Texts{"before"});
    EXPECT_EQ(DebuggedLines(), (Texts{"before\n", "later\n"}));
    EXPECT_EQ(Events().size(), 3u);
    EXPECT_FALSE(Logger().fileActive);
}

TEST_F(LogFile, NewFileThatCannotBeOpenedLeavesTheOtherOutputs) {
    LogToSandbox();
    std::atomic<bool> refuse = false;
    Replace<decltype(::_fsopen)>("_fsopen", [&](auto original, const char* path, const char* mode, int share) -> FILE* {
        if (!refuse) return original(path, mode, share);
        errno = EMFILE;
        return nullptr;
    });
    Start();
    Say(1, "before\n");
    ASSERT_TRUE(WaitForEmptyQueue());
    refuse = true;
    Logger().bytesWritten = kFull;
    Say(1, "after\n");
    Say(1, "later\n");
    Finish();
    EXPECT_EQ(LoggedTexts(), Texts{"before"});
    EXPECT_EQ(DebuggedLines(), (Texts{"before\n", "after\n", "later\n"}));
    EXPECT_EQ(Logger().file, nullptr);
    EXPECT_FALSE(Logger().fileActive);
    EXPECT_EQ(Logger().bytesWritten, 0u);
}

}  // namespace
}  // namespace zd::test
