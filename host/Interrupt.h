// Ctrl-C: a transfer ends between two pieces, so that handles are closed and unfinished local files are removed.
#pragma once

namespace zd {

// From now on Ctrl-C and Ctrl-Break set a mark instead of ending the process.
void CatchInterrupts();

// Throws CFatalFailure once the user has interrupted.
void CheckInterrupted();

}  // namespace zd
