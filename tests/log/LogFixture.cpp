#include "LogFixture.h"

#include "harness/FileTime.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string_view>

namespace zd::test {
namespace {

constexpr std::string_view kLinePrefix = "***\tZDVFS:\t";
constexpr DWORD kPatience = 20000;  // milliseconds

tm Local(time_t time) {
    tm local{};
    EXPECT_EQ(::_localtime64_s(&local, &time), 0);
    return local;
}

}  // namespace

void CLogTest::SetUp() {
    CDoubleTest::SetUp();
    m_sandbox = Narrow(Environment().Folder());
    m_logDirectory = m_sandbox + "log\\";
    Registry().DeleteKey(kAgentKey);
    Registry().DeleteValue(kPluginKey, L"DebugLevel");
    Environment().RunWriter();
    m_patches = std::make_unique<CClosurePatches>(Plugin());
}

void CLogTest::TearDown() {
    if (m_patches == nullptr) return;
    Environment().ReleaseManagers();
    Finish();
    CDoubleTest::TearDown();
}

void CLogTest::SetAgentText(const std::string& name, const std::string& text, DWORD type) {
    Registry().SetText(kAgentKey, Widen(name), Widen(text), type);
}

void CLogTest::LogToSandbox() {
    SetAgentText("logpath", m_logDirectory);
}

void CLogTest::SetClock(std::function<time_t()> clock) {
    m_clock = std::move(clock);
    Replace<void __stdcall(FILETIME*)>("GetSystemTimeAsFileTime", [this](auto /*original*/, FILETIME* result) {
        *result = FileTimeOfSeconds(m_clock());
    });
}

IProtocolManager* CLogTest::GetProtocol(CLogger* logger) {
    return Environment().Entry()(&m_hostContext, logger);
}

// The plug-in takes the level from its settings when an object is made, so the test's own level comes after that.
void CLogTest::Start(std::int32_t level) {
    m_manager = NewManager();
    Logger().level = level;
}

void CLogTest::LogThese(std::int32_t level, std::initializer_list<const char*> texts) {
    Start();
    for (const char* text : texts) Say(level, text);
    Finish();
}

bool CLogTest::WaitForEmptyQueue() {
    for (const ULONGLONG end = ::GetTickCount64() + kPatience; ::GetTickCount64() < end; ::Sleep(1)) {
        ::EnterCriticalSection(&Logger().lock);
        const bool empty = Logger().queue.empty();
        ::LeaveCriticalSection(&Logger().lock);
        if (empty) return true;
    }
    return false;
}

void CLogTest::Finish() {
    EXPECT_TRUE(Logger().Stop(kPatience)) << "the writer does not end";
    m_patches->Restore();
}

std::vector<std::string> CLogTest::DebuggedLines() {
    std::vector<std::string> lines;
    for (const std::string& text : Debugged()) {
        if (text.starts_with(kLinePrefix)) lines.push_back(text.substr(kLinePrefix.size()));
    }
    return lines;
}

bool CLogTest::Exists(const std::string& path) {
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::vector<std::string> CLogTest::FilesIn(const std::string& directory) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA found;
    const HANDLE search = ::FindFirstFileA((directory + "\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    do {
        const std::string name = found.cFileName;
        if (name != "." && name != "..") names.push_back(name);
    } while (::FindNextFileA(search, &found));
    ::FindClose(search);
    std::sort(names.begin(), names.end());
    return names;
}

std::string CLogTest::Bytes(const std::string& path) {
    EXPECT_TRUE(Exists(path)) << path;
    return FileContent(Widen(path));
}

std::string CLogTest::LogBytes() const {
    const auto names = FilesIn(m_logDirectory);
    EXPECT_EQ(names.size(), 1u);
    return names.empty() ? std::string() : Bytes(m_logDirectory + names.front());
}

std::vector<std::string> CLogTest::LoggedTexts() const {
    std::vector<std::string> texts;
    std::istringstream lines(LogBytes());
    for (std::string line; std::getline(lines, line);) {
        EXPECT_TRUE(!line.empty() && line.back() == '\r') << line;
        const std::size_t text = line.find(") - ");
        EXPECT_NE(text, std::string::npos) << line;
        if (text != std::string::npos) texts.push_back(line.substr(text + 4, line.size() - text - 5));
    }
    return texts;
}

std::string CLogTest::FileName(time_t time) {
    const tm at = Local(time);
    char name[64];
    std::snprintf(name, sizeof name, "(ZDVFS)%04d-%02d-%02d-%02d%02d.LOG", at.tm_year + 1900, at.tm_mon + 1, at.tm_mday,
                  at.tm_hour, at.tm_min);
    return name;
}

std::string CLogTest::TimeText(time_t time) {
    const tm at = Local(time);
    char text[64];
    std::snprintf(text, sizeof text, "%04d/%02d/%02d %02d:%02d:%02d ", at.tm_year + 1900, at.tm_mon + 1, at.tm_mday,
                  at.tm_hour, at.tm_min, at.tm_sec);
    return text;
}

std::string CLogTest::OwnImageName() {
    char path[MAX_PATH] = "";
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string name = path;
    return name.substr(name.rfind('\\') + 1);
}

}  // namespace zd::test
