// One create or open: what was asked for, what was decided, what is held so far. For ZdCreateFile, and for a rename
// that opens what stands in its way.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "base/SharedString.h"
#include "base/StorageOwners.h"
#include "files/FilePolicy.h"
#include "files/OpenFiles.h"
#include "IProtocolManager.h"
#include "zdvfs.h"

namespace zd {

// What a disposition does.
struct CDispositionRow {
    std::uint32_t flags;    // added to the open mode
    DWORD createAction;     // reported to the host
    bool removesFragments;  // fragments behind the first are removed
    std::int32_t locality;  // whether segment size and locality are set; negative counts as 1
};

class CCreateRequest {
public:
    // The host's arguments; the pointers are not null.
    CCreateRequest(COpenFiles& files, const CFilePolicy& policy, const wchar_t* name, bool isDirectory,
                   DWORD fileAttributes, DWORD disposition, DWORD access, PSECURITY_DESCRIPTOR descriptor) noexcept
        : m_files(files),
          m_policy(policy),
          m_name(name),
          m_isDirectory(isDirectory),
          m_fileAttributes(fileAttributes),
          m_disposition(disposition),
          m_access(access),
          m_descriptor(descriptor) {}

    // The whole work; what it answers is stored last. Throws the code of the failure; nothing that was opened stays
    // open then.
    void Run(Handle& handle, DWORD* createAction, FileInformation* information);

    // The lines with which it begins and ends; the handle is 0 where there is none.
    void LogEntry() const noexcept;
    void LogExit(Handle handle) const noexcept;

private:
    // CreateRefusals.cpp: what is refused
    void CheckName() const;
    void CheckDisposition() const;
    void CheckAttributes() const;
    const CDispositionRow& Row() const noexcept;

    // CreateRequest.cpp: the flags that follow
    void ChooseCacheFlags() noexcept;
    void ChooseOpenMode() noexcept;
    bool WantsAccessCheck() const noexcept;
    std::string PathForLog() const;

    // CreateObject.cpp: the storage object
    void FindObject();
    void OpenFile();
    void SetSegmentAndLocality();
    void OpenDirectory();
    void MakeDirectory();
    void StoreDescriptor();
    void RemoveNewObject() noexcept;
    void Stat(FileInformation& information);
    void CountWriter();
    Handle Register(FileInformation& information);

    // CreateSecurity.cpp: the stored descriptor
    void DecideSecurity(bool wantsCheck);
    CUtf8String PathOfStoredSecurity(bool& isFragment);
    void CheckAccess(const char* stored, bool addsFragment) const;
    void TakeGivenDescriptor();

    COpenFiles& m_files;
    const CFilePolicy& m_policy;
    const wchar_t* m_name;
    const bool m_isDirectory;
    const DWORD m_fileAttributes;
    const DWORD m_disposition;
    DWORD m_access;
    const PSECURITY_DESCRIPTOR m_descriptor;

    CUtf8String m_path;      // as translated
    CUtf8String m_statPath;  // the same without trailing slashes
    std::uint32_t m_cacheFlags = 0;
    std::uint32_t m_openMode = 0;
    std::uint32_t m_openFlags = 0;
    bool m_exists = false;
    ZdvfsStatRecord m_status{};
    std::string m_descriptorText;  // to be stored; empty: none
    CUniqueDescriptor m_file;
    CUniqueDirectory m_stream;
    std::int32_t m_segmentSize = 0;
    bool m_isCounted = false;
    bool m_isNew = false;  // nobody but this call can have made the object
};

}  // namespace zd
