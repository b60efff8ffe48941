#include "trace/OperationScope.h"

namespace zd::host {

COperationScope::COperationScope(CRecorder& recorder, const char* name) noexcept
    : m_recorder(recorder), m_before(CRecorder::Begin(&m_operation)) {
    const CKeptErrors kept;
    Guarded([&] { m_operation.name = name; });
    m_operation.threadId = ::GetCurrentThreadId();
    m_operation.threw = true;
}

COperationScope::~COperationScope() {
    const CKeptErrors kept;
    if (!m_stopped) m_operation.microseconds = m_watch.Microseconds();
    m_recorder.End(m_operation, m_before);
}

void COperationScope::End() noexcept {
    const CKeptErrors kept;
    Stop();
}

void COperationScope::Threw(unsigned long code) noexcept {
    const CKeptErrors kept;
    m_operation.code = code;
    Guarded([&] { m_operation.result = ResultField(code); });
}

void COperationScope::Stop() noexcept {
    m_operation.microseconds = m_watch.Microseconds();
    m_operation.threw = false;
    m_stopped = true;
}

}  // namespace zd::host
