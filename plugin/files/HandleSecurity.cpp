#include "files/HandleSecurity.h"

#include "base/Errors.h"

namespace zd {

CStoredSecurity StoredSecurityOf(const COpenFiles& files, WORDInfo& record) {
    // The name may by now be somebody else's new object.
    if (record.IsDeleted()) ThrowWin32(ERROR_FILE_NOT_FOUND);
    if (!record.m_isDir && record.Descriptor(0) >= 0) return CStoredSecurity(static_cast<int>(record.Descriptor(0)));
    record.RequireName();
    return CStoredSecurity(files.TranslateFragment(record, 0));
}

}  // namespace zd
