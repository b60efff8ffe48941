#include "base/Conversion.h"
#include "base/Times.h"
#include "files/FilesState.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr DWORD kAcceptedAttributes = 0x000021B7;

void LogAttributes(std::int32_t level, const CUtf8String& path, const char* what, DWORD attributes) {
    LogMade(level, [&] {
        return FormatText("ZdSetFileBasicInfo: FileName:   %s  ERROR:  %sdwFileAttributes value = %ld \n",
                          NameForLog(path.view()).c_str(), what, static_cast<long>(attributes));
    });
}

void SetAttributes(const CUtf8String& path, DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        LogAttributes(kLogError, path, "Invalid Parameter:      ", attributes);
        ThrowWin32(ERROR_INVALID_PARAMETER);
    }
    // Told, but not masked: the storage gets the whole value.
    if ((attributes & ~kAcceptedAttributes) != 0) {
        LogAttributes(kLogWarning, path, "ignored file attributes:        ", attributes);
    }
    CheckZdvfs(::ZdvfsChmod(path.c_str(), attributes));
    SetModified();
}

void SetTimes(const CUtf8String& path, std::int64_t access, std::int64_t write) {
    const ZdvfsTimes times{SecondsOf(access), SecondsOf(write)};
    CheckZdvfs(::ZdvfsUtime(path.c_str(), &times));
    SetModified();
}

}  // namespace

DWORD CProtocolManager::ZdSetFileBasicInfo(Handle handle, std::int64_t, std::int64_t lastAccessTime,
                                           std::int64_t lastWriteTime, std::int64_t, DWORD fileAttributes) {
    return RunOperation(
        kSetFileBasicInfoText, [] {},
        [&] {
            const CHandleRef record = m_files.FindHandle(handle);
            const CAutoCriticalSection held(record->Lock());
            const CAutoCriticalSection used(record->FileInfo().UseLock());
            record->RequireName();
            const CUtf8String path = m_files.TranslateFragment(*record, 0);
            LogLine(kLogTrace, "ZdSetFileBasicInfo Enter %ld\n", static_cast<long>(fileAttributes));
            if (fileAttributes != 0) SetAttributes(path, fileAttributes);
            if (lastAccessTime != 0 || lastWriteTime != 0) SetTimes(path, lastAccessTime, lastWriteTime);
        });
}

}  // namespace zd
