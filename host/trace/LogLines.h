// The lines that the plug-in writes into the shared log, seen as they are queued.
#pragma once

#include "Logger.h"
#include "trace/ImportTable.h"
#include "trace/Recorder.h"

namespace zd::host {

// Whoever queues a line holds the logger's lock and wakes the writer thread before leaving it. At that moment the line
// stands at the end of the queue, in the thread that wrote it; it is copied and goes its way. Both null for none. To
// be set while no operation runs.
void RecordLogLinesIn(CRecorder* recorder, CLogger* logger) noexcept;

// The stand-in for the function that wakes the writer thread; none for any other name.
CImportTable::Replacement WakeStandInFor(std::string_view function);

}  // namespace zd::host
