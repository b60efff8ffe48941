// Gathers what happens under each operation, thread by thread.
#pragma once

#include <windows.h>

#include <mutex>

#include "trace/TraceOutput.h"

namespace zd::host {

// What cannot be kept is lost, which the output tells in the end. All but Begin may change the thread's errors. Any
// thread.
class CRecorder {
public:
    explicit CRecorder(const TraceOptions& options) : m_output(options) {}

    // Between Begin and End, what the calling thread adds belongs to `operation`. Operations may be nested.
    // Answers the operation that was going on before.
    static TracedOperation* Begin(TracedOperation* operation) noexcept;
    void End(TracedOperation& operation, TracedOperation* before) noexcept;

    void Add(TracedCall&& call) noexcept;
    void Add(TracedLine&& line) noexcept;
    void NoteLoss() noexcept;

    // Writes what is left. Throws CFailure where something was lost.
    void Finish();

private:
    template <class Event>
    void AddEvent(Event&& event) noexcept;
    void WriteOutside();

    std::mutex m_lock;
    CTraceOutput m_output;
    TracedOperation m_outside;  // of one thread
};

}  // namespace zd::host
