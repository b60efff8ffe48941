#include <algorithm>
#include <utility>
#include <vector>

#include "files/FilesState.h"
#include "namespace/FileInformation.h"
#include "namespace/FragmentName.h"
#include "namespace/PathComponents.h"
#include "namespace/PathTranslation.h"
#include "namespace/StatIfThere.h"
#include "operations/RenameFileTarget.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"
#include "security/StoredSecurity.h"

namespace zd {
namespace {

// Of storage paths the first component, the pool's name, stays whatever "..".
CPathComponents<char> Resolved(const CUtf8String& path) {
    return ResolvedComponents(path.view(), 1);
}

bool IsSamePath(const CUtf8String& first, const CUtf8String& second) {
    return Resolved(first) == Resolved(second);
}

bool IsBelow(const CUtf8String& path, const CUtf8String& directory) {
    const CPathComponents<char> inner = Resolved(path);
    const CPathComponents<char> outer = Resolved(directory);
    return inner.size() > outer.size() && std::equal(outer.begin(), outer.end(), inner.begin());
}

// The storage paths that a rename moves, of each fragment that the handle knows. All of them are made before the
// storage is changed: a file must not come apart because memory ran out between two fragments.
class CRenamePlan {
public:
    CRenamePlan(const COpenFiles& files, WORDInfo& record, const CWideString& newName) ZD_REQUIRES(record.Lock())
        : m_oldName(record.Name()) {
        for (std::int32_t i = 0; i < record.FragmentCount(); ++i) {
            m_paths.emplace_back(files.Translate(FragmentName(m_oldName, i).c_str()),
                                 files.Translate(FragmentName(newName, i).c_str()));
        }
    }

    const CWideString& OldName() const noexcept { return m_oldName; }
    const CUtf8String& OldPath() const noexcept { return m_paths.front().first; }
    const CUtf8String& NewPath() const noexcept { return m_paths.front().second; }

    // Throws the code of the first failure.
    void Run() const {
        for (const auto& [oldPath, newPath] : m_paths) {
            errno = 0;
            if (::ZdvfsRename(oldPath.c_str(), newPath.c_str()) != 0) ThrowWin32(ZdvfsErrnoToWin32());
        }
    }

private:
    CWideString m_oldName;
    std::vector<std::pair<CUtf8String, CUtf8String>> m_paths;
};

// Where the new name makes the file a part of another one, the caller must be allowed to write that file.
void RequireAccessToWhole(const CUtf8String& path) {
    const auto status = StatIfThere(path);
    if (!status || IsDirectory(*status)) return;
    const CUniqueHeapBlock<char> buffer = NewDescriptorBuffer();
    const CStoredSecurity::CRead read = CStoredSecurity(path).Read(buffer.Get());
    if (read.failed) ThrowWin32(ZdvfsErrnoToWin32(read.error));
    if (buffer.Get()[0] != '\0') RequireStoredAccess(buffer.Get(), kZdAccessWrite);
}

// Renames between a file and a fragment of a file.
void CheckFragmentNames(const COpenFiles& files, const CRenamePlan& plan, const CWideString& newName, bool isDirectory,
                        bool replaces) {
    const CWideString whole = BaseOfFragmentShape(newName);
    if (!whole.empty()) {
        const CUtf8String path = files.Translate(whole.c_str());
        // A file cannot become a part of itself, and with replacing it would lose that part first.
        if (!isDirectory && IsSamePath(plan.OldPath(), path)) ThrowWin32(ERROR_INVALID_NAME);
        RequireAccessToWhole(path);
    }
    if (isDirectory) return;
    // Nor can a part replace its file, with which it would be removed.
    const CWideString oldWhole = BaseOfFragmentShape(plan.OldName());
    if (replaces && !oldWhole.empty() && IsSamePath(files.Translate(oldWhole.c_str()), plan.NewPath())) {
        ThrowWin32(ERROR_INVALID_NAME);
    }
}

void Rename(COpenFiles& files, const CFilePolicy& policy, WORDInfo& record, const wchar_t* newName, bool replaces)
    ZD_REQUIRES(record.Lock()) {
    record.RequireName();
    const CWideString target(record.m_isDir ? std::wstring_view(newName) : WithoutTrailingSeparators(newName));
    // The handle must follow a rename that has been done, so nothing may fail behind it.
    CRenamePlan plan(files, record, target);
    WORDCollection::CNewName prepared(target.c_str(), plan.NewPath());
    if (IsSamePath(plan.OldPath(), plan.NewPath())) return;
    CheckFragmentNames(files, plan, target, record.m_isDir, replaces);
    // Nothing can move below itself, so nothing is removed for it.
    if (replaces && !IsBelow(plan.NewPath(), plan.OldPath())) {
        RemoveRenameTarget(files, policy, record.FileInfo(), target.c_str());
    }
    const CAutoCriticalSection used(record.FileInfo().UseLock());
    record.RequireName();
    // Another handle may have renamed the file meanwhile.
    if (record.Name().view() != plan.OldName().view()) plan = CRenamePlan(files, record, target);
    if (IsSamePath(plan.OldPath(), plan.NewPath())) return;
    plan.Run();
    files.Table().Rename(record.FileInfo(), prepared);
    SetModified();
}

}  // namespace

DWORD CProtocolManager::ZdRenameFile(Handle handle, const wchar_t* newName, DWORD replaceIfExists) {
    return RunOperation(kRenameFileText, [&] {
        if (newName == nullptr || *newName == L'\0') ThrowWin32(ERROR_INVALID_NAME);
        const CHandleRef record = m_files.FindHandle(handle);
        const CAutoCriticalSection held(record->Lock());
        Rename(m_files, m_policy, *record, newName, replaceIfExists != 0);
    });
}

}  // namespace zd
