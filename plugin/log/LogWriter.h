// The queue of lines and the one thread that takes them off it.
//
// The thread writes to the event log, the debugger output and the file, so that no operation waits for a disk. It lives
// until the stop record, a failed wait, or a failure of the output that leaves a Windows error.
#pragma once

#include "base/Locks.h"
#include "Logger.h"

namespace zd {

// Makes the wake event and starts the writer thread, once each. The module stays in the process from then on, since the
// thread runs its code. False where the system refuses; what was made is kept for the next try.
// `held`: the logger's queue lock.
bool StartWriter(CLogger& logger, const CAutoCriticalSection& held) noexcept;

// Puts a record at the end of the queue and wakes the writer. A record that nobody would take any more is dropped.
// Any thread. Throws std::bad_alloc; nothing is queued then.
void Enqueue(CLogger& logger, LogRecord&& record);

// The same for a copy of `record`; `context` is the CLogger. It has the shape of the suppressor's sink.
void EnqueueCopy(void* context, const LogRecord& record);

// Whether every queued line is written and the file flushed, or nobody will do so any more. Any thread.
bool IsDrained(CLogger& logger) noexcept;

}  // namespace zd
