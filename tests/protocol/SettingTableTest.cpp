// The table of settings, and what the plug-in's own code makes of it, linked in.
#include "ZdvfsSettings.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>

#include "config/SettingsMap.h"
#include "files/FilePolicy.h"
#include "harness/RegistrySandbox.h"
#include "Logger.h"

namespace {

namespace settings = zdvfs::settings;

class CSettingMap : public ::testing::Test {
protected:
    void SetUp() override { zd::g_configState.Create(); }
    void TearDown() override { zd::g_configState.Destroy(); }

    // What each setting of the map comes to, by its name.
    static std::map<std::string, DWORD> InForce() {
        zd::LoadSettings();
        std::map<std::string, DWORD> values;
        for (const settings::Description& description : settings::kDescriptions) {
            const settings::Setting& setting = description.setting;
            if (setting.isInMap) values[setting.name.narrow] = zd::SettingInForce(setting);
        }
        return values;
    }

    void StoreInAll(DWORD value) {
        for (const settings::Description& description : settings::kDescriptions) {
            const settings::Setting& setting = description.setting;
            if (setting.isInMap) m_registry.SetDword(zd::test::kPluginKey, setting.name.wide, value);
        }
    }

    zd::test::CRegistrySandbox m_registry;
};

const std::map<std::string, DWORD> kDefaults = {
    {"MaxOpenFragments", 100}, {"TaskCloseWait", 900},      {"TaskTimeAdd", 600}, {"SyncFileCount", 1000},
    {"DebugLevel", 1},         {"HighestValidNameChar", 0}, {"EDB DIRECT IO", 1}};

TEST_F(CSettingMap, WithoutAKeyEachSettingHasItsDefault) {
    EXPECT_EQ(kDefaults, InForce());
}

TEST_F(CSettingMap, HoldsItsSevenValuesAndNoOthers) {
    m_registry.CreateKey(zd::test::kPluginKey);
    zd::OpenSettingsKey(false);
    EXPECT_EQ(kDefaults, InForce());
    StoreInAll(7);
    m_registry.SetDword(zd::test::kPluginKey, settings::kMaxFileSizeMB.name.wide, 7);
    std::map<std::string, DWORD> sevens = kDefaults;
    for (auto& [name, value] : sevens) value = 7;
    EXPECT_EQ(sevens, InForce());
    EXPECT_FALSE(zd::FindSetting(settings::kMaxFileSizeMB).has_value());
}

TEST_F(CSettingMap, AStoredZeroIsTheDefaultOfSomeAndCountsInOthers) {
    m_registry.CreateKey(zd::test::kPluginKey);
    zd::OpenSettingsKey(false);
    StoreInAll(0);
    const std::map<std::string, DWORD> zeros = {
        {"MaxOpenFragments", 100}, {"TaskCloseWait", 900},      {"TaskTimeAdd", 0},  {"SyncFileCount", 0},
        {"DebugLevel", 1},         {"HighestValidNameChar", 0}, {"EDB DIRECT IO", 0}};
    EXPECT_EQ(zeros, InForce());
    // The level of the storage's lines takes what is stored.
    EXPECT_EQ(0U, zd::FindSetting(settings::kDebugLevel));
}

TEST(SettingTable, WhatIsReadElsewhereStartsAtItsDefault) {
    const zd::CFilePolicy policy;
    EXPECT_TRUE(policy.isLocalCacheOn);
    EXPECT_EQ(53'687'091'200, policy.fragmentSize);
    const zd::CAgentConfiguration agent;
    EXPECT_EQ(0, agent.compression);
    EXPECT_EQ(0, agent.encryption);
    EXPECT_EQ(1, agent.restoreDecryptLocal);
    EXPECT_EQ(-1, settings::kAgentId.Standard<int>());
}

TEST(SettingTable, ALoggerStartsWithTheDefaultsOfItsSettings) {
    const CLogger logger;
    const LogSuppressor& suppressor = logger.suppressor;
    EXPECT_EQ(settings::kDebugLevel.standard, logger.level);
    EXPECT_EQ(settings::kLogSuppressorUpdateInterval.standard, logger.settingsUpdateInterval);
    EXPECT_EQ(settings::kLogSuppressRepeatedMessages.standard != 0, suppressor.enabled);
    EXPECT_EQ(settings::kLogNumMsgs.Standard<std::uint64_t>(), suppressor.maxMessages);
    EXPECT_EQ(settings::kLogOccurLimit.standard, suppressor.occurrenceLimit);
    EXPECT_EQ(settings::kLogTimeLimit.Standard<double>(), suppressor.timeLimit);
    EXPECT_EQ(settings::kLogNumCharsForMatch.standard, suppressor.charsForMatch);
}

TEST(SettingTable, EachSettingIsThereOnceAndItsWordsHoldItsBounds) {
    std::set<std::pair<settings::Key, std::string>> known;
    for (const settings::Description& description : settings::kDescriptions) {
        const settings::Setting& setting = description.setting;
        SCOPED_TRACE(setting.name.narrow);
        EXPECT_TRUE(known.emplace(setting.key, setting.name.narrow).second);
        EXPECT_EQ(
            std::string(setting.name.narrow),
            std::string(setting.name.wide, setting.name.wide + std::char_traits<wchar_t>::length(setting.name.wide)));
        EXPECT_EQ(setting.IsNumber(), setting.standard != settings::kNoNumber);
        if (setting.longest != 0) {
            const std::string words = std::string(description.type) + description.unit;
            EXPECT_NE(std::string::npos, words.find("at most " + std::to_string(setting.longest))) << words;
        }
    }
    EXPECT_LT(30U, known.size());
}

}  // namespace
