// Writes a trace as text or as JSON, to a file or to standard error.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "trace/Records.h"

namespace zd::host {

struct TraceOptions {
    bool enabled = false;
    bool json = false;
    std::string file;  // empty: standard error

    bool Wanted() const { return enabled || json || !file.empty(); }
};

// Each operation is on its way to the system when Write returns. One thread at a time.
class CTraceOutput {
public:
    // Throws CFailure where the file cannot be made.
    explicit CTraceOutput(const TraceOptions& options);
    // Ends the output; what fails then is not reported.
    ~CTraceOutput();
    CTraceOutput(const CTraceOutput&) = delete;
    CTraceOutput& operator=(const CTraceOutput&) = delete;

    // Never throws: what cannot be written is lost, which Finish tells.
    void Write(const TracedOperation& operation) noexcept;
    void NoteLoss() noexcept { m_lost = true; }

    // Completes the JSON and closes the file. Throws CFailure where something of the trace was lost.
    void Finish();

private:
    void Put(std::string_view text);

    bool m_json;
    FILE* m_stream;
    bool m_ownsStream;
    bool m_first = true;
    bool m_lost = false;
};

}  // namespace zd::host
