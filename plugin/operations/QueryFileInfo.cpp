#include "base/StorageOwners.h"
#include "namespace/FileInformation.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

// A file at the top of the share shows its leading backslash, a deeper one its bare last component.
std::wstring_view ShownName(const CWideString& name) {
    const std::wstring_view view = name.view();
    const std::size_t separator = view.rfind(L'\\');
    return separator == std::wstring_view::npos || separator == 0 ? view : view.substr(separator + 1);
}

void StatusOf(CProtocolManager& manager, WORDInfo& word, const CAutoCriticalSection& held, ZdvfsStatRecord& status) {
    if (word.m_isDir) {
        const CAutoCriticalSection used(word.FileInfo().UseLock());
        word.RequireName();
        CheckZdvfs(::ZdvfsStat(manager.TranslateFragment(word, 0).c_str(), &status));
        return;
    }
    const COpenedFragment first = manager.GetFragmentFileHandle(word, 0, held);
    if (first.descriptor == kNoDescriptor) ThrowWin32(ZdvfsErrnoToWin32(first.error));
    CheckZdvfs(::ZdvfsFstat(static_cast<int>(first.descriptor), &status));
}

}  // namespace

DWORD CProtocolManager::ZdQueryFileInfo(Handle handle, FileInformation* information) {
    return RunOperation(kQueryFileInfoText, [&] {
        if (information == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
        const CWordRef word = FindWord(handle);
        const CAutoCriticalSection held(word->Lock());
        ZdvfsStatRecord status{};
        StatusOf(*this, *word, held, status);
        FileInformation filled{};
        FillFileInformation(filled, status);
        const CWideString name = word->Name();
        CopyName(ShownName(name), filled.name);
        for (std::int32_t i = 1; i < word->FragmentCount(); ++i) {
            const COpenedFragment fragment = GetFragmentFileHandle(*word, i, held);
            if (fragment.descriptor == kNoDescriptor) continue;
            if (::ZdvfsFstat(static_cast<int>(fragment.descriptor), &status) != 0) continue;
            filled.size += static_cast<std::uint64_t>(status.size);
        }
        *information = filled;
    });
}

}  // namespace zd
