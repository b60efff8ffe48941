#include <algorithm>
#include <functional>

#include "base/StorageOwners.h"
#include "files/FilesState.h"
#include "files/FragmentPosition.h"
#include "files/TransferFailure.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr int kFromStart = 0;
constexpr int kNoFlags = 0;

// The two handles of an append.
struct CAppend {
    COpenFiles& files;
    WORDInfo& target;
    WORDInfo& source;
};

int OpenSource(const CAppend& append, std::int32_t index) ZD_REQUIRES(append.source.Lock()) {
    const COpenedFragment opened = append.files.GetFragmentFileHandle(append.source, index);
    if (opened.descriptor == kNoDescriptor) {
        LogText(kLogTrace, "GetFragmentFileHandle call failed to open fragment to read!!!");
        ThrowWin32(ERROR_INVALID_HANDLE);
    }
    return static_cast<int>(opened.descriptor);
}

// Opens the target's fragment and positions it. A fragment that was just added stands at its start.
int OpenTarget(const CAppend& append, const CFragmentPosition& position, std::int32_t keep)
    ZD_REQUIRES(append.target.Lock()) {
    bool added = false;
    const COpenedFragment opened = append.files.OpenForWriting(append.target, position.Index(), added, keep);
    if (opened.descriptor == kNoDescriptor) {
        LogText(kLogTrace, "GetFragmentFileHandle call failed to open fragment to write!!!");
        ThrowWin32(ERROR_INVALID_HANDLE);
    }
    const auto descriptor = static_cast<int>(opened.descriptor);
    if ((!added || position.Inner() > 0) && ::ZdvfsLseek(descriptor, position.Inner(), kFromStart) < 0) {
        ThrowTransferFailure("ZdvfsLseek failed to seek to bytesToWrite, error: %d\n", CFailure::Now());
    }
    return descriptor;
}

void AppendFragments(const CAppend& append, CFragmentPosition to, CFragmentPosition from, std::int64_t length)
    ZD_REQUIRES(append.target.Lock(), append.source.Lock()) {
    const bool isOneFile = &append.target == &append.source;
    for (;;) {
        int source = OpenSource(append, from.Index());
        const int target = OpenTarget(append, to, isOneFile ? from.Index() : -1);
        // Opening the target's fragment may have changed what the one handle has open.
        if (isOneFile) source = OpenSource(append, from.Index());
        const std::int64_t piece = std::min({length, from.Room(), to.Room()});
        LogLine(kLogTrace, "ZdvfsAppend called : bytesToAppend = %lld\n, readOffset = %lld\n", piece, from.Inner());
        const std::int64_t copied = ::ZdvfsAppend(target, piece, from.Inner(), source, kNoFlags);
        if (copied < 0) ThrowTransferFailure("ZdvfsAppend failed with error: %d\n", CFailure::Now());
        // A source that ends early leaves the target shorter than the piece: what is recorded must be there, or the
        // next fragment would be added behind a gap.
        append.target.SetSize(to.Inner() + std::min(copied, piece), to.Index(), true);
        length -= piece;
        to.Advance(piece);
        from.Advance(piece);
        from.Step();
        if (length <= 0) break;
        to.Step();
    }
    append.target.m_lastWritten = to.Index();
}

ZD_TAKES_TWO void Append(const CAppend& append, std::int64_t targetOffset, std::int64_t sourceOffset,
                         std::int64_t length) {
    WORDInfo& to = append.target;
    WORDInfo& from = append.source;
    // In the order of their addresses, so that two opposite appends cannot wait for each other.
    const bool targetFirst = std::less<>()(&to, &from);
    const CAutoCriticalSection first((targetFirst ? to : from).Lock());
    const CAutoCriticalSection second((targetFirst ? from : to).Lock());
    to.RequireData();
    from.RequireData();
    LogLine(kLogTrace, "Write File FragmentSize = %lld\n, Read File FragmentSize = %lld\n", to.m_fragmentSize,
            from.m_fragmentSize);
    if (!IndexFits(targetOffset + length, to.m_fragmentSize) ||
        !IndexFits(sourceOffset + length, from.m_fragmentSize)) {
        ThrowWin32(ERROR_INVALID_PARAMETER);
    }
    if (length == 0) return;
    AppendFragments(append, CFragmentPosition(targetOffset, to.m_fragmentSize),
                    CFragmentPosition(sourceOffset, from.m_fragmentSize), length);
    SetModified();
}

}  // namespace

DWORD CProtocolManager::ZdAppendFile(Handle target, Handle source, std::int64_t targetOffset, std::int64_t sourceOffset,
                                     std::int64_t length) {
    return RunOperation(
        kAppendFileText,
        [&] {
            LogLine(kLogTrace,
                    "ZdAppendFile Enter - hFileHandle: %p, hSrcFileHandle: %p, byteOffset : %lld, srcByteOffset : "
                    "%lld, len: %lld\n",
                    reinterpret_cast<void*>(target), reinterpret_cast<void*>(source), targetOffset, sourceOffset,
                    length);
        },
        [&] {
            if (targetOffset < 0 || sourceOffset < 0 || length < 0 || !EndFits(targetOffset, length) ||
                !EndFits(sourceOffset, length)) {
                ThrowWin32(ERROR_INVALID_PARAMETER);
            }
            const CHandleRef to = m_files.FindHandle(target);
            const CHandleRef from = m_files.FindHandle(source);
            Append(CAppend{m_files, *to, *from}, targetOffset, sourceOffset, length);
        },
        [](DWORD result) {
            LogLine(kLogTrace, "ZdAppendFile Exit - %#x(%d)\n", static_cast<unsigned>(result),
                    static_cast<int>(result));
        });
}

}  // namespace zd
