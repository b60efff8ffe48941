#include "protocol/OperationFrame.h"
#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"
#include "security/StoredSecurity.h"
#include "security/TokenHelper.h"

namespace zd {

DWORD CProtocolManager::ZdSetSecurity(Handle handle, std::uint64_t, PSECURITY_DESCRIPTOR descriptor) {
    return RunOperation(kSetSecurityText, [&] {
        CheckDescriptor(descriptor);
        const CWordRef word = FindWord(handle);
        const CAutoCriticalSection held(word->Lock());
        {
            // Whoever stores a descriptor must keep some access under it.
            const CUniqueSystemHandle token(CTokenHelper().GetToken());
            RequireAccess(descriptor, token.Get(), MAXIMUM_ALLOWED);
        }
        const std::string text = TextOfDescriptor(descriptor);
        LogMade(kLogTrace, [&] { return FormatText("SET SD_DACL\n%s\n", NameForLog(text).c_str()); });
        const CAutoCriticalSection used(word->FileInfo().UseLock());
        StoredSecurityOf(*this, *word).Store(text.c_str());
        SetModified();
    });
}

}  // namespace zd
