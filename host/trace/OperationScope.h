// One operation while it runs.
#pragma once

#include <type_traits>

#include "trace/Recorder.h"

namespace zd::host {

// What an operation's number is.
enum class EResult { Code, Number };

// Records an operation when it dies, also when an exception passes it. The operation finds the thread's errors as the
// host left them, and the host finds what the operation left.
class COperationScope {
public:
    COperationScope(CRecorder& recorder, const char* name) noexcept;
    ~COperationScope();
    COperationScope(const COperationScope&) = delete;
    COperationScope& operator=(const COperationScope&) = delete;

    // `describe` adds to the fields that it is given. Before the operation.
    template <class Describe>
    void Begin(Describe&& describe) noexcept {
        const CKeptErrors kept;
        Guarded([&] { describe(m_operation.arguments); });
        m_watch = CStopwatch();
    }

    // The operation has answered nothing / `result`; `describe` adds what it has filled, unless it has failed.
    void End() noexcept;
    template <class Result, class Describe>
    void End(EResult kind, const Result& result, Describe&& describe) noexcept {
        const CKeptErrors kept;
        Stop();
        if constexpr (std::is_same_v<Result, DWORD>) {
            if (kind == EResult::Code) m_operation.code = result;
        }
        Guarded([&] {
            m_operation.result = ResultField(result);
            if (m_operation.code == ERROR_SUCCESS) describe(m_operation.out);
        });
    }

    // The operation has thrown a code.
    void Threw(unsigned long code) noexcept;

private:
    void Stop() noexcept;

    template <class Work>
    void Guarded(Work&& work) noexcept {
        try {
            work();
        } catch (...) {
            m_recorder.NoteLoss();
        }
    }

    CRecorder& m_recorder;
    TracedOperation m_operation;
    TracedOperation* m_before;
    CStopwatch m_watch;
    bool m_stopped = false;
};

// Runs `operation(arguments...)` and records it; `names` tells the arguments as Fields.h says.
template <class Operation, class... Arguments>
auto RunTraced(CRecorder& recorder, const char* name, const char* names, EResult kind, Operation&& operation,
               Arguments... arguments) {
    COperationScope scope(recorder, name);
    scope.Begin([&](TraceFields& in) { ReadFields(in, names, EDirection::In, arguments...); });
    try {
        if constexpr (std::is_void_v<decltype(operation(arguments...))>) {
            operation(arguments...);
            scope.End();
        } else {
            auto result = operation(arguments...);
            scope.End(kind, result, [&](TraceFields& out) { ReadFields(out, names, EDirection::Out, arguments...); });
            return result;
        }
    } catch (unsigned long code) {
        scope.Threw(code);
        throw;
    }
}

}  // namespace zd::host
