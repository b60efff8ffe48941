// What stands under a rename's new name.
#pragma once

#include "files/FilePolicy.h"
#include "files/OpenFiles.h"

namespace zd {

// Removes it, as far as it can be opened and is not the source itself. What stays stops the rename that follows.
void RemoveRenameTarget(COpenFiles& files, const CFilePolicy& policy, const CFileInfo& source, const wchar_t* newName);

}  // namespace zd
