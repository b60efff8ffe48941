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

void StatusOf(COpenFiles& files, WORDInfo& record, ZdvfsStatRecord& status) ZD_REQUIRES(record.Lock()) {
    if (record.m_isDir) {
        const CAutoCriticalSection used(record.FileInfo().UseLock());
        record.RequireName();
        CheckZdvfs(::ZdvfsStat(files.TranslateFragment(record, 0).c_str(), &status));
        return;
    }
    const COpenedFragment first = files.GetFragmentFileHandle(record, 0);
    if (first.descriptor == kNoDescriptor) ThrowWin32(ZdvfsErrnoToWin32(first.error));
    CheckZdvfs(::ZdvfsFstat(static_cast<int>(first.descriptor), &status));
}

}  // namespace

DWORD CProtocolManager::ZdQueryFileInfo(Handle handle, FileInformation* information) {
    return RunOperation(kQueryFileInfoText, [&] {
        if (information == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
        const CHandleRef record = m_files.FindHandle(handle);
        const CAutoCriticalSection held(record->Lock());
        ZdvfsStatRecord status{};
        StatusOf(m_files, *record, status);
        FileInformation filled{};
        FillFileInformation(filled, status);
        const CWideString name = record->Name();
        CopyName(ShownName(name), filled.name);
        for (std::int32_t i = 1; i < record->FragmentCount(); ++i) {
            const COpenedFragment fragment = m_files.GetFragmentFileHandle(*record, i);
            if (fragment.descriptor == kNoDescriptor) continue;
            if (::ZdvfsFstat(static_cast<int>(fragment.descriptor), &status) != 0) continue;
            filled.size += static_cast<std::uint64_t>(status.size);
        }
        *information = filled;
    });
}

}  // namespace zd
