// A layer between this host, the plug-in and the storage's libraries that writes down what each operation does.
#pragma once

#include <windows.h>

#include <memory>

#include "trace/ImportTable.h"
#include "trace/TracingManager.h"

namespace zd::host {

// One at a time in the process. One thread makes and ends it, while no operation runs; operations may run on any.
class CTrace {
public:
    // Opens the output; throws CFailure.
    explicit CTrace(const TraceOptions& options) : m_recorder(options) {}
    ~CTrace() { Detach(); }
    CTrace(const CTrace&) = delete;
    CTrace& operator=(const CTrace&) = delete;

    // Puts the layer between the loaded plug-in and its libraries. `logger` is the one that the plug-in will be given;
    // both stay until Detach. Throws CFatalFailure; nothing has changed then.
    void Attach(HMODULE plugin, CLogger& logger);

    // Calls the plug-in's export and answers its object behind the layer, null where it has none. What is answered
    // lives as long as this object.
    IProtocolManager* MakeManager(GetProtocolFunction getProtocol, void** hostContext, CLogger* logger);

    // Leaves the plug-in as it was. Once no operation runs, and before its module is freed.
    void Detach() noexcept;

    // Completes the output. Throws CFailure where something of the trace was lost.
    void Finish() { m_recorder.Finish(); }

private:
    CRecorder m_recorder;
    CImportTable m_imports;
    std::unique_ptr<CTracingManager> m_manager;
};

}  // namespace zd::host
