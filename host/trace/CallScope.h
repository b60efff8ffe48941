// One storage call while it runs.
#pragma once

#include <utility>

#include "trace/Recorder.h"

namespace zd::host {

// Which results of a function are failures that set `errno`.
enum class EFailure {
    Negative,
    NotZero,
    Null,
    NullWithErrno,  // null is also an ordinary answer, which leaves `errno` alone
    None
};

// Records a call when it dies, also when an exception passes it. In between, the called function finds the thread's
// errors as the caller left them, and the caller finds what the function left.
class CCallScope {
public:
    CCallScope(CRecorder* recorder, const char* function) noexcept : m_recorder(recorder) {
        m_call.function = function;
        m_call.threw = true;
    }

    ~CCallScope() {
        const CKeptErrors kept;
        if (m_recorder == nullptr) return;
        m_call.microseconds = m_microseconds >= 0 ? m_microseconds : m_watch.Microseconds();
        m_recorder->Add(std::move(m_call));
    }
    CCallScope(const CCallScope&) = delete;
    CCallScope& operator=(const CCallScope&) = delete;

    // `describe` adds to the fields that it is given. Before the call.
    template <class Describe>
    void Begin(Describe&& describe) noexcept {
        const CKeptErrors kept;
        Guarded([&] { describe(m_call.arguments); });
        m_errnoBefore = kept.Errno();
        m_watch = CStopwatch();
    }

    // The function has answered nothing / `result`; `describe` adds what it has filled, unless it has failed.
    void End() noexcept {
        const CKeptErrors kept;
        Stop();
    }
    template <class Result, class Describe>
    void End(EFailure failure, const Result& result, Describe&& describe) noexcept {
        const CKeptErrors kept;
        Stop();
        m_call.failed = HasFailed(failure, result, kept.Errno());
        if (m_call.failed) {
            m_call.error = kept.Errno();
            m_call.lastError = kept.LastError();
        }
        Guarded([&] {
            m_call.result = ResultField(result);
            if (!m_call.failed) describe(m_call.out);
        });
    }

private:
    void Stop() noexcept {
        m_microseconds = m_watch.Microseconds();
        m_call.threw = false;
    }

    template <class Work>
    void Guarded(Work&& work) noexcept {
        if (m_recorder == nullptr) return;
        try {
            work();
        } catch (...) {
            m_recorder->NoteLoss();
        }
    }

    template <class Result>
    bool HasFailed(EFailure failure, const Result& result, int error) const noexcept {
        if constexpr (std::is_pointer_v<Result>) {
            if (result != nullptr) return false;
            return failure == EFailure::Null ||
                   (failure == EFailure::NullWithErrno && error != 0 && error != m_errnoBefore);
        } else {
            return (failure == EFailure::Negative && result < 0) || (failure == EFailure::NotZero && result != 0);
        }
    }

    CRecorder* m_recorder;
    TracedCall m_call;
    CStopwatch m_watch;
    std::int64_t m_microseconds = -1;
    int m_errnoBefore = 0;
};

}  // namespace zd::host
