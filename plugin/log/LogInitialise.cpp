#include "log/LogInitialise.h"

#include <psapi.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <string_view>

#include "base/Errors.h"
#include "base/Locks.h"
#include "base/RegistryKey.h"
#include "base/UniqueHandle.h"
#include "log/LogFile.h"
#include "log/LogState.h"
#include "log/LogWriter.h"

namespace zd {
namespace {

std::string ImageBaseName(DWORD processId) {
    constexpr DWORD kAccess = PROCESS_QUERY_INFORMATION | PROCESS_VM_READ;
    constexpr DWORD kSize = 260;
    const CUniqueSystemHandle process(::OpenProcess(kAccess, FALSE, processId));
    char image[kSize];
    const DWORD length = process ? ::GetProcessImageFileNameA(process.Get(), image, kSize) : 0;
    if (length == 0) return "UNKNOWN";
    const std::string_view name(image, std::min(length, kSize));
    return std::string(name.substr(name.rfind('\\') + 1));  // nothing found: npos + 1 is 0, the whole name
}

// The entry of a process, made on first sight. Entries are never dropped, so records may point to them.
const ProcessEntry& FindProcess(CLogger& logger, DWORD processId, const CAutoCriticalSection& /*held*/) {
    const auto known = logger.processNames.find(processId);
    if (known != logger.processNames.end()) return *known;
    return *logger.processNames.emplace(processId, ImageBaseName(processId)).first;
}

// Each part is made once, so that a first use that failed half-way can be taken up again. False without a writer.
bool StartOutputs(CLogger& logger) {
    if (!logger.lockInitialised) {
        ::InitializeCriticalSection(&logger.lock);
        logger.lockInitialised = true;
    }
    const CAutoCriticalSection lock(logger.lock);
    if (logger.currentProcess == nullptr) {
        logger.currentProcess = &FindProcess(logger, ::GetCurrentProcessId(), lock);
    }
    if (!StartWriter(logger, lock)) return false;
    if (logger.eventSource == nullptr) {
        const HANDLE source = ::RegisterEventSourceW(nullptr, L"ZDVFS");
        logger.eventSource = source != nullptr ? source : INVALID_HANDLE_VALUE;
    }
    return true;
}

// The key that the suppression settings are read from; without it they stay as the host chose them.
void OpenSettingsKey(CLogger& logger) noexcept {
    const std::atomic_ref<HKEY> settingsKey(logger.settingsKey);
    if (settingsKey.load(std::memory_order_relaxed) != nullptr) return;
    CRegistryKey key;
    if (key.Create(VendorTree(logger.formerMakerKeys).settings) != ERROR_SUCCESS) return;
    settingsKey.store(key.Release(), std::memory_order_release);
}

void ResetCounters(CLogger& logger) noexcept {
    std::atomic_ref<std::uint32_t>(logger.bytesWritten).store(0, std::memory_order_relaxed);
    EffectiveLevel(logger);
}

bool Initialise(CLogger& logger) {
    ResetCounters(logger);
    if (!StartOutputs(logger)) return false;
    OpenSettingsKey(logger);
    logger.suppressor.sink = &EnqueueCopy;
    logger.suppressor.sinkContext = &logger;
    logger.suppressor.process = logger.currentProcess;
    if (!OpenLogFile(logger)) ThrowWin32(ERROR_INVALID_DATA);
    return true;
}

}  // namespace

bool EnsureInitialised(CLogger& logger) {
    const std::atomic_ref<bool> initialised(logger.initialised);
    if (initialised.load(std::memory_order_acquire)) return true;
    const CAutoCriticalSection lock(LogState().m_firstUseLock);
    if (initialised.load(std::memory_order_relaxed)) return true;
    if (!Initialise(logger)) return false;
    initialised.store(true, std::memory_order_release);
    return true;
}

// The parts of Initialise that belong to the file. The suppressor keeps its target, which other threads are reading.
bool BeginLogFile(CLogger& logger) noexcept {
    ResetCounters(logger);
    OpenSettingsKey(logger);
    return OpenLogFile(logger);
}

std::int32_t EffectiveLevel(CLogger& logger) noexcept {
    const std::atomic_ref<std::int32_t> stored(logger.level);
    std::int32_t level = stored.load(std::memory_order_relaxed);
    while (level < 1) {
        // Exchanged, not stored: a level that another thread has set meanwhile must not be lost.
        if (stored.compare_exchange_weak(level, 1, std::memory_order_relaxed)) return 1;
    }
    return level;
}

}  // namespace zd
