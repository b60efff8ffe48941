#include <algorithm>
#include <utility>
#include <vector>

#include "namespace/FileInformation.h"
#include "namespace/PathTranslation.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"
#include "security/StoredSecurity.h"

namespace zd {
namespace {

using CComponents = std::vector<std::string_view>;

// The components of a path with "." and ".." resolved, as the storage would resolve them.
CComponents Components(std::string_view path) {
    CComponents components;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        const std::string_view component = path.substr(0, slash);
        path.remove_prefix(slash == std::string_view::npos ? path.size() : slash + 1);
        if (component.empty() || component == ".") continue;
        if (component != "..") {
            components.push_back(component);
        } else if (components.size() > 1) {
            components.pop_back();
        }
    }
    return components;
}

bool IsSamePath(const CUtf8String& first, const CUtf8String& second) {
    return Components(first.view()) == Components(second.view());
}

bool IsBelow(const CUtf8String& path, const CUtf8String& directory) {
    const CComponents inner = Components(path.view());
    const CComponents outer = Components(directory.view());
    return inner.size() > outer.size() && std::equal(outer.begin(), outer.end(), inner.begin());
}

// The storage paths that a rename moves, of each fragment that the handle knows. All of them are made before the
// storage is changed: a file must not come apart because memory ran out between two fragments.
class CRenamePlan {
public:
    CRenamePlan(const CProtocolManager& manager, const WORDInfo& word, const CWideString& newName)
        : m_oldName(word.Name()) {
        for (std::int32_t i = 0; i < word.FragmentCount(); ++i) {
            m_paths.emplace_back(manager.Translate(FragmentName(m_oldName, i).c_str()),
                                 manager.Translate(FragmentName(newName, i).c_str()));
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
    ZdvfsStatRecord status{};
    errno = 0;
    if (::ZdvfsStat(path.c_str(), &status) != 0) {
        const int error = errno;
        if (error != ENOENT && error != ENOTDIR) ThrowWin32(ZdvfsErrnoToWin32(error));
        return;
    }
    if (IsDirectory(status)) return;
    const CUniqueHeapBlock<char> buffer = NewDescriptorBuffer();
    const CStoredSecurity::CRead read = CStoredSecurity(path).Read(buffer.Get());
    if (read.failed) ThrowWin32(ZdvfsErrnoToWin32(read.error));
    if (buffer.Get()[0] != '\0') RequireStoredAccess(buffer.Get(), kZdAccessWrite);
}

// Renames between a file and a part of a file.
void CheckParts(const CProtocolManager& manager, const CRenamePlan& plan, const CWideString& newName, bool isDirectory,
                bool replaces) {
    const CWideString whole = BaseOfFragmentShape(newName);
    if (!whole.empty()) {
        const CUtf8String path = manager.Translate(whole.c_str());
        // A file cannot become a part of itself, and with replacing it would lose that part first.
        if (!isDirectory && IsSamePath(plan.OldPath(), path)) ThrowWin32(ERROR_INVALID_NAME);
        RequireAccessToWhole(path);
    }
    if (isDirectory) return;
    // Nor can a part replace its file, with which it would be removed.
    const CWideString oldWhole = BaseOfFragmentShape(plan.OldName());
    if (replaces && !oldWhole.empty() && IsSamePath(manager.Translate(oldWhole.c_str()), plan.NewPath())) {
        ThrowWin32(ERROR_INVALID_NAME);
    }
}

}  // namespace

void CProtocolManager::RemoveRenameTarget(const WORDInfo& source, const wchar_t* newName) {
    ZdvfsStatRecord status{};
    const bool isFound = ::ZdvfsStat(Translate(newName).c_str(), &status) == 0;
    const DWORD isDirectory = isFound && (status.mode & kZdvfsModeDirectory) != 0 ? 1 : 0;
    Handle target = 0;
    DWORD action = 0;
    if (ZdCreateFile(newName, isDirectory, 1, 0, 0, kZdOpen, DELETE, 4, nullptr, &target, &action, nullptr) !=
        ERROR_SUCCESS) {
        return;
    }
    const CWordRef word = FindWord(target);
    {
        // One step for the handles of the name: it must not come to mean another object between look and removal, and
        // nobody may reopen it before it counts as replaced.
        const CAutoCriticalSection held(word->Lock());
        const CAutoCriticalSection used(word->FileInfo().UseLock());
        // Names that differ only in case share a record, whose name may then be that of another object, or of the
        // source.
        const bool isOther = &word->FileInfo() == &source.FileInfo() ||
                             WithoutTrailingSeparators(word->Name().view()) != WithoutTrailingSeparators(newName);
        ZdCloseFile(target, isOther ? 0 : 1);
        if (word->IsDeleted()) m_words.Displace(word->FileInfo());
    }
    // The record leaves the table whatever the removal came to; a target that is still there stops the rename.
    m_words.Take(target);
}

DWORD CProtocolManager::ZdRenameFile(Handle handle, const wchar_t* newName, DWORD replaceIfExists) {
    return RunOperation(kRenameFileText, [&] {
        if (newName == nullptr || *newName == L'\0') ThrowWin32(ERROR_INVALID_NAME);
        const bool replaces = replaceIfExists != 0;
        const CWordRef word = FindWord(handle);
        const CAutoCriticalSection held(word->Lock());
        word->RequireName();
        const CWideString target(word->m_isDir ? std::wstring_view(newName) : WithoutTrailingSeparators(newName));
        // The handle must follow a rename that has been done, so nothing may fail behind it.
        CRenamePlan plan(*this, *word, target);
        WORDCollection::CNewName prepared(target.c_str(), plan.NewPath());
        if (IsSamePath(plan.OldPath(), plan.NewPath())) return;
        CheckParts(*this, plan, target, word->m_isDir, replaces);
        // Nothing can move below itself, so nothing is removed for it.
        if (replaces && !IsBelow(plan.NewPath(), plan.OldPath())) RemoveRenameTarget(*word, target.c_str());
        const CAutoCriticalSection used(word->FileInfo().UseLock());
        word->RequireName();
        // Another handle may have renamed the file meanwhile.
        if (word->Name().view() != plan.OldName().view()) plan = CRenamePlan(*this, *word, target);
        if (IsSamePath(plan.OldPath(), plan.NewPath())) return;
        plan.Run();
        m_words.Rename(word->FileInfo(), prepared);
        SetModified();
    });
}

}  // namespace zd
