#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

// A host that releases what it does not hold has lost track of its handles; going on could hit a handle of another
// client. It is neither a code nor exhausted memory, so the frame ends the process.
class CNotHeld {};

}  // namespace

DWORD CProtocolManager::ZdReleaseFile(Handle handle) {
    return RunOperation<EUnexpected::EndProcess>(kReleaseFileText, [&] {
        if (handle == 0) return;
        const CWordRef word = m_words.Take(handle);
        if (!word) throw CNotHeld();
        CloseFileHandle(*word, 0);
    });
}

}  // namespace zd
