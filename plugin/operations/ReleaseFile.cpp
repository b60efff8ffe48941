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
        const CHandleRef record = m_files.Table().Take(handle);
        if (!record) throw CNotHeld();
        m_files.CloseFileHandle(*record, 0);
    });
}

}  // namespace zd
