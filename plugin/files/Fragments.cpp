// Fragments of an open file: discovery, opening on demand, reopening by name.
#include <limits>

#include "base/StorageOwners.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr int kLengthOfSize = 4;

std::int64_t NextUse() noexcept {
    return ProcessState().m_useClock.fetch_add(1, std::memory_order_relaxed) + 1;
}

void SetFragmentSegment(int descriptor, int request, std::int32_t size, const CUtf8String& path, const char* what) {
    if (::ZdvfsIoctl(descriptor, request, size, kLengthOfSize) != 0) return;
    LogMade(kLogTrace,
            [&] { return FormatText("Set segment %s of %s to %d\n", what, NameForLog(path.view()).c_str(), size); });
}

}  // namespace

std::int64_t CProtocolManager::DiscoverFragments(WORDInfo& word, bool truncate, std::int64_t firstSize) {
    const CAutoCriticalSection held(word.Lock());
    word.SetSize(firstSize, 0, false);
    word.SetLastUse(0, NextUse());
    // A rename through another handle must not take the fragments away half-way.
    const CAutoCriticalSection used(word.FileInfo().UseLock());
    // What stands under the name by now must not be taken for this file's, or removed.
    word.RequireName();
    CFragmentPaths paths(TranslateFragment(word, 1));
    for (std::int32_t n = 1; n < std::numeric_limits<std::int32_t>::max(); ++n) {
        const char* const path = paths.Of(n);
        ZdvfsStatRecord record{};
        if (::ZdvfsStat(path, &record) != 0) break;
        if (truncate) {
            ::ZdvfsUnlink(path);
        } else {
            word.AddFragment(kNoDescriptor, n, record.size);
        }
    }
    // A file written with a larger fragment size keeps its geometry. A size of 0 would be no geometry at all.
    const bool isForeign = word.FragmentCount() > 1 || firstSize > word.m_fragmentSize;
    if (!truncate && isForeign && firstSize > 0) word.m_fragmentSize = firstSize;
    return word.TotalSize();
}

COpenedFragment CProtocolManager::GetFragmentFileHandle(WORDInfo& word, std::int32_t index, const CAutoCriticalSection&,
                                                        std::int32_t keep) {
    COpenedFragment opened{word.Descriptor(index), 0};
    if (opened.descriptor == kNoDescriptor) {
        word.RequireName();
        const std::int32_t victim = word.LeastRecentlyUsed(keep);
        if (word.OpenFragments() >= m_maxOpenFragments && victim >= 0) {
            const auto descriptor = static_cast<int>(word.Descriptor(victim));
            // Gone also where the close reports a failure; kept, it would fail every later eviction of the handle.
            word.SetDescriptor(kNoDescriptor, victim);
            errno = 0;
            if (::ZdvfsClose(descriptor) != 0) ThrowWin32(ZdvfsErrnoToWin32());
            LogMade(kLogNotice, [&] {
                return FormatText("Closed fragment %d to open %s\n", victim,
                                  NameForLog(TranslateFragment(word, index).view()).c_str());
            });
        }
        const CAutoCriticalSection used(word.FileInfo().UseLock());
        // The create bit would bring an empty file back.
        word.RequireName();
        opened = ReOpenFile(word, index, 3, word.m_OpenFlags | kZdvfsCreate, word.m_segmentSize);
    }
    // The fragment used last stays so: its stamp would change no order, only a counter that all threads share.
    if (!word.IsNewest(index)) {
        // Stamped first: what becomes open then goes to the newest end of the open ones.
        word.SetLastUse(index, NextUse());
        word.SetDescriptor(opened.descriptor, index);
    }
    return opened;
}

COpenedFragment CProtocolManager::ReOpenFile(const WORDInfo& word, std::int32_t index, std::int32_t,
                                             std::uint32_t flags, std::int32_t segmentSize) {
    const CUtf8String path = TranslateFragment(word, index);
    LogMade(kLogNotice, [&] {
        return FormatText("Entering %s(\"%s\"\n", "CProtocolManager::ReOpenFile", NameForLog(path.view()).c_str());
    });
    ZdvfsStatRecord record{};
    if (::ZdvfsStat(path.c_str(), &record) < 0) {
        const int error = errno;
        LogMade(kLogNotice, [&] {
            return FormatText("ZdvfsStat(\"%s\") failed with errno = %d during ReOpenFile\n",
                              NameForLog(word.NameOfFragment(index).view()).c_str(), error);
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

COpenedFragment CProtocolManager::FillFragment(WORDInfo& word, std::int32_t index, const CAutoCriticalSection& held,
                                               std::int32_t keep) {
    const COpenedFragment opened = GetFragmentFileHandle(word, index, held, keep);
    if (opened.descriptor == kNoDescriptor) return opened;
    CheckZdvfs(::ZdvfsFtruncate(static_cast<int>(opened.descriptor), word.m_fragmentSize));
    word.SetSize(word.m_fragmentSize, index, false);
    return opened;
}

COpenedFragment CProtocolManager::OpenForWriting(WORDInfo& word, std::int32_t index, const CAutoCriticalSection& held,
                                                 bool& added, std::int32_t keep) {
    added = index >= word.FragmentCount();
    if (added) {
        if (index > word.FragmentCount()) ThrowWin32(ERROR_INVALID_PARAMETER);
        // Opening it would create it, and a reader changes nothing.
        if ((word.m_OpenFlags & kWritingFlags) == 0) ThrowWin32(ERROR_ACCESS_DENIED);
        if (word.FragmentLength(index - 1) < word.m_fragmentSize) {
            const COpenedFragment before = FillFragment(word, index - 1, held, keep);
            if (before.descriptor == kNoDescriptor) return before;
        }
        word.AddFragment(kNoDescriptor, index, 0);
    }
    // A fragment that was added but never opened does not exist in the storage.
    struct CTakeBack {
        WORDInfo* word;
        ~CTakeBack() {
            if (word != nullptr) word->RemoveLastFragment();
        }
    } takeBack{added ? &word : nullptr};
    const COpenedFragment opened = GetFragmentFileHandle(word, index, held, keep);
    if (opened.descriptor != kNoDescriptor) takeBack.word = nullptr;
    return opened;
}

}  // namespace zd
