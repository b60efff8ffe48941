// The log's files: where they are, and reading one that others write.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zd::host {

// A log file open for reading, beside its writer and whoever moves or removes it. Not thread-safe.
class CLogFile {
public:
    // Throws CFailure.
    explicit CLogFile(const std::wstring& path);
    ~CLogFile();
    CLogFile(const CLogFile&) = delete;
    CLogFile& operator=(const CLogFile&) = delete;

    // Up to `size` of the next bytes; 0 at the end, behind which more may come. A file that has become shorter than
    // what was read is read from its front again. Throws CFailure.
    DWORD Read(void* buffer, DWORD size);

private:
    std::wstring m_path;
    HANDLE m_handle = INVALID_HANDLE_VALUE;
    std::uint64_t m_position = 0;
};

// Whether a file's name (without its folder) is one that the log gives: "(ZDVFS)2026-11-16-0329.LOG".
bool IsLogFileName(const std::wstring& name);

// The names of the folder's log files, the oldest first: their names hold the time. Throws CFailure where there is no
// such folder.
std::vector<std::wstring> LogFileNames(const std::wstring& folder);

// `name` below `folder`.
std::wstring PathBelow(const std::wstring& folder, const std::wstring& name);

}  // namespace zd::host
