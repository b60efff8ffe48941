#include "operations/RenameFileTarget.h"

#include "files/Closing.h"
#include "files/CreateRequest.h"
#include "namespace/PathTranslation.h"
#include "protocol/OperationFrame.h"

namespace zd {
namespace {

// Opened, and below closed, as a host would: with the same checks, the same lines, and the same ends of failures.
Handle Open(COpenFiles& files, const CFilePolicy& policy, const wchar_t* name) {
    ZdvfsStatRecord status{};
    const bool isFound = ::ZdvfsStat(files.Translate(name).c_str(), &status) == 0;
    const bool isDirectory = isFound && (status.mode & kZdvfsModeDirectory) != 0;
    CCreateRequest request(files, policy, name, isDirectory, 0, kZdOpen, DELETE, nullptr);
    Handle opened = 0;
    RunOperation(
        kCreateFileText, [&] { request.LogEntry(); }, [&] { request.Run(opened, nullptr, nullptr); },
        [&](DWORD) { request.LogExit(opened); });
    return opened;
}

void Close(COpenFiles& files, Handle handle, bool removes) {
    RunOperation<EUnexpected::EndProcess>(
        kCloseFileText, [&] { LogCloseEntry(handle); }, [&] { CloseByHandle(files, handle, removes ? 1 : 0); });
}

// One step for the handles of the name: it must not come to mean another object between look and removal, and nobody
// may reopen it before it counts as replaced.
ZD_TAKES_AGAIN void RemoveOpened(COpenFiles& files, WORDInfo& target, const CFileInfo& source, const wchar_t* name) {
    const CAutoCriticalSection held(target.Lock());
    const CAutoCriticalSection used(target.FileInfo().UseLock());
    // Names that differ only in case share a record, whose name may then be that of another object, or of the source.
    const bool isOther = &target.FileInfo() == &source ||
                         WithoutTrailingSeparators(target.Name().view()) != WithoutTrailingSeparators(name);
    Close(files, target.Value(), !isOther);
    if (target.IsDeleted()) files.Table().Displace(target.FileInfo());
}

}  // namespace

void RemoveRenameTarget(COpenFiles& files, const CFilePolicy& policy, const CFileInfo& source, const wchar_t* newName) {
    const Handle handle = Open(files, policy, newName);
    if (handle == 0) return;
    const CHandleRef target = files.FindHandle(handle);
    RemoveOpened(files, *target, source, newName);
    // The record leaves the table whatever the removal came to; a target that is still there stops the rename.
    files.Table().Take(handle);
}

}  // namespace zd
