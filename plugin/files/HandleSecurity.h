// How the security descriptor of an open handle is reached.
#pragma once

#include "files/OpenFiles.h"
#include "security/StoredSecurity.h"

namespace zd {

// By the open file's own descriptor; by path for a directory and for a file that is closed just now. Throws 2 where the
// name no longer leads to what was opened.
CStoredSecurity StoredSecurityOf(const COpenFiles& files, WORDInfo& record)
    ZD_REQUIRES(record.Lock(), record.FileInfo().UseLock());

}  // namespace zd
