// A create finds, opens, makes and registers the storage object.
#include <algorithm>
#include <cstring>

#include "base/Conversion.h"
#include "base/Errors.h"
#include "base/KeptErrors.h"
#include "base/Undo.h"
#include "files/CreateRequest.h"
#include "files/FilesState.h"
#include "files/SegmentPolicy.h"
#include "log/Log.h"
#include "namespace/FileInformation.h"
#include "namespace/Locality.h"
#include "namespace/PathTranslation.h"
#include "namespace/StatIfThere.h"

namespace zd {
namespace {

constexpr DWORD kStorageAttributes = 0xFFFF;

std::wstring_view LastComponent(std::wstring_view name) noexcept {
    // Without a separator the position is npos, and one behind it is the beginning.
    return name.substr(name.rfind(L'\\') + 1);
}

}  // namespace

void CCreateRequest::FindObject() {
    const auto status = StatIfThere(m_statPath);
    const DWORD lastError = ::GetLastError();
    m_exists = status.has_value();
    if (!m_exists) return;
    m_status = *status;
    if (lastError == 0) return;
    LogMade(kLogTrace, [&] {
        return FormatText("ZdCreateFile:ZdvfsStat:Access to file %s failed with Error code: %lu \n",
                          NameForLog(m_statPath.view()).c_str(), lastError);
    });
}

void CCreateRequest::OpenFile() {
    const std::uint32_t added = Row().flags;
    m_openFlags = m_openMode | added;
    if ((m_fileAttributes & FILE_ATTRIBUTE_TEMPORARY) != 0) m_openFlags |= kZdvfsTemporary;
    if (!m_policy.isLocalCacheOn && m_cacheFlags == 0) m_cacheFlags = kZdvfsDirectIo;
    const DWORD mode = (added & kZdvfsCreate) != 0 ? m_fileAttributes & kStorageAttributes : 0;
    const int descriptor =
        ::ZdvfsOpen(m_path.c_str(), static_cast<int>(m_cacheFlags | m_openFlags), static_cast<int>(mode));
    if (descriptor < 0) {
        const CFailure failure = CFailure::Now();
        if (m_disposition != kZdOverwriteIf) ThrowWin32(failure.LastErrorCode());
        LogLine(kLogTrace, "ZdCreateFile:   ZDVFS errno value:      %ld \n", static_cast<long>(failure.error));
        ThrowWin32(failure.ErrnoCode());
    }
    m_file.Reset(descriptor);
    m_isNew = (added & kZdvfsExclusive) != 0;
    if (m_openFlags != 0) SetModified();
    if ((m_openFlags & kZdvfsTruncate) != 0) CheckZdvfs(::ZdvfsFtruncate(descriptor, 0));
    if (Row().locality != 0 && (m_access & kZdAccessWrite) != 0) SetSegmentAndLocality();
}

void CCreateRequest::SetSegmentAndLocality() {
    constexpr int kLocalityBytes = 32;
    m_segmentSize = ApplySegmentSize(m_policy, m_file.Get(), m_name, m_cacheFlags);
    const CUtf8String locality = LocalityOf(m_name);
    LogMade(kLogTrace,
            [&] { return FormatText("ZdCreateFile:  locality: %s\n", NameForLog(locality.view()).c_str()); });
    if (locality.empty()) return;
    char buffer[kLocalityBytes] = {};
    std::memcpy(buffer, locality.c_str(), std::min(locality.size(), sizeof buffer - 1));
    void* const none = nullptr;
    if (::ZdvfsIoctl(m_file.Get(), kZdvfsIoctlSetStorageLocality, none, 0, buffer, 0, kLocalityBytes) < 0) {
        const int error = errno;
        LogLine(kLogError,
                "ZdCreateFile: ERROR returned by ZdvfsIoctl(..,ZDVFS_IOCTL_SET_STG_LOCALITY,...).  err: %d \n", error);
    }
}

void CCreateRequest::MakeDirectory() {
    CheckZdvfs(::ZdvfsMkdir(m_path.c_str(), static_cast<int>(m_fileAttributes & kStorageAttributes)));
    m_isNew = true;
    SetModified();
}

void CCreateRequest::OpenDirectory() {
    if (m_disposition == kZdCreate) {
        if (m_exists && IsDirectory(m_status)) {
            LogMade(kLogError, [&] {
                return FormatText("ZdCreateFile:  FileName:   %s  ERROR:  directory already exists\n",
                                  NameForLog(m_name).c_str());
            });
            ThrowWin32(ERROR_ALREADY_EXISTS);
        }
        MakeDirectory();
    } else if (m_disposition == kZdOpenIf) {
        if (!m_exists) MakeDirectory();
        if (m_exists && !IsDirectory(m_status)) ThrowWin32(ERROR_DIRECTORY);
    } else if (!m_exists) {
        ThrowWin32(ERROR_PATH_NOT_FOUND);
    }
    m_stream.Reset(::ZdvfsOpendirForList(m_path.c_str(), 0));
    if (!m_stream) ThrowWin32(ZdvfsErrnoToWin32());
}

void CCreateRequest::RemoveNewObject() noexcept {
    const CKeptErrors kept;
    m_file.Reset();
    m_stream.Reset();
    m_isNew = false;
    try {
        ::ZdvfsUnlink(m_path.c_str());
    } catch (...) {
        // The failure to be reported is the one that led here.
    }
}

void CCreateRequest::StoreDescriptor() {
    if (m_descriptorText.empty()) return;
    // A file that this call could not have made is somebody else's, made since it was looked for.
    if (!m_isDirectory && (Row().flags & kZdvfsCreate) == 0) return;
    // An object without the descriptor it was to have would be open to everybody.
    CUndo takeBack([this] { RemoveNewObject(); });
    CheckZdvfs(::ZdvfsSetNTAclStr(m_path.c_str(), m_descriptorText.c_str()));
    takeBack.Keep();
}

void CCreateRequest::Stat(FileInformation& information) {
    errno = 0;
    if (::ZdvfsStat(m_statPath.c_str(), &m_status) != 0) ThrowWin32(ZdvfsErrnoToWin32());
    FillFileInformation(information, m_status);
    CopyName(LastComponent(m_name), information.name);
}

void CCreateRequest::CountWriter() {
    const bool writes = !m_isDirectory && (m_openFlags & kWritingFlags) != 0;
    if ((m_cacheFlags & kZdvfsDirectIo) == 0 && !writes) return;
    m_isCounted = true;
    const std::int32_t count = FilesState().m_OpenDirectIOorWriteFiles.fetch_add(1, std::memory_order_relaxed) + 1;
    LogLine(kLogTrace,
            "ZdCreateFile: found direct-io/write-only/read-write file - zdvfsCacheFlags:%x, Flags:%x, "
            "m_OpenDirectIOorWriteFiles: %d\n",
            m_cacheFlags, m_openFlags, count);
}

Handle CCreateRequest::Register(FileInformation& information) {
    CUndo uncount([this] {
        if (m_isCounted) FilesState().m_OpenDirectIOorWriteFiles.fetch_sub(1, std::memory_order_relaxed);
    });
    const std::wstring_view given(m_name);
    const std::wstring_view registered = m_isDirectory ? given : WithoutTrailingSeparators(given);
    const CHandleRef record =
        m_files.Table().Register({registered, registered.size() == given.size() ? m_path : CUtf8String(),
                                  m_isDirectory ? kNoDescriptor : m_file.Get(), m_stream.Get(), m_isDirectory,
                                  m_cacheFlags | m_openFlags, m_policy.fragmentSize, m_segmentSize, m_isCounted});
    // The record's by now, the count too.
    static_cast<void>(m_file.Release());
    static_cast<void>(m_stream.Release());
    uncount.Keep();
    if (m_isDirectory) return record->Value();
    CUndo leave([&] { m_files.Table().Take(record->Value()); });
    const std::int64_t total = m_files.DiscoverFragments(*record, Row().removesFragments, m_status.size);
    information.size = static_cast<std::uint64_t>(total);
    leave.Keep();
    return record->Value();
}

}  // namespace zd
