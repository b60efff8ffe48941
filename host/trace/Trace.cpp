#include "trace/Trace.h"

#include "trace/LogLines.h"
#include "trace/StorageCalls.h"

namespace zd::host {

void CTrace::Attach(HMODULE plugin, CLogger& logger) {
    RecordStorageCallsIn(&m_recorder);
    RecordLogLinesIn(&m_recorder, &logger);
    m_imports.Replace(plugin, [](std::string_view library, std::string_view function) {
        const CImportTable::Replacement replacement = StandInFor(library, function);
        return replacement.function != nullptr ? replacement : WakeStandInFor(function);
    });
}

IProtocolManager* CTrace::MakeManager(GetProtocolFunction getProtocol, void** hostContext, CLogger* logger) {
    IProtocolManager* const made =
        RunTraced(m_recorder, "GetProtocol", "", EResult::Number, [&] { return getProtocol(hostContext, logger); });
    if (made == nullptr) return nullptr;
    m_manager = std::make_unique<CTracingManager>(m_recorder, *made);
    return m_manager.get();
}

void CTrace::Detach() noexcept {
    m_imports.Restore();
    RecordStorageCallsIn(nullptr);
    RecordLogLinesIn(nullptr, nullptr);
}

}  // namespace zd::host
