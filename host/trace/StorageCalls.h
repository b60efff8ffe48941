// The functions of zdvfs.dll and hul.dll, each with one of this program that calls it and records the call.
#pragma once

#include <string_view>

#include "trace/ImportTable.h"
#include "trace/Recorder.h"

namespace zd::host {

// Where the stand-ins record from now on, null for nowhere. To be set while none of them runs.
void RecordStorageCallsIn(CRecorder* recorder) noexcept;

// The stand-in for a function of the two libraries; none for any other name.
CImportTable::Replacement StandInFor(std::string_view library, std::string_view function);

}  // namespace zd::host
