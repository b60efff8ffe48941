#include <vector>

#include "namespace/FileInformation.h"
#include "namespace/PathTranslation.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

// The components of a path with "." and ".." resolved, as the storage would resolve them.
std::vector<std::string_view> Components(std::string_view path) {
    std::vector<std::string_view> components;
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

}  // namespace

void CProtocolManager::RemoveRenameTarget(const wchar_t* newName) {
    ZdvfsStatRecord status{};
    const bool isFound = ::ZdvfsStat(Translate(newName).c_str(), &status) == 0;
    const DWORD isDirectory = isFound && (status.mode & kZdvfsModeDirectory) != 0 ? 1 : 0;
    Handle target = 0;
    DWORD action = 0;
    if (ZdCreateFile(newName, isDirectory, 1, 0, 0, kZdOpen, DELETE, 4, nullptr, &target, &action, nullptr) !=
        ERROR_SUCCESS) {
        return;
    }
    // The record leaves the table whatever the removal came to; a target that is still there stops the rename.
    ZdCloseFile(target, 1);
    m_words.Take(target);
}

void CProtocolManager::RenameFragments(const WORDInfo& word, const CWideString& oldName, const CWideString& newName) {
    for (std::int32_t i = 0; i < word.FragmentCount(); ++i) {
        const CUtf8String oldPath = Translate(FragmentName(oldName, i).c_str());
        const CUtf8String newPath = Translate(FragmentName(newName, i).c_str());
        errno = 0;
        if (::ZdvfsRename(oldPath.c_str(), newPath.c_str()) != 0) ThrowWin32(ZdvfsErrnoToWin32());
    }
}

DWORD CProtocolManager::ZdRenameFile(Handle handle, const wchar_t* newName, DWORD replaceIfExists) {
    return RunOperation(kRenameFileText, [&] {
        if (newName == nullptr || *newName == L'\0') ThrowWin32(ERROR_INVALID_NAME);
        const CWordRef word = FindWord(handle);
        const CAutoCriticalSection held(word->Lock());
        const CWideString oldName = word->Name();
        const CUtf8String oldPath = Translate(oldName.c_str());
        if (IsSamePath(oldPath, Translate(newName))) return;
        // A file cannot become a part of itself, and with replacing it would lose that part first.
        const CWideString base = BaseOfFragmentShape(CWideString(newName));
        if (!base.empty() && IsSamePath(oldPath, Translate(base.c_str()))) ThrowWin32(ERROR_INVALID_NAME);
        // All memory is had before the storage is changed: the handle must follow a rename that has been done.
        WORDCollection::CNewName prepared(newName);
        if (replaceIfExists != 0) RemoveRenameTarget(newName);
        RenameFragments(*word, oldName, prepared.name);
        m_words.Rename(word->FileInfo(), prepared);
        SetModified();
    });
}

}  // namespace zd
