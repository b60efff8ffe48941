// Thin, typed wrappers of the file calls that the engine makes. Paths are absolute and begin with \\?\, so that neither
// their length nor the system's own reading of names limits them. Failures are thrown as EngineError.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zd::engine {

// Owns a kernel handle; null and INVALID_HANDLE_VALUE both count as none.
class CUniqueHandle {
public:
    CUniqueHandle() = default;
    explicit CUniqueHandle(HANDLE handle) : m_handle(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    CUniqueHandle(CUniqueHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    CUniqueHandle& operator=(CUniqueHandle&& other) noexcept {
        if (this != &other) Reset(std::exchange(other.m_handle, nullptr));
        return *this;
    }
    ~CUniqueHandle() { Reset(nullptr); }

    HANDLE Get() const { return m_handle; }
    explicit operator bool() const { return m_handle != nullptr; }

    // Closes what is held. Keeps the thread's last error, which may be on its way to the caller.
    void Reset(HANDLE next) noexcept;

private:
    HANDLE m_handle = nullptr;
};

enum class ObjectKind { kMissing, kFile, kDirectory };

// What stands at `path`. Throws what keeps it from being known.
ObjectKind KindOf(const std::wstring& path);

// Opens with all sharing; a directory needs FILE_FLAG_BACKUP_SEMANTICS among `flags`. Throws on failure.
CUniqueHandle OpenHandle(const std::wstring& path, DWORD access, DWORD disposition, DWORD flags = 0);

// Numbers that name a file on its volume for as long as a handle on it is open.
struct FileIdentity {
    DWORD volume;  // 0 where the system cannot tell it
    std::uint64_t index;
    bool operator==(const FileIdentity& other) const {
        return index == other.index && (volume == other.volume || volume == 0 || other.volume == 0);
    }
};
FileIdentity IdentityOf(HANDLE file);

std::int64_t SizeOf(HANDLE file);

// The whole content of a small file; nothing where it is missing.
std::optional<std::string> ReadWholeFile(const std::wstring& path);

// Writes `content` to `aside` and moves it over `path`, so that at any moment either the old or the new content is
// there whole. `durable` waits until both have reached the disk.
void ReplaceFile(const std::wstring& path, const std::wstring& aside, std::string_view content, bool durable);

// Moves a file or directory on its volume. Fails with 183 where the target exists.
void MoveNew(const std::wstring& from, const std::wstring& to);

// Removes a file, whatever its attributes; false where it stays. A missing one counts as removed.
bool RemoveFile(const std::wstring& path) noexcept;

// Removes a tree of the engine's own files; false where something of it stays.
bool RemoveTree(const std::wstring& path) noexcept;

// Makes a directory; one that exists already is fine.
void EnsureDirectory(const std::wstring& path);

// The names in a directory, without "." and "..".
std::vector<std::wstring> NamesIn(const std::wstring& directory);

std::string Narrow(std::wstring_view text);
// Widens ASCII text; anything else has no place in a name on disk.
std::wstring WidenAscii(std::string_view text);

// Seconds since 1970-01-01 UTC and back; nothing for a time that the system cannot hold.
std::int64_t SecondsOf(const FILETIME& time);
std::optional<FILETIME> FileTimeOf(std::int64_t seconds);
std::int64_t CurrentSeconds();

}  // namespace zd::engine
