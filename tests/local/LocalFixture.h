// What the engine's tests share: a root directory of their own, a mounted pool in it, and second processes.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "zdvfs.h"

namespace zd::test {

// The failure that a call left behind, for tables and messages.
struct Failure {
    int error = 0;
    DWORD windows = 0;
    bool operator==(const Failure&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Failure& failure);

// Runs a call that is to fail and answers what it left. A call that succeeds answers {0, 0}.
template <class Call>
Failure FailureOf(Call&& call) {
    errno = 0;
    ::SetLastError(0);
    const auto result = call();
    const Failure failure{errno, ::GetLastError()};
    if constexpr (std::is_pointer_v<decltype(result)>) {
        return result == nullptr ? failure : Failure{};
    } else {
        return result < 0 ? failure : Failure{};
    }
}

inline constexpr Failure kMissing{ENOENT, ERROR_FILE_NOT_FOUND};
inline constexpr Failure kMissingParent{ENOENT, ERROR_PATH_NOT_FOUND};
inline constexpr Failure kNoDirectory{ENOTDIR, ERROR_DIRECTORY};
inline constexpr Failure kIsDirectory{EISDIR, ERROR_ACCESS_DENIED};
inline constexpr Failure kExists{EEXIST, ERROR_ALREADY_EXISTS};
inline constexpr Failure kBadDescriptor{EBADF, ERROR_INVALID_HANDLE};
inline constexpr Failure kInvalid{EINVAL, ERROR_INVALID_PARAMETER};
inline constexpr Failure kRefused{EACCES, ERROR_ACCESS_DENIED};
inline constexpr Failure kBusy{EBUSY, ERROR_BUSY};

// A mount block with a place for its pool's name.
struct MountRequest {
    explicit MountRequest(std::string name);
    std::string name;
    ZdvfsMountBlock block = {};
    int Mount() { return ZdvfsMountV1("6.0.0.0", &block, sizeof block); }
};

// A started copy of this program that runs one registered task.
class CChild {
public:
    CChild(const std::wstring& task, const std::wstring& argument = L"");
    CChild(const CChild&) = delete;
    CChild& operator=(const CChild&) = delete;
    ~CChild();
    // The exit code; waits a minute at most.
    DWORD Wait();
    void Kill();

private:
    PROCESS_INFORMATION m_process = {};
};

// A task that a child runs; its result is the child's exit code.
using ChildTask = int (*)(const std::string& argument);
struct ChildTaskRegistration {
    ChildTaskRegistration(const char* name, ChildTask task);
};

class LocalEngine : public testing::Test {
protected:
    LocalEngine();
    ~LocalEngine() override;

    void Remount();

    // Where the pools and the pool "pool" stand on disk.
    const std::wstring& Root() const { return m_root; }
    std::wstring OnDisk(const std::wstring& name) const { return m_root + L"\\pool\\" + name; }

private:
    std::wstring m_root;
    MountRequest m_pool{"pool"};
};

void WriteText(const char* path, const std::string& text);
std::optional<std::string> ReadText(const char* path);
bool Exists(const char* path);
ZdvfsStatRecord StatOf(const char* path);
std::string DescriptorOf(const char* path);
std::vector<std::string> NamesOf(const char* path);  // sorted, without "." and ".."
void WriteDiskFile(const std::wstring& path, const std::string& content);
std::string ReadDiskFile(const std::wstring& path);
bool DiskHas(const std::wstring& path);
void RemoveDiskTree(const std::wstring& path);

}  // namespace zd::test
