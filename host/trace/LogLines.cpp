#include "trace/LogLines.h"

#include <mutex>

namespace zd::host {

namespace {

CRecorder* g_recorder = nullptr;
CLogger* g_logger = nullptr;
void* g_originalSetEvent = nullptr;

class CQueueLock {
public:
    explicit CQueueLock(CRITICAL_SECTION& section) : m_section(section) { ::EnterCriticalSection(&m_section); }
    ~CQueueLock() { ::LeaveCriticalSection(&m_section); }
    CQueueLock(const CQueueLock&) = delete;
    CQueueLock& operator=(const CQueueLock&) = delete;

private:
    CRITICAL_SECTION& m_section;
};

void RecordNewest() noexcept {
    try {
        const CQueueLock held(g_logger->lock);
        // Woken for something else, or by somebody else's line.
        if (g_logger->queue.empty() || g_logger->queue.back().level == kLogStop) return;
        const LogRecord& record = g_logger->queue.back();
        std::string text = record.text;
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        g_recorder->Add(TracedLine{record.level, std::move(text)});
    } catch (...) {
        g_recorder->NoteLoss();
    }
}

BOOL WINAPI SetEventStandIn(HANDLE event) {
    if (g_recorder != nullptr && event != nullptr && event == g_logger->wakeEvent && g_logger->lockInitialised) {
        const CKeptErrors kept;
        RecordNewest();
    }
    return reinterpret_cast<decltype(&SetEventStandIn)>(g_originalSetEvent)(event);
}

}  // namespace

void RecordLogLinesIn(CRecorder* recorder, CLogger* logger) noexcept {
    g_recorder = recorder;
    g_logger = logger;
}

CImportTable::Replacement WakeStandInFor(std::string_view function) {
    if (function != "SetEvent") return {};
    return CImportTable::Replacement{reinterpret_cast<void*>(&SetEventStandIn), &g_originalSetEvent};
}

}  // namespace zd::host
