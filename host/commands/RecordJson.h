// What the plug-in tells of a file or directory, as JSON.
#pragma once

#include "IProtocolManager.h"
#include "text/Json.h"

namespace zd::host {

// "directory", "size", "attributes", the four times and "mode" of a record; a missing time is null.
CJson JsonOf(const FileInformation& record);
CJson JsonOf(const DirectoryEntry& record);

}  // namespace zd::host
