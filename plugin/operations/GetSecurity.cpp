#include "files/HandleSecurity.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"
#include "security/TokenHelper.h"

namespace zd {
namespace {

// Owns the descriptor on its way to the host, however it was made: both kinds of memory are freed alike.
using CUniqueResult = CUniqueDescriptorBlock;

CUniqueResult Invent(const CStoredSecurity& stored, std::string& text) {
    const CUniqueSystemHandle token(CTokenHelper().GetToken());
    CInventedDescriptor invented(token.Get());
    text = invented.Text();
    stored.Store(text.c_str());
    return CUniqueResult(invented.SelfRelative().Release());
}

}  // namespace

DWORD CProtocolManager::ZdGetSecurity(Handle handle, std::uint64_t, PSECURITY_DESCRIPTOR* descriptor) {
    return RunOperation(kGetSecurityText, [&] {
        if (descriptor == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
        const CHandleRef record = m_files.FindHandle(handle);
        const CAutoCriticalSection held(record->Lock());
        const CAutoCriticalSection used(record->FileInfo().UseLock());
        const CUniqueHeapBlock<char> buffer = NewDescriptorBuffer();
        const CStoredSecurity stored = StoredSecurityOf(m_files, *record);
        const CStoredSecurity::CRead read = stored.Read(buffer.Get());
        if (read.failed) ThrowWin32(ZdvfsErrnoToWin32(read.error));
        std::string text(buffer.Get());
        CUniqueResult result = text.empty() ? Invent(stored, text) : CUniqueResult(DescriptorOfText(text.c_str()));
        LogMade(kLogTrace, [&] { return FormatText("GET SD_DACL\n%s\n", NameForLog(text).c_str()); });
        if (::IsValidSecurityDescriptor(result.Get()) == FALSE) ThrowWin32(ERROR_INVALID_SECURITY_DESCR);
        *descriptor = result.Release();
    });
}

}  // namespace zd
