// Ctrl-C: a transfer ends between two pieces, so that handles are closed and unfinished local files are removed.
#pragma once

namespace zd::host {

// From now on Ctrl-C and Ctrl-Break set a mark instead of ending the process.
void CatchInterrupts();

// Throws CInterrupted once the user has interrupted.
void CheckInterrupted();

// While one lives, a line is being typed: Ctrl-C gives up the line and leaves no mark. A mark from before is taken
// away, so that the next command begins without one.
class CPrompting {
public:
    CPrompting();
    ~CPrompting();
    CPrompting(const CPrompting&) = delete;
    CPrompting& operator=(const CPrompting&) = delete;
};

}  // namespace zd::host
