#include "trace/Recorder.h"

#include <utility>

namespace zd::host {

namespace {

thread_local TracedOperation* t_operation = nullptr;

}  // namespace

TracedOperation* CRecorder::Begin(TracedOperation* operation) noexcept {
    const CKeptErrors kept;
    return std::exchange(t_operation, operation);
}

void CRecorder::End(TracedOperation& operation, TracedOperation* before) noexcept {
    t_operation = before;
    AttributeCode(operation);
    const std::lock_guard held(m_lock);
    WriteOutside();
    m_output.Write(operation);
}

template <class Event>
void CRecorder::AddEvent(Event&& event) noexcept {
    try {
        if (t_operation != nullptr) {
            t_operation->events.emplace_back(std::forward<Event>(event));
            return;
        }
        const DWORD threadId = ::GetCurrentThreadId();
        const std::lock_guard held(m_lock);
        if (m_outside.threadId != threadId) WriteOutside();
        m_outside.threadId = threadId;
        m_outside.events.emplace_back(std::forward<Event>(event));
    } catch (...) {
        NoteLoss();
    }
}

void CRecorder::Add(TracedCall&& call) noexcept {
    AddEvent(std::move(call));
}

void CRecorder::Add(TracedLine&& line) noexcept {
    AddEvent(std::move(line));
}

void CRecorder::NoteLoss() noexcept {
    const std::lock_guard held(m_lock);
    m_output.NoteLoss();
}

void CRecorder::Finish() {
    const std::lock_guard held(m_lock);
    WriteOutside();
    m_output.Finish();
}

void CRecorder::WriteOutside() {
    if (m_outside.events.empty()) return;
    m_output.Write(m_outside);
    m_outside.events.clear();
}

}  // namespace zd::host
