#include "WinFile.h"

#include <algorithm>

#include "ErrorTable.h"

namespace zd::engine {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::int64_t kEpochSeconds = 11644473600;
constexpr std::int64_t kTicksPerSecond = 10'000'000;
// Metadata is small; more than this is not the engine's.
constexpr std::int64_t kMaximumWholeFile = 16 << 20;

// Scanners and indexers hold a fresh file for moments without sharing; waiting them out beats failing the caller.
template <class Attempt>
bool Patiently(Attempt&& attempt) {
    for (DWORD delay = 1;; delay *= 2) {
        if (attempt()) return true;
        const DWORD error = ::GetLastError();
        const bool passing = error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
        if (!passing || delay > 64) return false;
        ::Sleep(delay);
        ::SetLastError(error);
    }
}

class CFindHandle {
public:
    explicit CFindHandle(HANDLE handle) : m_handle(handle) {}
    CFindHandle(const CFindHandle&) = delete;
    CFindHandle& operator=(const CFindHandle&) = delete;
    ~CFindHandle() {
        if (m_handle != INVALID_HANDLE_VALUE) ::FindClose(m_handle);
    }
    HANDLE Get() const { return m_handle; }

private:
    HANDLE m_handle;
};

std::uint64_t Join(DWORD high, DWORD low) {
    return (static_cast<std::uint64_t>(high) << 32) | low;
}

}  // namespace

void CUniqueHandle::Reset(HANDLE next) noexcept {
    const HANDLE old = std::exchange(m_handle, next);
    if (!old) return;
    const DWORD lastError = ::GetLastError();
    ::CloseHandle(old);
    ::SetLastError(lastError);
}

ObjectKind KindOf(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES) {
        return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? ObjectKind::kDirectory : ObjectKind::kFile;
    }
    switch (::GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_DIRECTORY:
        case ERROR_INVALID_NAME:
            return ObjectKind::kMissing;
        default:
            FailLast();
    }
}

CUniqueHandle OpenHandle(const std::wstring& path, DWORD access, DWORD disposition, DWORD flags) {
    CUniqueHandle handle(
        ::CreateFileW(path.c_str(), access, kShareAll, nullptr, disposition, FILE_ATTRIBUTE_NORMAL | flags, nullptr));
    if (!handle) FailLast();
    return handle;
}

FileIdentity IdentityOf(HANDLE file) {
    BY_HANDLE_FILE_INFORMATION information;
    if (!::GetFileInformationByHandle(file, &information)) FailLast();
    return {information.dwVolumeSerialNumber, Join(information.nFileIndexHigh, information.nFileIndexLow)};
}

std::int64_t SizeOf(HANDLE file) {
    LARGE_INTEGER size;
    if (!::GetFileSizeEx(file, &size)) FailLast();
    return size.QuadPart;
}

std::optional<std::string> ReadWholeFile(const std::wstring& path) {
    CUniqueHandle file(
        ::CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        const DWORD error = ::GetLastError();
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return std::nullopt;
        Fail(error);
    }
    const std::int64_t size = SizeOf(file.Get());
    if (size > kMaximumWholeFile) Fail(ERROR_FILE_CORRUPT);
    std::string content(static_cast<std::size_t>(size), '\0');
    std::size_t done = 0;
    while (done < content.size()) {
        DWORD moved = 0;
        const auto piece = static_cast<DWORD>(content.size() - done);
        if (!::ReadFile(file.Get(), content.data() + done, piece, &moved, nullptr)) FailLast();
        if (moved == 0) break;
        done += moved;
    }
    content.resize(done);
    return content;
}

void ReplaceFile(const std::wstring& path, const std::wstring& aside, std::string_view content, bool durable) {
    DWORD error = ERROR_SUCCESS;
    {
        const CUniqueHandle file = OpenHandle(aside, GENERIC_WRITE, CREATE_ALWAYS);
        DWORD moved = 0;
        const BOOL written =
            ::WriteFile(file.Get(), content.data(), static_cast<DWORD>(content.size()), &moved, nullptr);
        if (written && moved != content.size()) {
            error = ERROR_DISK_FULL;
        } else if (!written || (durable && !::FlushFileBuffers(file.Get()))) {
            error = ::GetLastError();
        }
    }
    const DWORD flags = MOVEFILE_REPLACE_EXISTING | (durable ? MOVEFILE_WRITE_THROUGH : 0);
    if (error == ERROR_SUCCESS && !Patiently([&] { return ::MoveFileExW(aside.c_str(), path.c_str(), flags) != 0; })) {
        error = ::GetLastError();
    }
    if (error == ERROR_SUCCESS) return;
    RemoveFile(aside);
    Fail(error);
}

void MoveNew(const std::wstring& from, const std::wstring& to) {
    if (Patiently([&] { return ::MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_WRITE_THROUGH) != 0; })) return;
    FailLast();
}

bool RemoveFile(const std::wstring& path) noexcept {
    if (::DeleteFileW(path.c_str())) return true;
    if (::GetLastError() == ERROR_FILE_NOT_FOUND) return true;
    if (::GetLastError() != ERROR_ACCESS_DENIED) return false;
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
    return ::DeleteFileW(path.c_str()) != 0;
}

bool RemoveTree(const std::wstring& path) noexcept {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return ::GetLastError() == ERROR_FILE_NOT_FOUND;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return RemoveFile(path);
    // A link to a directory elsewhere is removed, never followed.
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
        try {
            for (const std::wstring& name : NamesIn(path)) RemoveTree(std::wstring(path).append(1, L'\\').append(name));
        } catch (...) {
            return false;
        }
    }
    return ::RemoveDirectoryW(path.c_str()) != 0;
}

void EnsureDirectory(const std::wstring& path) {
    if (::CreateDirectoryW(path.c_str(), nullptr)) return;
    if (::GetLastError() != ERROR_ALREADY_EXISTS) FailLast();
    if (KindOf(path) != ObjectKind::kDirectory) Fail(ERROR_DIRECTORY);
}

std::vector<std::wstring> NamesIn(const std::wstring& directory) {
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW entry;
    const CFindHandle find(::FindFirstFileExW((directory + L"\\*").c_str(), FindExInfoBasic, &entry,
                                              FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH));
    if (find.Get() == INVALID_HANDLE_VALUE) {
        // A volume's own root has no dot entries and may be empty.
        if (::GetLastError() == ERROR_FILE_NOT_FOUND && KindOf(directory) == ObjectKind::kDirectory) return names;
        FailLast();
    }
    do {
        const std::wstring_view name = entry.cFileName;
        if (name != L"." && name != L"..") names.emplace_back(name);
    } while (::FindNextFileW(find.Get(), &entry));
    if (::GetLastError() != ERROR_NO_MORE_FILES) FailLast();
    return names;
}

std::string Narrow(std::wstring_view text) {
    if (text.empty()) return {};
    const int units = static_cast<int>(text.size());
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), units, narrow.data(), size, nullptr, nullptr);
    return narrow;
}

std::wstring WidenAscii(std::string_view text) {
    return std::wstring(text.begin(), text.end());
}

std::int64_t SecondsOf(const FILETIME& time) {
    const std::uint64_t ticks = Join(time.dwHighDateTime, time.dwLowDateTime);
    return static_cast<std::int64_t>(ticks / static_cast<std::uint64_t>(kTicksPerSecond)) - kEpochSeconds;
}

std::optional<FILETIME> FileTimeOf(std::int64_t seconds) {
    // 0 ticks would mean "leave the time alone" to the system, and it takes no time with the sign bit.
    if (seconds <= -kEpochSeconds || seconds >= INT64_MAX / kTicksPerSecond - kEpochSeconds) return std::nullopt;
    const auto ticks = static_cast<std::uint64_t>((seconds + kEpochSeconds) * kTicksPerSecond);
    return FILETIME{static_cast<DWORD>(ticks & 0xFFFFFFFFu), static_cast<DWORD>(ticks >> 32)};
}

std::int64_t CurrentSeconds() {
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    return SecondsOf(now);
}

}  // namespace zd::engine
