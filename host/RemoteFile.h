// An open file or directory of the storage.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "IProtocolManager.h"

namespace zd {

enum class ObjectKind : DWORD { File = 0, Directory = 1 };

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

    // The whole descriptor as SDDL text.
    std::wstring SecurityText();
    void SetSecurity(PSECURITY_DESCRIPTOR descriptor);

    // Ends the handle and says whether that worked. Nothing else may be called afterwards.
    void Finish() { End(/*deleteFlag=*/0); }
    // The same, and the object is removed.
    void FinishAndDelete() { End(/*deleteFlag=*/1); }

private:
    void End(DWORD deleteFlag);

    IProtocolManager& m_manager;
    std::wstring m_name;
    Handle m_handle = 0;
    FileInformation m_information{};
};

// The kind of what exists under `name`, found by opening it. Where it opens as neither, the failure is the file's.
ObjectKind KindOf(IProtocolManager& manager, const std::wstring& name, DWORD access);

}  // namespace zd
