// Closing by a handle, for ZdCloseFile and for a rename that removes what stands in its way.
#pragma once

#include "files/OpenFiles.h"

namespace zd {

// The line with which a close begins.
void LogCloseEntry(Handle handle) noexcept;

// Closes what the handle has open, and removes the file where `deleteFlag` is not 0; the handle stays in the table.
// Nothing for the handle 0. Throws 6, 2 where the name does not convert, the code of a failed removal.
void CloseByHandle(COpenFiles& files, Handle handle, DWORD deleteFlag) ZD_TAKES_AGAIN;

}  // namespace zd
