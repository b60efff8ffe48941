#include "transfer/LocalFile.h"

#include "text/Failure.h"
#include "text/LocalPath.h"
#include "text/Text.h"

namespace zd::host {

namespace {

void RefuseDirectory(const std::wstring& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return;
    throw CFailure("the local name is a directory, not a file: " + ToUtf8(path));
}

HANDLE CreateBeside(const std::wstring& path, const std::wstring& temporary) {
    RefuseDirectory(path);
    const HANDLE handle = ::CreateFileW(temporary.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) ThrowFailure("creating the local file", ::GetLastError(), path);
    return handle;
}

}  // namespace

CLocalReader::CLocalReader(const std::wstring& path, bool standardInputFree) : m_path(path) {
    if (path == L"-") {
        if (!standardInputFree) throw CUsageError("standard input holds the commands and cannot be \"-\" too");
        m_handle = ::GetStdHandle(STD_INPUT_HANDLE);
        m_isStandardInput = true;
        return;
    }
    const std::wstring full = AbsolutePath(path);
    RefuseDirectory(full);
    m_handle = ::CreateFileW(full.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                             FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (m_handle == INVALID_HANDLE_VALUE) ThrowFailure("opening the local file", ::GetLastError(), path);
    LARGE_INTEGER size{};
    if (::GetFileType(m_handle) == FILE_TYPE_DISK && ::GetFileSizeEx(m_handle, &size) != FALSE) {
        m_size = static_cast<std::uint64_t>(size.QuadPart);
    }
}

CLocalReader::~CLocalReader() {
    if (!m_isStandardInput) ::CloseHandle(m_handle);
}

DWORD CLocalReader::Read(void* buffer, DWORD size) {
    DWORD got = 0;
    if (::ReadFile(m_handle, buffer, size, &got, nullptr) == FALSE) {
        const DWORD code = ::GetLastError();
        // How a pipe says that its writer is done.
        if (code == ERROR_BROKEN_PIPE || code == ERROR_HANDLE_EOF) return 0;
        ThrowFailure("reading the local file", code, m_path);
    }
    return got;
}

std::uint64_t CLocalReader::WriteTime() const {
    FILETIME time{};
    if (::GetFileTime(m_handle, nullptr, nullptr, &time) == FALSE) {
        ThrowFailure("asking for the local file's time", ::GetLastError(), m_path);
    }
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

CLocalWriter::CLocalWriter(const std::wstring& path)
    : m_path(AbsolutePath(path)),
      m_temporary(m_path + L".zdhost-" + std::to_wstring(::GetCurrentProcessId())),
      m_handle(CreateBeside(m_path, m_temporary)) {}

CLocalWriter::~CLocalWriter() {
    Close();
    if (!m_temporary.empty()) ::DeleteFileW(m_temporary.c_str());
}

void CLocalWriter::Write(const void* data, DWORD size) {
    DWORD written = 0;
    const bool done = ::WriteFile(m_handle, data, size, &written, nullptr) != FALSE;
    if (!done) ThrowFailure("writing the local file", ::GetLastError(), m_path);
    if (written != size) ThrowFailure("writing the local file", ERROR_DISK_FULL, m_path);
}

void CLocalWriter::SetWriteTime(std::uint64_t fileTime) {
    if (fileTime == 0) return;
    const FILETIME time{static_cast<DWORD>(fileTime & 0xFFFFFFFF), static_cast<DWORD>(fileTime >> 32)};
    if (::SetFileTime(m_handle, nullptr, nullptr, &time) == FALSE) {
        ThrowFailure("setting the local file's time", ::GetLastError(), m_path);
    }
}

void CLocalWriter::Commit() {
    Close();
    if (::MoveFileExW(m_temporary.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING) == FALSE) {
        ThrowFailure("naming the local file", ::GetLastError(), m_path);
    }
    m_temporary.clear();
}

void CLocalWriter::Close() {
    if (m_handle != INVALID_HANDLE_VALUE) ::CloseHandle(m_handle);
    m_handle = INVALID_HANDLE_VALUE;
}

}  // namespace zd::host
