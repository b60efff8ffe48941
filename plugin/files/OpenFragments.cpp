// Fragments of an open file: discovery, opening on demand, reopening by name.
#include <limits>

#include "base/Conversion.h"
#include "base/Errors.h"
#include "base/StorageOwners.h"
#include "base/Undo.h"
#include "files/FilesState.h"
#include "files/OpenFiles.h"
#include "log/Log.h"
#include "namespace/FragmentName.h"

namespace zd {
namespace {

constexpr int kLengthOfSize = 4;

std::int64_t NextUse() noexcept {
    return FilesState().m_useClock.fetch_add(1, std::memory_order_relaxed) + 1;
}

void SetFragmentSegment(int descriptor, int request, std::int32_t size, const CUtf8String& path, const char* what) {
    if (::ZdvfsIoctl(descriptor, request, size, kLengthOfSize) != 0) return;
    LogMade(kLogTrace,
            [&] { return FormatText("Set segment %s of %s to %d\n", what, NameForLog(path.view()).c_str(), size); });
}

}  // namespace

std::int64_t COpenFiles::DiscoverFragments(WORDInfo& record, bool truncate, std::int64_t firstSize) {
    const CAutoCriticalSection held(record.Lock());
    record.SetSize(firstSize, 0, false);
    record.SetLastUse(0, NextUse());
    // A rename through another handle must not take the fragments away half-way.
    const CAutoCriticalSection used(record.FileInfo().UseLock());
    // What stands under the name by now must not be taken for this file's, or removed.
    record.RequireName();
    CFragmentPaths paths(PathWithoutFragment(TranslateFragment(record, 1).view()));
    for (std::int32_t n = 1; n < std::numeric_limits<std::int32_t>::max(); ++n) {
        const char* const path = paths.Of(n);
        ZdvfsStatRecord status{};
        if (::ZdvfsStat(path, &status) != 0) break;
        if (truncate) {
            ::ZdvfsUnlink(path);
        } else {
            record.AddFragment(kNoDescriptor, n, status.size);
        }
    }
    // A file written with a larger fragment size keeps its geometry. A size of 0 would be no geometry at all.
    const bool isForeign = record.FragmentCount() > 1 || firstSize > record.m_fragmentSize;
    if (!truncate && isForeign && firstSize > 0) record.m_fragmentSize = firstSize;
    return record.TotalSize();
}

void COpenFiles::MakeRoom(WORDInfo& record, std::int32_t index, std::int32_t keep) {
    const std::int32_t victim = record.LeastRecentlyUsed(keep);
    if (record.OpenFragments() < m_fragmentLimit || victim < 0) return;
    const auto descriptor = static_cast<int>(record.Descriptor(victim));
    // Gone also where the close reports a failure; kept, it would fail every later eviction of the handle.
    record.SetDescriptor(kNoDescriptor, victim);
    errno = 0;
    if (::ZdvfsClose(descriptor) != 0) ThrowWin32(ZdvfsErrnoToWin32());
    LogMade(kLogNotice, [&] {
        return FormatText("Closed fragment %d to open %s\n", victim,
                          NameForLog(TranslateFragment(record, index).view()).c_str());
    });
}

COpenedFragment COpenFiles::GetFragmentFileHandle(WORDInfo& record, std::int32_t index, std::int32_t keep) {
    COpenedFragment opened{record.Descriptor(index), 0};
    if (opened.descriptor == kNoDescriptor) {
        record.RequireName();
        MakeRoom(record, index, keep);
        const CAutoCriticalSection used(record.FileInfo().UseLock());
        // The create bit would bring an empty file back.
        record.RequireName();
        opened = ReOpenFile(record, index, record.m_OpenFlags | kZdvfsCreate, record.m_segmentSize);
    }
    // The fragment used last stays so: its stamp would change no order, only a counter that all threads share.
    if (!record.IsNewest(index)) {
        // Stamped first: what becomes open then goes to the newest end of the open ones.
        record.SetLastUse(index, NextUse());
        record.SetDescriptor(opened.descriptor, index);
    }
    return opened;
}

COpenedFragment COpenFiles::ReOpenFile(const WORDInfo& record, std::int32_t index, std::uint32_t flags,
                                       std::int32_t segmentSize) {
    const CUtf8String path = TranslateFragment(record, index);
    LogMade(kLogNotice, [&] {
        return FormatText("Entering %s(\"%s\"\n", "CProtocolManager::ReOpenFile", NameForLog(path.view()).c_str());
    });
    ZdvfsStatRecord status{};
    if (::ZdvfsStat(path.c_str(), &status) < 0) {
        const int error = errno;
        LogMade(kLogNotice, [&] {
            return FormatText("ZdvfsStat(\"%s\") failed with errno = %d during ReOpenFile\n",
                              NameForLog(FragmentName(record.Name(), index).view()).c_str(), error);
        });
    }
    COpenedFragment opened{::ZdvfsOpen(path.c_str(), static_cast<int>(flags), 0), 0};
    if (opened.descriptor < 0) {
        opened = COpenedFragment{kNoDescriptor, errno};
    } else if (segmentSize > 0) {
        CUniqueDescriptor owner(static_cast<int>(opened.descriptor));
        SetFragmentSegment(owner.Get(), kZdvfsIoctlSetSegmentSize, segmentSize, path, "size");
        SetFragmentSegment(owner.Get(), kZdvfsIoctlSetStreamSegmentSize, segmentSize, path, "stream size");
        static_cast<void>(owner.Release());
    }
    LogMade(kLogTrace, [&] {
        return FormatText("filename = %s   fd = %ld\n", NameForLog(path.view()).c_str(),
                          static_cast<long>(opened.descriptor));
    });
    return opened;
}

COpenedFragment COpenFiles::FillFragment(WORDInfo& record, std::int32_t index, std::int32_t keep) {
    const COpenedFragment opened = GetFragmentFileHandle(record, index, keep);
    if (opened.descriptor == kNoDescriptor) return opened;
    CheckZdvfs(::ZdvfsFtruncate(static_cast<int>(opened.descriptor), record.m_fragmentSize));
    record.SetSize(record.m_fragmentSize, index, false);
    return opened;
}

COpenedFragment COpenFiles::OpenForWriting(WORDInfo& record, std::int32_t index, bool& added, std::int32_t keep) {
    added = index >= record.FragmentCount();
    if (added) {
        if (index > record.FragmentCount()) ThrowWin32(ERROR_INVALID_PARAMETER);
        // Opening it would create it, and a reader changes nothing.
        if ((record.m_OpenFlags & kWritingFlags) == 0) ThrowWin32(ERROR_ACCESS_DENIED);
        if (record.FragmentLength(index - 1) < record.m_fragmentSize) {
            const COpenedFragment before = FillFragment(record, index - 1, keep);
            if (before.descriptor == kNoDescriptor) return before;
        }
        record.AddFragment(kNoDescriptor, index, 0);
    }
    // A fragment that was added but never opened does not exist in the storage.
    CUndo takeBack([&]() ZD_REQUIRES(record.Lock()) {
        if (added) record.RemoveLastFragment();
    });
    const COpenedFragment opened = GetFragmentFileHandle(record, index, keep);
    if (opened.descriptor != kNoDescriptor) takeBack.Keep();
    return opened;
}

}  // namespace zd
