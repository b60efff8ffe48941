// Folds repeated lines: a cycle of lines that comes again in the same order is counted instead of written, and told in
// one line when it ends.
//
// Everything here runs under the logger's queue lock, shown as `held`, so that the order of the lines in the queue is
// the order in which they were decided.
#pragma once

#include "base/Locks.h"
#include "Logger.h"

namespace zd {

// Whether lines go through AddLine. Any thread.
bool IsSuppressing(CLogger& logger) noexcept;

// Takes a line: passes it on to the sink, or counts it.
void AddLine(CLogger& logger, LogRecord&& record, const CAutoCriticalSection& held);

// Reads the suppression's settings anew, at most once in their interval, and switches it off while the level is above
// 2. Then tells and forgets the remembered lines when the last summary is longer ago than the time limit.
void RefreshSuppression(CLogger& logger);

}  // namespace zd
