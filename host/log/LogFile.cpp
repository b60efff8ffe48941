#include "log/LogFile.h"

#include <algorithm>

#include "text/Failure.h"
#include "text/LocalPath.h"

namespace zd::host {

namespace {

constexpr wchar_t kNameForm[] = L"(zdvfs)0000-00-00-0000.log";  // a 0 stands for any digit

}  // namespace

CLogFile::CLogFile(const std::wstring& path)
    : m_path(path),
      m_handle(::CreateFileW(AbsolutePath(path).c_str(), GENERIC_READ,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                             FILE_FLAG_SEQUENTIAL_SCAN, nullptr)) {
    if (m_handle == INVALID_HANDLE_VALUE) ThrowFailure("opening the log file", ::GetLastError(), path);
}

CLogFile::~CLogFile() {
    ::CloseHandle(m_handle);
}

DWORD CLogFile::Read(void* buffer, DWORD size) {
    LARGE_INTEGER length{};
    if (::GetFileSizeEx(m_handle, &length) != FALSE && static_cast<std::uint64_t>(length.QuadPart) < m_position) {
        m_position = 0;
    }
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(m_position);
    place.OffsetHigh = static_cast<DWORD>(m_position >> 32);
    DWORD got = 0;
    if (::ReadFile(m_handle, buffer, size, &got, &place) == FALSE && ::GetLastError() != ERROR_HANDLE_EOF) {
        ThrowFailure("reading the log file", ::GetLastError(), m_path);
    }
    m_position += got;
    return got;
}

bool IsLogFileName(const std::wstring& name) {
    const std::wstring_view form = kNameForm;
    return std::equal(name.begin(), name.end(), form.begin(), form.end(), [](wchar_t c, wchar_t wanted) {
        if (wanted == L'0') return c >= L'0' && c <= L'9';
        return (c >= L'A' && c <= L'Z' ? c + (L'a' - L'A') : c) == wanted;
    });
}

std::vector<std::wstring> LogFileNames(const std::wstring& folder) {
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found;
    const HANDLE search = ::FindFirstFileW(AbsolutePath(PathBelow(folder, L"*.LOG")).c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        if (::GetLastError() != ERROR_FILE_NOT_FOUND) ThrowFailure("looking for log files", ::GetLastError(), folder);
        return names;
    }
    do {
        const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (!isFolder && IsLogFileName(found.cFileName)) names.emplace_back(found.cFileName);
    } while (::FindNextFileW(search, &found) != FALSE);
    ::FindClose(search);
    std::sort(names.begin(), names.end());
    return names;
}

std::wstring PathBelow(const std::wstring& folder, const std::wstring& name) {
    const bool ends = !folder.empty() && (folder.back() == L'\\' || folder.back() == L'/');
    return folder + (ends ? L"" : L"\\") + name;
}

}  // namespace zd::host
