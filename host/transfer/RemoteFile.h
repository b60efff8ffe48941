// An open file or directory of the storage.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "IProtocolManager.h"

namespace zd::host {

enum class ObjectKind : DWORD { File = 0, Directory = 1 };

// The bit of a mode word that marks a directory.
constexpr std::uint32_t kModeDirectory = 0x4000;

struct OpenRequest {
    std::wstring name;
    ObjectKind kind = ObjectKind::File;
    DWORD disposition = kZdOpen;
    DWORD access = FILE_READ_DATA;
};

// Owns one handle. Every operation throws CFailure that names the plug-in's operation, its code and the file. Offsets
// and sizes are bytes. One thread.
class CRemoteFile {
public:
    CRemoteFile(IProtocolManager& manager, OpenRequest request);
    // Closes and releases; what fails then is not reported.
    ~CRemoteFile();
    CRemoteFile(const CRemoteFile&) = delete;
    CRemoteFile& operator=(const CRemoteFile&) = delete;

    const std::wstring& Name() const { return m_name; }
    // What the open told of the object.
    const FileInformation& Information() const { return m_information; }
    std::int64_t Size() const { return static_cast<std::int64_t>(m_information.size); }

    // Up to `length` bytes; less only at the end of the data.
    DWORD Read(std::int64_t offset, void* buffer, DWORD length);
    // All of `length` bytes; a count below that is a failure.
    void Write(std::int64_t offset, const void* buffer, DWORD length);
    void SetSize(std::int64_t size);
    // Copies inside the storage.
    void Append(std::int64_t offset, CRemoteFile& source, std::int64_t sourceOffset, std::int64_t length);

    // What the storage tells of the object now.
    FileInformation Query();
    // Attributes of 0, and times where both are 0, are left alone.
    void SetBasic(std::int64_t accessTime, std::int64_t writeTime, DWORD attributes);
    void Rename(const std::wstring& newName, bool replace);
    // What the directory holds from where its stream stands, "." and ".." included. A second call finds nothing.
    std::vector<DirectoryEntry> List();

    // The whole descriptor as SDDL text.
    std::wstring SecurityText();
    void SetSecurity(PSECURITY_DESCRIPTOR descriptor);

    // Ends the handle and says whether that worked. Nothing else may be called afterwards.
    void Finish() { End(/*deleteFlag=*/0); }
    // The same, and the object is removed.
    void FinishAndDelete() { End(/*deleteFlag=*/1); }

    // For operations that take the handle itself.
    Handle Get() const { return m_handle; }

private:
    void End(DWORD deleteFlag);

    IProtocolManager& m_manager;
    std::wstring m_name;
    Handle m_handle = 0;
    FileInformation m_information{};
};

// What the storage tells of a name without opening it; the record's name stays empty. Throws CFailure.
FileInformation QueryPath(IProtocolManager& manager, const std::wstring& name);

inline bool IsDirectory(const FileInformation& information) {
    return (information.mode & kModeDirectory) != 0;
}
inline bool IsDirectory(const DirectoryEntry& entry) {
    return (entry.mode & kModeDirectory) != 0;
}

// The name of an entry; empty where it could not be told.
std::wstring NameOf(const DirectoryEntry& entry);

// True for the two names that every directory holds.
inline bool IsDots(const std::wstring& name) {
    return name == L"." || name == L"..";
}

// Makes a directory (kZdCreate), or has one be there (kZdOpenIf). Throws CFailure.
void MakeDirectory(IProtocolManager& manager, const std::wstring& name, DWORD disposition);

// All that a directory holds, "." and ".." included. Throws CFailure.
std::vector<DirectoryEntry> ListDirectory(IProtocolManager& manager, const std::wstring& name);

// The kind of what exists under `name`, found by opening it. Where it opens as neither, the failure is the file's.
ObjectKind KindOf(IProtocolManager& manager, const std::wstring& name, DWORD access);

}  // namespace zd::host
