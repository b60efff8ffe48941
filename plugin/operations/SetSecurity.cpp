#include "files/FilesState.h"
#include "files/HandleSecurity.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"
#include "security/TokenHelper.h"

namespace zd {

DWORD CProtocolManager::ZdSetSecurity(Handle handle, std::uint64_t, PSECURITY_DESCRIPTOR descriptor) {
    return RunOperation(kSetSecurityText, [&] {
        CheckDescriptor(descriptor);
        const CHandleRef record = m_files.FindHandle(handle);
        const CAutoCriticalSection held(record->Lock());
        {
            // Whoever stores a descriptor must keep some access under it.
            const CUniqueSystemHandle token(CTokenHelper().GetToken());
            RequireAccess(descriptor, token.Get(), MAXIMUM_ALLOWED);
        }
        const std::string text = TextOfDescriptor(descriptor);
        LogMade(kLogTrace, [&] { return FormatText("SET SD_DACL\n%s\n", NameForLog(text).c_str()); });
        const CAutoCriticalSection used(record->FileInfo().UseLock());
        StoredSecurityOf(m_files, *record).Store(text.c_str());
        SetModified();
    });
}

}  // namespace zd
