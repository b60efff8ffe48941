// The storage task's time: renewed while the host reports activity, given back once it has been quiet.
#pragma once

#include <windows.h>

namespace zd {

// Takes note of the host's activity now. `value`: seconds that the host wants on top.
void RecordActivity(DWORD value) noexcept;

// Renews the storage task's time or stops the task, as the time of the last activity asks for.
void DoAddTaskTimeUpdate();

}  // namespace zd
