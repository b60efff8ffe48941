// Files on the host's own side: what is put into the storage and what is fetched from it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

namespace zd::host {

// Reads a local file, or standard input, from front to end. Not thread-safe.
class CLocalReader {
public:
    // Opens `path`; throws CFailure for a missing file, a directory and whatever the system refuses. "-" reads standard
    // input where `standardInputFree`, else it throws CUsageError.
    CLocalReader(const std::wstring& path, bool standardInputFree);
    ~CLocalReader();
    CLocalReader(const CLocalReader&) = delete;
    CLocalReader& operator=(const CLocalReader&) = delete;

    // Up to `size` bytes; 0 at the end. Throws CFailure.
    DWORD Read(void* buffer, DWORD size);

    // The size in bytes; nothing for a pipe.
    std::optional<std::uint64_t> Size() const { return m_size; }

    // The time of the last write as a FILETIME value. Throws CFailure where there is none, as for a pipe.
    std::uint64_t WriteTime() const;

private:
    std::wstring m_path;
    HANDLE m_handle = INVALID_HANDLE_VALUE;
    bool m_isStandardInput = false;
    std::optional<std::uint64_t> m_size;
};

// Writes a local file beside its final name and moves it there when it is complete, so that neither a half-written
// file nor the loss of an earlier one is ever seen. Destroyed before Commit, it removes what it wrote.
class CLocalWriter {
public:
    // Throws CFailure: `path` is a directory, or the file beside it cannot be created.
    explicit CLocalWriter(const std::wstring& path);
    ~CLocalWriter();
    CLocalWriter(const CLocalWriter&) = delete;
    CLocalWriter& operator=(const CLocalWriter&) = delete;

    // All of `size` bytes; throws CFailure.
    void Write(const void* data, DWORD size);

    // The time of the last write that the complete file is to have, a FILETIME value; 0 changes nothing. Throws
    // CFailure.
    void SetWriteTime(std::uint64_t fileTime);

    // Gives the file its final name, replacing a file of that name. Throws CFailure.
    void Commit();

private:
    void Close();

    std::wstring m_path;
    std::wstring m_temporary;
    HANDLE m_handle = INVALID_HANDLE_VALUE;
};

}  // namespace zd::host
