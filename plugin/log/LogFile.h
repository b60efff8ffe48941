// The dated log file: where it lies, what it is called, how it is opened.
#pragma once

#include "Logger.h"

namespace zd {

// Opens the log file of the current minute for `logger`, in the directory that the agent's key names; `fileActive` then
// says whether there is a file. Without a directory, or where the file cannot be opened, the log goes on without one.
//
// Called by the one thread that initialises the logger, later by its writer thread alone; takes no lock of the log.
// False only when the runtime cannot tell the local time; nothing has been tried then.
bool OpenLogFile(CLogger& logger) noexcept;

// Makes the directory that is to hold `path`, and the directories above it. 0, or -1 where it could not be made.
// `path` is written to meanwhile and comes back unchanged.
int CreateDirectoryChain(char* path) noexcept;

}  // namespace zd
