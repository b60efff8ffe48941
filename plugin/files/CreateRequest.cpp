#include "files/CreateRequest.h"

#include "base/Conversion.h"
#include "base/Undo.h"
#include "files/OpenMode.h"
#include "log/Log.h"

namespace zd {

// The storage path; the host's name while there is none.
std::string CCreateRequest::PathForLog() const {
    return m_path.empty() ? NameForLog(m_name) : NameForLog(m_path.view());
}

void CCreateRequest::LogEntry() const noexcept {
    LogMade(kLogTrace, [&] {
        return FormatText("ZdCreateFile Enter %s FileAttributes: %ld  CreateDisposition: %ld\n",
                          NameForLog(m_name).c_str(), static_cast<long>(m_fileAttributes),
                          static_cast<long>(m_disposition));
    });
}

void CCreateRequest::LogExit(Handle handle) const noexcept {
    LogMade(kLogTrace, [&] {
        return FormatText("ZdCreateFile Exit       File created:   %s, handle: %p\n", PathForLog().c_str(),
                          reinterpret_cast<void*>(handle));
    });
}

bool CCreateRequest::WantsAccessCheck() const noexcept {
    if ((m_fileAttributes & FILE_FLAG_BACKUP_SEMANTICS) != 0) return false;
    constexpr DWORD kAnyAccess = kZdAccessWrite | kZdAccessReadWrite | kZdAccessFurther;
    const bool isRoot = (m_name[0] == L'/' || m_name[0] == L'\\') && m_name[1] == L'\0';
    return !(m_disposition == kZdOpen && (m_access & kAnyAccess) == 0 && isRoot);
}

void CCreateRequest::ChooseCacheFlags() noexcept {
    constexpr DWORD kWriting = kZdAccessWrite | kZdAccessReadWrite;
    const bool onlyReads = !m_isDirectory && m_disposition == kZdOpen && (m_access & kWriting) == 0;
    if ((m_fileAttributes & FILE_FLAG_SEQUENTIAL_SCAN) != 0) {
        m_cacheFlags = kZdvfsDirectIo;
    } else if ((m_fileAttributes & FILE_FLAG_DELETE_ON_CLOSE) != 0 || onlyReads) {
        m_cacheFlags = kZdvfsReadAhead;
    }
}

void CCreateRequest::ChooseOpenMode() noexcept {
    if ((m_access & kZdAccessReadWrite) != 0) m_access = (m_access & ~kZdAccessReadWrite) | kZdAccessWrite;
    m_openMode = OpenModeOf(m_access, m_name);
    if (m_openMode == kZdvfsWriteOnly && m_cacheFlags == 0) m_cacheFlags = kZdvfsDirectIo;
}

void CCreateRequest::Run(Handle& handle, DWORD* createAction, FileInformation* information) {
    CheckName();
    CheckDisposition();
    ChooseCacheFlags();
    CheckAttributes();
    const bool wantsCheck = WantsAccessCheck();
    m_path = m_files.Translate(m_name);
    std::string_view statPath = m_path.view();
    while (statPath.size() > 1 && statPath.back() == '/') statPath.remove_suffix(1);
    m_statPath = statPath.size() == m_path.size() ? m_path : CUtf8String(statPath);
    ChooseOpenMode();
    FindObject();
    DecideSecurity(wantsCheck);
    // A failed create leaves nothing behind that would make the next one fail.
    CUndo takeBack([this] {
        if (m_isNew) RemoveNewObject();
    });
    if (m_isDirectory) {
        OpenDirectory();
    } else {
        OpenFile();
    }
    StoreDescriptor();
    FileInformation filled{};
    Stat(filled);
    CountWriter();
    const Handle registered = Register(filled);
    takeBack.Keep();
    if (createAction != nullptr) *createAction = Row().createAction;
    if (information != nullptr) *information = filled;
    handle = registered;
}

}  // namespace zd
