#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"
#include "security/StoredSecurity.h"
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

CStoredSecurity StoredSecurityOf(const CProtocolManager& manager, const WORDInfo& word) {
    // The name may by now be somebody else's new object.
    if (word.IsDeleted()) ThrowWin32(ERROR_FILE_NOT_FOUND);
    if (!word.m_isDir && word.Descriptor(0) >= 0) return CStoredSecurity(static_cast<int>(word.Descriptor(0)));
    word.RequireName();
    return CStoredSecurity(manager.TranslateFragment(word, 0));
}

DWORD CProtocolManager::ZdGetSecurity(Handle handle, std::uint64_t, PSECURITY_DESCRIPTOR* descriptor) {
    return RunOperation(kGetSecurityText, [&] {
        if (descriptor == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
        const CWordRef word = FindWord(handle);
        const CAutoCriticalSection held(word->Lock());
        const CAutoCriticalSection used(word->FileInfo().UseLock());
        const CUniqueHeapBlock<char> buffer = NewDescriptorBuffer();
        const CStoredSecurity stored = StoredSecurityOf(*this, *word);
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
