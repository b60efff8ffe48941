// The storage agent: its directory, its type and the configuration files it names.
#include "log/ClosurePatches.h"
#include "ProtocolFixture.h"

using namespace zd::test;

namespace {

// ---- The agent's directory, which shows in the path of zd.conf ----

class CAgentPathTest : public CProtocolTest {
protected:
    // Each process finds the directory once, so each test looks at one value.
    void ExpectConfigurationIn(const std::wstring& directory) {
        ASSERT_EQ(0U, Connect());
        EXPECT_TRUE(Fits("\"" + Narrow(directory) + "zd.conf\", \"__dummy__section__\", *",
                         LastCall("InifileGetValueA").arguments))
            << LastCall("InifileGetValueA").arguments;
    }

    void SetPath(DWORD type, const std::wstring& text, bool terminated = true) {
        std::vector<std::uint8_t> data((text.size() + (terminated ? 1 : 0)) * sizeof(wchar_t));
        std::memcpy(data.data(), text.c_str(), data.size());
        Registry().SetRaw(kAgentKey, L"path", type, data);
    }
};

TEST_F(CAgentPathTest, PathIsTakenAsItIsStored) {
    SetPath(REG_SZ, L"C:\\agent\\");
    ExpectConfigurationIn(L"C:\\agent\\");
}

TEST_F(CAgentPathTest, NothingIsPutBetweenPathAndFileName) {
    SetPath(REG_SZ, L"C:\\agent\\prefix-");
    ExpectConfigurationIn(L"C:\\agent\\prefix-");
}

TEST_F(CAgentPathTest, ExpandableTextIsNotExpanded) {
    // The log goes below that path too, which is a relative one as it stands.
    Registry().SetText(kAgentKey, L"logpath", Environment().Folder());
    SetPath(REG_EXPAND_SZ, L"%SystemRoot%\\");
    ExpectConfigurationIn(L"%SystemRoot%\\");
}

TEST_F(CAgentPathTest, WithoutAPathTheHostsDirectoryServes) {
    Registry().DeleteValue(kAgentKey, L"path");
    ExpectConfigurationIn(ProgramFolder());
}

TEST_F(CAgentPathTest, WithoutAnAgentKeyTheHostsDirectoryServes) {
    Registry().DeleteKey(kAgentKey);
    ExpectConfigurationIn(ProgramFolder());
}

TEST_F(CAgentPathTest, EmptyPathCountsAsAbsent) {
    SetPath(REG_SZ, L"");
    ExpectConfigurationIn(ProgramFolder());
}

TEST_F(CAgentPathTest, PathWithoutDataCountsAsAbsent) {
    Registry().SetRaw(kAgentKey, L"path", REG_SZ, {});
    ExpectConfigurationIn(ProgramFolder());
}

TEST_F(CAgentPathTest, PathOfAnotherTypeCountsAsAbsent) {
    SetPath(REG_BINARY, L"C:\\agent\\");
    ExpectConfigurationIn(ProgramFolder());
}

TEST_F(CAgentPathTest, ListOfPathsCountsAsAbsent) {
    SetPath(REG_MULTI_SZ, std::wstring(L"C:\\agent\\\0", 10));
    ExpectConfigurationIn(ProgramFolder());
}

TEST_F(CAgentPathTest, UnterminatedPathCountsAsAbsent) {
    SetPath(REG_SZ, L"C:\\agent\\", false);
    ExpectConfigurationIn(ProgramFolder());
}

TEST_F(CAgentPathTest, PathOfOddLengthCountsAsAbsent) {
    Registry().SetRaw(kAgentKey, L"path", REG_SZ, {'C', 0, ':', 0, '\\', 0, 0});
    ExpectConfigurationIn(ProgramFolder());
}

TEST_F(CAgentPathTest, LongestPathFillsTheBufferWithItsTerminator) {
    SetPath(REG_SZ, std::wstring(1022, L'a') + L"\\");
    ExpectConfigurationIn(std::wstring(1022, L'a') + L"\\");
}

TEST_F(CAgentPathTest, PathBeyondTheBufferCountsAsAbsent) {
    SetPath(REG_SZ, std::wstring(1023, L'a') + L"\\");
    ExpectConfigurationIn(ProgramFolder());
}

// The directory of a program whose path the system tells in a buffer of any size, cut where that is too small.
class CProgramPathTest : public CAgentPathTest {
protected:
    void ExpectConfigurationOf(const std::wstring& program, const std::wstring& directory) {
        Registry().DeleteValue(kAgentKey, L"path");
        CClosurePatches patches(Plugin());
        patches.Replace<DWORD(HMODULE, LPWSTR, DWORD)>(
            "GetModuleFileNameW", [&](auto original, HMODULE module, LPWSTR text, DWORD units) -> DWORD {
                if (module != nullptr) return original(module, text, units);
                const std::size_t copied = program.copy(text, units);
                return static_cast<DWORD>(copied);
            });
        ExpectConfigurationIn(directory);
    }
};

TEST_F(CProgramPathTest, LongPathIsTakenWhole) {
    const std::wstring directory = L"C:\\" + std::wstring(900, L'd') + L"\\";
    ExpectConfigurationOf(directory + L"host.exe", directory);
}

TEST_F(CProgramPathTest, PathThatJustFillsTheBufferIsTakenWhole) {
    const std::wstring directory = L"C:\\" + std::wstring(MAX_PATH - 12, L'd') + L"\\";
    ExpectConfigurationOf(directory + L"host.exe", directory);
}

TEST_F(CProgramPathTest, PathWithoutADirectoryGivesNone) {
    ExpectConfigurationOf(L"host.exe", L"");
}

TEST_F(CProgramPathTest, UnknownPathGivesNone) {
    ExpectConfigurationOf(L"", L"");
}

TEST_F(CAgentPathTest, PathThatDoesNotConvertNamesNoFile) {
    CClosurePatches patches(Plugin());
    patches.Replace<std::remove_pointer_t<decltype(&::WideCharToMultiByte)>>(
        "WideCharToMultiByte", [](auto original, UINT page, auto... arguments) -> int {
            return page == CP_THREAD_ACP ? 0 : original(page, arguments...);
        });
    ASSERT_EQ(0U, Connect());
    EXPECT_TRUE(Fits("\"\", \"__dummy__section__\", *", LastCall("InifileGetValueA").arguments))
        << LastCall("InifileGetValueA").arguments;
}

TEST_F(CAgentPathTest, PathIsTakenOncePerProcess) {
    SetPath(REG_SZ, L"C:\\agent\\");
    ExpectConfigurationIn(L"C:\\agent\\");
    SetPath(REG_SZ, L"C:\\other\\");
    m_manager->ZdRefreshSettings(0, false);
    ExpectConfigurationIn(L"C:\\agent\\");
    m_manager = NewManager();
    ExpectConfigurationIn(L"C:\\agent\\");
}

// ---- The agent's type, which shows in its line and in the block ----

class CAgentTypeTest : public CProtocolTest {
protected:
    void ExpectType(const std::string& type) {
        ClearLogs();
        EXPECT_EQ(0U, Connect());
        const std::vector<LogLine> lines = TakeLog();
        EXPECT_TRUE(Logged(lines, 6, "Agent Type is: " + type + "\n"));
    }
};

TEST_F(CAgentTypeTest, NoTypeIsTypeZero) {
    ExpectType("0");
}

TEST_F(CAgentTypeTest, TypeOfThePlugInsKeyHoldsOverTheAgents) {
    Registry().SetDword(kAgentKey, L"AgentType", 2);
    ExpectType("2");
    Registry().SetDword(kPluginKey, L"AgentType", 4);
    ExpectType("4");
    Registry().SetDword(kPluginKey, L"AgentType", 0);
    ExpectType("0");
}

TEST_F(CAgentTypeTest, ValueThatIsNoNumberCountsAsAbsent) {
    Registry().SetDword(kAgentKey, L"AgentType", 2);
    Registry().SetText(kPluginKey, L"AgentType", L"1");
    ExpectType("2");
    Registry().SetRaw(kPluginKey, L"AgentType", REG_DWORD, {1, 0});
    ExpectType("2");
    Registry().SetRaw(kAgentKey, L"AgentType", REG_QWORD, {1, 0, 0, 0, 0, 0, 0, 0});
    ExpectType("0");
}

TEST_F(CAgentTypeTest, LargeTypeIsPrintedSigned) {
    Registry().SetDword(kPluginKey, L"AgentType", 0xFFFFFFFF);
    ExpectType("-1");
}

TEST_F(CAgentTypeTest, TypeIsReadAtEachConnect) {
    ExpectType("0");
    Registry().SetDword(kPluginKey, L"AgentType", 5);
    ExpectType("5");
}

TEST_F(CAgentTypeTest, FlagsAndKindFollowTheType) {
    static constexpr struct {
        DWORD type;
        const char* flags;
        const char* kind;
    } kRows[] = {{0, "0x232", "null"}, {1, "0x372", "null"}, {2, "0x232", "\"ZDDO_AGENT\""}, {3, "0x2b2", "null"},
                 {4, "0x232", "null"}, {5, "0x232", "null"}, {0xFFFFFFFF, "0x232", "null"},  {0, "0x232", "null"}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.type);
        Registry().SetDword(kPluginKey, L"AgentType", row.type);
        EXPECT_EQ(row.flags, ConnectedBlock("flags"));
        EXPECT_EQ(row.kind, BlockValue("kind"));
    }
}

TEST_F(CAgentTypeTest, FlagsOfTheTypeStandBesideThatOfDecryption) {
    SetAgentValue("RESTORE_DECRYPT_LOCAL", "0");
    Registry().SetDword(kPluginKey, L"AgentType", 1);
    EXPECT_EQ("0x172", ConnectedBlock("flags"));
    Registry().SetDword(kPluginKey, L"AgentType", 3);
    EXPECT_EQ("0xb2", ConnectedBlock("flags"));
    Registry().SetDword(kPluginKey, L"AgentType", 0);
    EXPECT_EQ("0x32", ConnectedBlock("flags"));
}

// ---- The configuration file ----

class CConfigurationFileTest : public CProtocolTest {
protected:
    void SetType(DWORD type) { Registry().SetDword(kPluginKey, L"AgentType", type); }

    std::vector<LogLine> ConnectLog() {
        ClearLogs();
        EXPECT_EQ(0U, Connect());
        return TakeLog();
    }
};

TEST_F(CConfigurationFileTest, TypeZeroLooksForNone) {
    Registry().SetText(kAgentKey, L"ConfigFilePath", L"C:\\agent.cfg");
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\pool.cfg");
    MakePoolFile(L"other.cfg", "5");
    const std::vector<LogLine> lines = ConnectLog();
    for (const LogLine& line : lines) EXPECT_EQ(std::string::npos, line.text.find("onfig")) << line.text;
    EXPECT_EQ("null", BlockValue("file"));
    EXPECT_EQ(0U, Double().Count("wcstoutf8_malloced"));
    EXPECT_EQ("(none)", Narrow(RegisteredFile(L"other")));
}

TEST_F(CConfigurationFileTest, TypesOneToThreeTakeThePoolsFileAndTheOthersTheAgents) {
    Registry().SetText(kAgentKey, L"ConfigFilePath", L"C:\\agent.cfg");
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\pool.cfg");
    static constexpr struct {
        DWORD type;
        const char* file;
    } kRows[] = {{1, "C:\\pool.cfg"},  {2, "C:\\pool.cfg"},  {3, "C:\\pool.cfg"},
                 {4, "C:\\agent.cfg"}, {5, "C:\\agent.cfg"}, {0xFFFFFFFF, "C:\\agent.cfg"}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.type);
        SetType(row.type);
        const std::vector<LogLine> lines = ConnectLog();
        EXPECT_TRUE(Logged(lines, 6, std::string("Config file used (duped): ") + row.file + "\n"));
        EXPECT_FALSE(Logged(lines, 6, "Config file not found scanning\n"));
        EXPECT_EQ(std::string("\"") + row.file + "\"", BlockValue("file"));
    }
}

TEST_F(CConfigurationFileTest, PathGoesThroughTheConverterWhoseBlockIsGivenBack) {
    SetType(1);
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\p\u00f6\u4e2d.cfg");
    ClearLogs();
    EXPECT_EQ(0U, Connect());
    EXPECT_EQ("\"C:\\p\xc3\xb6\xe4\xb8\xad.cfg\"", BlockValue("file"));
    EXPECT_EQ("wcstoutf8_malloced(\"C:\\p\xc3\xb6\xe4\xb8\xad.cfg\") = block1", LastCall("wcstoutf8_malloced").Line());
    EXPECT_EQ("_HulFree(block1)", LastCall("_HulFree").Line());
    EXPECT_EQ(1U, Double().Count("_HulFree"));
    EXPECT_EQ(0, Hul().LiveBlocks());
}

TEST_F(CConfigurationFileTest, ConverterWithoutMemoryFailsTheConnect) {
    SetType(1);
    Registry().SetText(PoolKey(L"pool"), L"ConfigFilePath", L"C:\\pool.cfg");
    Double().Add(OnCall("wcstoutf8_malloced").Answers(0));
    EXPECT_EQ(8U, Connect());
    EXPECT_EQ(0U, Double().Count("ZdvfsMountV1"));
}

TEST_F(CConfigurationFileTest, WithoutAFileThePoolsAreScannedAndTheSearchIsRepeated) {
    SetType(1);
    const std::wstring file = MakePoolFile(L"pool.cfg", "5");
    const std::vector<LogLine> lines = ConnectLog();
    const std::string used = "Config file used (duped): " + Narrow(file) + "\n";
    ASSERT_GE(lines.size(), 4U);
    EXPECT_TRUE(LogFits(
        {{6, "ZdConnect Enter\n"}, {6, "Agent Type is: 1\n"}, {6, "Config file not found scanning\n"}, {6, used}},
        {lines.begin(), lines.begin() + 4}));
    EXPECT_EQ(file, RegisteredFile(L"pool"));
}

TEST_F(CConfigurationFileTest, FileThatIsNowhereIsNullAndHarmsNothing) {
    for (const DWORD type : {1UL, 4UL}) {
        SetType(type);
        const std::vector<LogLine> lines = ConnectLog();
        EXPECT_TRUE(Logged(lines, 6, "Config file not found scanning\n"));
        EXPECT_TRUE(Logged(lines, 6, "Config file used (duped): (null)\n"));
        EXPECT_EQ("null", BlockValue("file"));
        EXPECT_EQ(0U, Double().Count("wcstoutf8_malloced"));
        EXPECT_EQ(0U, Double().Count("_HulFree"));
    }
}

TEST_F(CConfigurationFileTest, ValuesThatAreNoPathCountAsAbsent) {
    SetType(4);
    Registry().SetText(kAgentKey, L"ConfigFilePath", L"");
    EXPECT_EQ("null", ConnectedBlock("file")) << "empty";
    Registry().SetDword(kAgentKey, L"ConfigFilePath", 0x0041003A);
    EXPECT_EQ("null", ConnectedBlock("file")) << "a number";
    Registry().SetText(kAgentKey, L"ConfigFilePath", L"C:\\x", REG_EXPAND_SZ);
    EXPECT_EQ("null", ConnectedBlock("file")) << "expandable";
    Registry().SetRaw(kAgentKey, L"ConfigFilePath", REG_SZ, {});
    EXPECT_EQ("null", ConnectedBlock("file")) << "no data";
}

TEST_F(CConfigurationFileTest, UnterminatedPathIsTerminated) {
    SetType(4);
    Registry().SetRaw(kAgentKey, L"ConfigFilePath", REG_SZ, {'C', 0, ':', 0, '\\', 0, 'x', 0});
    EXPECT_EQ("\"C:\\x\"", ConnectedBlock("file"));
    Registry().SetRaw(kAgentKey, L"ConfigFilePath", REG_SZ, {'C', 0, ':', 0, '\\', 0, 'x', 0, 'y'});
    EXPECT_EQ("\"C:\\x\"", ConnectedBlock("file")) << "half a unit at the end";
}

TEST_F(CConfigurationFileTest, LongestPathIs32767Characters) {
    SetType(4);
    const std::string longest = "C:\\" + std::string(32764, 'x');
    Registry().SetText(kAgentKey, L"ConfigFilePath", Widen(longest));
    ClearLogs();
    EXPECT_EQ(0U, Connect());
    EXPECT_EQ("\"" + longest + "\"", BlockValue("file"));
    Registry().SetText(kAgentKey, L"ConfigFilePath", Widen(longest) + L"xx");
    EXPECT_EQ("null", ConnectedBlock("file"));
}

}  // namespace
