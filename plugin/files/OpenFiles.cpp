#include "files/OpenFiles.h"

#include "base/Errors.h"
#include "namespace/FragmentName.h"
#include "namespace/PathTranslation.h"

namespace zd {

COpenFiles::COpenFiles() : m_unconnectedRoot(L"/"), m_root(m_unconnectedRoot) {}

void COpenFiles::SetRoot(CWideString root) noexcept {
    m_root = std::move(root);
    m_table.ForgetPaths();
}

CHandleRef COpenFiles::FindHandle(Handle handle) {
    CHandleRef record = m_table.Find(handle);
    if (!record) ThrowWin32(ERROR_INVALID_HANDLE);
    return record;
}

CUtf8String COpenFiles::Translate(const wchar_t* name) const {
    return TranslatePath(m_root, name);
}

CUtf8String COpenFiles::TranslateFragment(const WORDInfo& record, std::int32_t fragment) const {
    CFileInfo::CNames names = record.FileInfo().Names();
    if (names.path.empty()) {
        // A suffix may make room for a name that does not fit by itself.
        if (fragment > 0) return Translate(FragmentName(names.name, fragment).c_str());
        names.path = Translate(names.name.c_str());
        record.FileInfo().RememberPath(names);
    }
    return FragmentPath(names.path, fragment);
}

}  // namespace zd
