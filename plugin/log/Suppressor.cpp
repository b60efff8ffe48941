#include "log/Suppressor.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

#include "base/Format.h"
#include "base/RegistryKey.h"
#include "base/Times.h"
#include "log/LogInitialise.h"
#include "log/LogState.h"
#include "ZdvfsSettings.h"

namespace zd {
namespace settings = zdvfs::settings;

namespace {

// The values that a host gets with its logger are the defaults of the settings that replace them.
static_assert(settings::kLogSuppressRepeatedMessages.standard == LogSuppressor::kDefaultEnabled);
static_assert(settings::kLogNumMsgs.standard == LogSuppressor::kDefaultMaxMessages);
static_assert(settings::kLogOccurLimit.standard == LogSuppressor::kDefaultOccurrenceLimit);
static_assert(settings::kLogTimeLimit.standard == LogSuppressor::kDefaultTimeLimit);
static_assert(settings::kLogNumCharsForMatch.standard == LogSuppressor::kDefaultCharsForMatch);
static_assert(settings::kLogSuppressorUpdateInterval.standard == CLogger::kDefaultUpdateInterval);
static_assert(settings::kDebugLevel.standard == CLogger::kDefaultLevel);

constexpr std::int32_t kHighestSuppressed = 2;

std::string_view MatchedPart(const LogSuppressor& suppressor, const std::string& text) noexcept {
    return std::string_view(text).substr(0, static_cast<std::size_t>(std::max(suppressor.charsForMatch, 0)));
}

void ForgetLines(LogSuppressor& suppressor) noexcept {
    for (const RecentMessage& message : suppressor.recent) delete message.record;
    suppressor.recent.clear();
}

void ForgetOldest(LogSuppressor& suppressor) noexcept {
    delete suppressor.recent.front().record;
    suppressor.recent.pop_front();
}

void WriteSummary(LogSuppressor& suppressor) {
    if (suppressor.recent.empty() || suppressor.recent.front().count <= 1) return;
    char text[128];
    FormatBuffer(text, sizeof text, "The previous %d messages have repeated %d times\n",
                 static_cast<int>(suppressor.recent.size()), suppressor.recent.front().count);
    const LogRecord record{static_cast<std::uint32_t>(kLogNotice), text, SecondsNow(), ::GetCurrentThreadId(),
                           suppressor.process};
    if (suppressor.sink != nullptr) suppressor.sink(suppressor.sinkContext, record);
    suppressor.lastSummary = SecondsNow();
}

// Whatever the summary comes to, the list does not outlive it.
void TellAndForget(LogSuppressor& suppressor) {
    try {
        WriteSummary(suppressor);
    } catch (...) {
        ForgetLines(suppressor);
        throw;
    }
    ForgetLines(suppressor);
}

// The remembered line that the text repeats. `inOrder` tells whether it goes on with the cycle, `count` how often it
// has come now; without one, the count of the newest line.
bool FindRepeated(LogSuppressor& suppressor, const LogRecord& record, time_t now, std::int32_t& count) {
    const std::string_view text = MatchedPart(suppressor, record.text);
    std::int32_t before = 0;
    for (auto message = suppressor.recent.begin(); message != suppressor.recent.end(); ++message) {
        if (MatchedPart(suppressor, message->record->text) == text) {
            message->record->level = record.level;
            message->lastSeen = now;
            if (message->count < std::numeric_limits<std::int32_t>::max()) ++message->count;
            count = message->count;
            return message == suppressor.recent.begin() || before >= count;
        }
        before = message->count;
    }
    count = before;
    return false;
}

void Remember(LogSuppressor& suppressor, LogRecord&& record, time_t now) {
    const std::uint64_t most = std::max<std::uint64_t>(suppressor.maxMessages, 1);
    if (suppressor.recent.size() >= most) ForgetOldest(suppressor);
    // A line that cannot be remembered is written all the same.
    if (suppressor.sink != nullptr) suppressor.sink(suppressor.sinkContext, record);
    auto owned = std::make_unique<LogRecord>(std::move(record));
    suppressor.recent.push_back(RecentMessage{owned.get(), now, now, 1});
    static_cast<void>(owned.release());
}

std::optional<DWORD> ReadSetting(CLogger& logger, const settings::Setting& setting) noexcept {
    const HKEY key = std::atomic_ref<HKEY>(logger.settingsKey).load(std::memory_order_acquire);
    if (key == nullptr) return std::nullopt;
    return ReadDword(key, setting.name.wide);
}

template <class Number>
void ReplaceByNonZero(CLogger& logger, const settings::Setting& setting, Number& number) noexcept {
    if (const DWORD value = ReadSetting(logger, setting).value_or(0); value != 0) number = static_cast<Number>(value);
}

void ReadSettings(CLogger& logger, time_t now) noexcept {
    LogSuppressor& suppressor = logger.suppressor;
    constexpr const settings::Setting& kInterval = settings::kLogSuppressorUpdateInterval;
    logger.settingsUpdateInterval = kInterval.InForce(ReadSetting(logger, kInterval));
    ReplaceByNonZero(logger, settings::kLogNumMsgs, suppressor.maxMessages);
    ReplaceByNonZero(logger, settings::kLogOccurLimit, suppressor.occurrenceLimit);
    ReplaceByNonZero(logger, settings::kLogTimeLimit, suppressor.timeLimit);
    ReplaceByNonZero(logger, settings::kLogNumCharsForMatch, suppressor.charsForMatch);
    if (const auto enabled = ReadSetting(logger, settings::kLogSuppressRepeatedMessages)) {
        std::atomic_ref<bool>(suppressor.enabled).store(*enabled != 0, std::memory_order_relaxed);
    }
    logger.settingsLastRead = now;
}

void Refresh(CLogger& logger) {
    const time_t now = SecondsNow();
    const DWORD interval = settings::kLogSuppressorUpdateInterval.InForce(logger.settingsUpdateInterval);
    if (now - logger.settingsLastRead > static_cast<time_t>(interval)) ReadSettings(logger, now);
    LogSuppressor& suppressor = logger.suppressor;
    if (EffectiveLevel(logger) > kHighestSuppressed) {
        std::atomic_ref<bool>(suppressor.enabled).store(false, std::memory_order_relaxed);
    }
    const auto sinceSummary = static_cast<double>(SecondsNow() - suppressor.lastSummary);
    if (sinceSummary > suppressor.timeLimit) TellAndForget(suppressor);
}

}  // namespace

bool IsSuppressing(CLogger& logger) noexcept {
    return std::atomic_ref<bool>(logger.suppressor.enabled).load(std::memory_order_relaxed);
}

void AddLine(CLogger& logger, LogRecord&& record, const CAutoCriticalSection&) {
    LogSuppressor& suppressor = logger.suppressor;
    const time_t now = SecondsNow();
    std::int32_t count = 0;
    const bool wasEmpty = suppressor.recent.empty();
    if (!FindRepeated(suppressor, record, now, count)) {
        if (!wasEmpty && count != 1) TellAndForget(suppressor);
        Remember(suppressor, std::move(record), now);
        count = 1;
    }
    if (count > suppressor.occurrenceLimit) TellAndForget(suppressor);
}

void RefreshSuppression(CLogger& logger) {
    const std::atomic_ref<bool> initialised(logger.initialised);
    if (!initialised.load(std::memory_order_acquire)) {
        // Before its first line the log has no lock of its own; whoever brings it up waits here.
        const CAutoCriticalSection firstUse(LogState().m_firstUseLock);
        if (!initialised.load(std::memory_order_relaxed)) return Refresh(logger);
    }
    const CAutoCriticalSection held(logger.lock);
    Refresh(logger);
}

}  // namespace zd
