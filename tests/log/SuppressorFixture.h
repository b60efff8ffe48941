// The plug-in with suppression on, a clock that the test sets, and the queue as it was filled.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ClosurePatches.h"
#include "harness/FileTime.h"
#include "harness/PluginFixture.h"

namespace zd::test {

inline std::string Summary(int messages, int times) {
    return "The previous " + std::to_string(messages) + " messages have repeated " + std::to_string(times) + " times\n";
}

class CSuppressorTest : public CDoubleTest {
protected:
    using Texts = std::vector<std::string>;

    void SetUp() override {
        CDoubleTest::SetUp();
        m_patches = std::make_unique<CClosurePatches>(Plugin());
        m_patches->Replace<void __stdcall(FILETIME*)>(
            "GetSystemTimeAsFileTime",
            [this](auto /*original*/, FILETIME* result) { *result = FileTimeOfSeconds(m_now); });
        SetSetting(L"DebugLevel", kLogWarning);
    }

    void TearDown() override {
        m_patches.reset();
        CDoubleTest::TearDown();
    }

    void SetSetting(const wchar_t* name, DWORD value) { Registry().SetDword(kPluginKey, name, value); }

    LogSuppressor& Suppressor() { return Logger().suppressor; }

    // Brings the plug-in up at the level of the settings, with suppression on, and the log with its first line. What
    // the host chose is what stands in the logger before.
    void Start() {
        m_manager = NewManager();
        Suppressor().enabled = false;
        Say("first\n");
        ClearLogs();
        Suppressor().enabled = true;
    }

    void Say(const char* text, std::int32_t level = kLogError) {
        m_manager->ZdLogMessage(static_cast<DWORD>(level), text);
    }
    // Each character is a line.
    void SayEach(const std::string& lines) {
        for (const char line : lines) Say((std::string(1, line) + "\n").c_str());
    }

    // The texts queued since the last look; those of one character without their line ends, for comparison with Lines.
    Texts Queued() {
        Texts texts;
        for (const LogLine& line : TakeLog()) texts.push_back(line.text);
        return texts;
    }
    static Texts Lines(const std::string& lines) {
        Texts texts;
        for (const char line : lines) texts.push_back(std::string(1, line) + "\n");
        return texts;
    }

    // Remembered lines with their counts: "A1 B1".
    std::string Remembered() {
        std::string text;
        for (const RecentMessage& message : Suppressor().recent) {
            if (!text.empty()) text += ' ';
            text += message.record->text.substr(0, message.record->text.find('\n')) + std::to_string(message.count);
        }
        return text;
    }

    // The plug-in reads its settings and sets the level anew.
    void Reload() { m_manager->ZdRefreshSettings(0, false); }
    void ReloadAfter(time_t seconds) {
        m_now += seconds;
        Reload();
    }

    time_t m_now = 1700000000;

private:
    std::unique_ptr<CClosurePatches> m_patches;
};

}  // namespace zd::test
