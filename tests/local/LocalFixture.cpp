#include "LocalFixture.h"

#include <algorithm>
#include <atomic>
#include <map>

namespace zd::test {
namespace {

std::map<std::string, ChildTask>& Tasks() {
    static std::map<std::string, ChildTask> tasks;
    return tasks;
}

std::wstring FreshRoot() {
    static std::atomic<unsigned> counter{0};
    wchar_t temporary[MAX_PATH + 1];
    ::GetTempPathW(MAX_PATH + 1, temporary);
    std::wstring root = std::wstring(temporary) + L"zdvfs-test-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                        std::to_wstring(++counter);
    ::CreateDirectoryW(root.c_str(), nullptr);
    return root;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Failure& failure) {
    return out << "errno " << failure.error << " last error " << failure.windows;
}

MountRequest::MountRequest(std::string poolName) : name(std::move(poolName)) {
    block.flags = 50;
    block.logLevel = 1;
    block.poolName = name.data();
}

CChild::CChild(const std::wstring& task, const std::wstring& argument) {
    wchar_t program[MAX_PATH];
    ::GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(program) + L"\" --child " + task + L" \"" + argument + L"\"";
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    const BOOL started =
        ::CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &m_process);
    EXPECT_TRUE(started) << "error " << ::GetLastError();
}

CChild::~CChild() {
    Kill();
    ::CloseHandle(m_process.hThread);
    ::CloseHandle(m_process.hProcess);
}

DWORD CChild::Wait() {
    EXPECT_EQ(WAIT_OBJECT_0, ::WaitForSingleObject(m_process.hProcess, 60000));
    DWORD code = 0;
    ::GetExitCodeProcess(m_process.hProcess, &code);
    return code;
}

void CChild::Kill() {
    if (::WaitForSingleObject(m_process.hProcess, 0) == WAIT_OBJECT_0) return;
    ::TerminateProcess(m_process.hProcess, 99);
    ::WaitForSingleObject(m_process.hProcess, 60000);
}

ChildTaskRegistration::ChildTaskRegistration(const char* name, ChildTask task) {
    Tasks()[name] = task;
}

LocalEngine::LocalEngine() : m_root(FreshRoot()) {
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_ROOT", m_root.c_str());
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_CREATE", L"1");
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_TOP_LEVEL", nullptr);
    EXPECT_EQ(0, m_pool.Mount());
}

LocalEngine::~LocalEngine() {
    EXPECT_EQ(0, ZdvfsUmount("pool"));
    RemoveDiskTree(m_root);
}

void LocalEngine::Remount() {
    ASSERT_EQ(0, ZdvfsUmount("pool"));
    ASSERT_EQ(0, m_pool.Mount());
}

void WriteText(const char* path, const std::string& text) {
    const int descriptor = ZdvfsOpen(path, kZdvfsReadWrite | kZdvfsCreate | kZdvfsTruncate, 0);
    ASSERT_GE(descriptor, 0) << path << " errno " << errno << " last error " << ::GetLastError();
    EXPECT_EQ(static_cast<int64_t>(text.size()), ZdvfsPwrite(descriptor, text.data(), text.size(), 0));
    EXPECT_EQ(0, ZdvfsClose(descriptor));
}

std::optional<std::string> ReadText(const char* path) {
    const int descriptor = ZdvfsOpen(path, kZdvfsReadOnly, 0);
    if (descriptor < 0) return std::nullopt;
    std::string text(1 << 20, '\0');
    const int64_t got = ZdvfsPread(descriptor, text.data(), text.size(), 0);
    EXPECT_GE(got, 0);
    text.resize(static_cast<std::size_t>(std::max<int64_t>(got, 0)));
    EXPECT_EQ(0, ZdvfsClose(descriptor));
    return text;
}

bool Exists(const char* path) {
    ZdvfsStatRecord record;
    return ZdvfsStat(path, &record) == 0;
}

ZdvfsStatRecord StatOf(const char* path) {
    ZdvfsStatRecord record = {};
    EXPECT_EQ(0, ZdvfsStat(path, &record)) << path << " errno " << errno;
    return record;
}

std::string DescriptorOf(const char* path) {
    char buffer[4096] = "unset";
    EXPECT_EQ(0, ZdvfsGetNTAclStr(path, buffer, sizeof buffer)) << path << " errno " << errno;
    return buffer;
}

std::vector<std::string> NamesOf(const char* path) {
    std::vector<std::string> names;
    ZdvfsDirectory* stream = ZdvfsOpendir(path);
    EXPECT_NE(nullptr, stream) << path << " errno " << errno;
    if (!stream) return names;
    while (const ZdvfsDirectoryRecord* record = ZdvfsReaddir(stream)) {
        const std::string name = record->name;
        if (name != "." && name != "..") names.push_back(name);
    }
    EXPECT_EQ(0, ZdvfsClosedir(stream));
    std::sort(names.begin(), names.end());
    return names;
}

void WriteDiskFile(const std::wstring& path, const std::string& content) {
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    DWORD moved = 0;
    EXPECT_TRUE(::WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &moved, nullptr));
    ::CloseHandle(file);
}

std::string ReadDiskFile(const std::wstring& path) {
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(INVALID_HANDLE_VALUE, file) << "error " << ::GetLastError();
    std::string content(65536, '\0');
    DWORD moved = 0;
    EXPECT_TRUE(::ReadFile(file, content.data(), static_cast<DWORD>(content.size()), &moved, nullptr));
    ::CloseHandle(file);
    content.resize(moved);
    return content;
}

bool DiskHas(const std::wstring& path) {
    return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

void RemoveDiskTree(const std::wstring& path) {
    const std::wstring full = path.starts_with(L"\\\\?\\") ? path : L"\\\\?\\" + path;
    WIN32_FIND_DATAW entry;
    const HANDLE find = ::FindFirstFileW((full + L"\\*").c_str(), &entry);
    if (find != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = entry.cFileName;
            if (name == L"." || name == L"..") continue;
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                RemoveDiskTree(full + L"\\" + name);
            } else {
                ::DeleteFileW((full + L"\\" + name).c_str());
            }
        } while (::FindNextFileW(find, &entry));
        ::FindClose(find);
    }
    ::RemoveDirectoryW(full.c_str());
}

int RunChild(const std::string& task, const std::string& argument) {
    // Started with the parent's environment, so its root is the parent's.
    MountRequest pool("pool");
    if (pool.Mount() != 0) return 90;
    const auto found = Tasks().find(task);
    const int result = found == Tasks().end() ? 91 : found->second(argument);
    return ZdvfsUmount("pool") == 0 ? result : 92;
}

}  // namespace zd::test

int main(int argc, char** argv) {
    if (argc >= 3 && std::strcmp(argv[1], "--child") == 0) return zd::test::RunChild(argv[2], argc > 3 ? argv[3] : "");
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
