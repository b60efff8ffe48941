// Mounting, the settings, the log lines, and what the DLLs look like.
#include <algorithm>

#include "harness/ImportPatch.h"
#include "LocalFixture.h"

namespace zd::test {
namespace {

std::vector<std::pair<uint32_t, std::string>> g_lines;
void RecordLine(uint32_t level, const char* message) {
    g_lines.emplace_back(level, message);
}

class Mounting : public LocalEngine {
protected:
    Mounting() { g_lines.clear(); }
};

TEST_F(Mounting, ChecksVersionSizeAndName) {
    MountRequest pool("pool");
    auto& block = pool.block;
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsMountV1("6.0.0.1", &block, sizeof block); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsMountV1(nullptr, &block, sizeof block); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsMountV1("6.0.0.0", &block, sizeof block - 1); }));
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsMountV1("6.0.0.0", nullptr, sizeof block); }));
    block.poolName = nullptr;
    EXPECT_EQ(kInvalid, FailureOf([&] { return pool.Mount(); }));
    for (const char* name : {"", ".", "..", "a/b", "/pool"}) {
        MountRequest bad(name);
        EXPECT_EQ(kInvalid, FailureOf([&] { return bad.Mount(); })) << name;
    }
}

TEST_F(Mounting, IsCountedPerName) {
    MountRequest second("pool");
    ASSERT_EQ(0, second.Mount());
    WriteText("pool/f", "x");
    ASSERT_EQ(0, ZdvfsUmount("pool"));
    EXPECT_TRUE(Exists("pool/f"));
    EXPECT_EQ(kMissing, FailureOf([] { return ZdvfsUmount("other"); }));
    EXPECT_EQ(kInvalid, FailureOf([] { return ZdvfsUmount(nullptr); }));
}

TEST_F(Mounting, LastUnmountHidesThePoolButKeepsOpenDescriptors) {
    MountRequest other("other");
    ASSERT_EQ(0, other.Mount());
    WriteText("other/f", "data");
    const int file = ZdvfsOpen("other/f", kZdvfsReadOnly, 0);
    ASSERT_EQ(0, ZdvfsUmount("other"));
    EXPECT_FALSE(Exists("other/f"));
    EXPECT_EQ(kMissing, FailureOf([] { return ZdvfsUmount("other"); }));
    char buffer[8] = {};
    EXPECT_EQ(4, ZdvfsPread(file, buffer, sizeof buffer, 0));
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Mounting, MakesAPoolOnlyWhenAsked) {
    MountRequest fresh("fresh");
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_CREATE", nullptr);
    EXPECT_EQ(kMissing, FailureOf([&] { return fresh.Mount(); }));
    EXPECT_FALSE(DiskHas(Root() + L"\\fresh"));
    WriteDiskFile(Root() + L"\\engine.ini", "create_pools=1\n");
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_CREATE", L"0");
    EXPECT_EQ(kMissing, FailureOf([&] { return fresh.Mount(); }));
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_CREATE", nullptr);
    EXPECT_EQ(0, fresh.Mount());
    EXPECT_TRUE(NamesOf("fresh").empty());
    EXPECT_EQ(0, ZdvfsUmount("fresh"));
}

TEST_F(Mounting, MakesTheMarkerOfANewPoolWhenAsked) {
    WriteDiskFile(Root() + L"\\engine.ini", "top_level = Data\n");
    MountRequest fresh("fresh");
    ASSERT_EQ(0, fresh.Mount());
    EXPECT_EQ(std::vector<std::string>{"Data"}, NamesOf("fresh"));
    EXPECT_TRUE(Exists("fresh/Data/QBX_ZD_MARKER"));
    EXPECT_EQ(0, ZdvfsUmount("fresh"));
}

TEST_F(Mounting, PoolNamesMayHoldWhatNamesMay) {
    for (const std::string& name :
         {std::string("con"), std::string("A:b."), std::string("POOL"), std::string(700, 'P')}) {
        for (int round = 0; round < 2; ++round) {
            MountRequest odd(name);
            ASSERT_EQ(0, odd.Mount()) << name;
            const std::string path = name + "/f";
            if (round == 0) WriteText(path.c_str(), name);
            EXPECT_EQ(name, ReadText(path.c_str()));
            ASSERT_EQ(0, ZdvfsUmount(name.c_str()));
        }
    }
    EXPECT_FALSE(Exists("pool/f"));
}

TEST_F(Mounting, AFileInThePoolsPlaceIsNoPool) {
    WriteDiskFile(Root() + L"\\file", "");
    MountRequest file("file");
    EXPECT_EQ(kNoDirectory, FailureOf([&] { return file.Mount(); }));
}

TEST_F(Mounting, TheRootIsMadeWithItsFirstPool) {
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_ROOT", (Root() + L"\\a\\b\\").c_str());
    MountRequest deep("deep");
    EXPECT_EQ(0, deep.Mount());
    EXPECT_TRUE(DiskHas(Root() + L"\\a\\b\\deep"));
    EXPECT_EQ(0, ZdvfsUmount("deep"));
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_ROOT", Root().c_str());
}

TEST_F(Mounting, TheRootMayStandAtTheTopOfADrive) {
    wchar_t system[MAX_PATH];
    ASSERT_NE(0u, ::GetSystemDirectoryW(system, MAX_PATH));
    const std::wstring root = std::wstring(system, 3) + L"zdvfs-test-" + std::to_wstring(::GetCurrentProcessId());
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_ROOT", root.c_str());
    MountRequest top("top");
    EXPECT_EQ(0, top.Mount());
    EXPECT_EQ(kZdvfsModeDirectory, StatOf("/").mode & kZdvfsModeTypeMask);
    ZdvfsVolumeRecord record;
    EXPECT_EQ(0, ZdvfsStatvfs("/", &record));
    EXPECT_EQ(0, ZdvfsUmount("top"));
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_ROOT", std::wstring(system, 3).c_str());
    EXPECT_EQ(kZdvfsModeDirectory, StatOf("/").mode & kZdvfsModeTypeMask);
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_ROOT", Root().c_str());
    RemoveDiskTree(root);
}

TEST_F(Mounting, WithoutAVariablePoolsStandUnderLocalApplicationData) {
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_ROOT", nullptr);
    wchar_t before[1024] = L"";
    ::GetEnvironmentVariableW(L"LOCALAPPDATA", before, 1024);
    ::SetEnvironmentVariableW(L"LOCALAPPDATA", (Root() + L"\\local").c_str());
    MountRequest home("home");
    EXPECT_EQ(0, home.Mount());
    EXPECT_TRUE(DiskHas(Root() + L"\\local\\Zdvfs\\pools\\home"));
    EXPECT_EQ(0, ZdvfsUmount("home"));
    ::SetEnvironmentVariableW(L"LOCALAPPDATA", before);
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_ROOT", Root().c_str());
}

TEST_F(Mounting, LogsThroughTheBlockAtItsLevel) {
    MountRequest logged("logged");
    logged.block.logCallback = &RecordLine;
    logged.block.logLevel = 6;
    ASSERT_EQ(0, logged.Mount());
    ASSERT_EQ(1u, g_lines.size());
    EXPECT_EQ(6u, g_lines[0].first);
    EXPECT_EQ(0u, g_lines[0].second.find("zdvfs: mounted pool logged at "));
    EXPECT_NE(std::string::npos, g_lines[0].second.find("\\logged\n"));
    logged.block.logLevel = 1;
    ASSERT_EQ(0, ZdvfsUmount(logged.block.poolName));
    EXPECT_EQ(1u, g_lines.size());
    ::SetEnvironmentVariableW(L"ZDVFS_LOCAL_CREATE", L"0");
    MountRequest none("none");
    none.block.logCallback = &RecordLine;
    EXPECT_EQ(-1, none.Mount());
    ASSERT_EQ(2u, g_lines.size());
    EXPECT_EQ(1u, g_lines[1].first);
    EXPECT_EQ(0u, g_lines[1].second.find("zdvfs: cannot mount pool none under "));
}

TEST_F(Mounting, NamesMakeUpNoLines) {
    MountRequest logged("logged");
    logged.block.logCallback = &RecordLine;
    logged.block.logLevel = 1;
    ASSERT_EQ(0, logged.Mount());
    WriteText("logged/f\r\nforged\x7f%", "");
    WriteDiskFile(Root() + L"\\logged\\%m.f%0d%0aforged%7f%25", "damaged");
    char buffer[16];
    EXPECT_EQ(-1, ZdvfsGetNTAclStr("logged/f\r\nforged\x7f%", buffer, sizeof buffer));
    ASSERT_EQ(1u, g_lines.size());
    EXPECT_EQ("zdvfs: damaged metadata of /logged/f%0d%0aforged%7f%\n", g_lines[0].second);
    ASSERT_EQ(0, ZdvfsUmount("logged"));
}

TEST_F(Mounting, ABlockIsNotTouchedOnceItMayBeGone) {
    MountRequest first("logged");
    first.block.logCallback = &RecordLine;
    ASSERT_EQ(0, first.Mount());
    MountRequest second("logged");
    second.block.logCallback = &RecordLine;
    ASSERT_EQ(0, second.Mount());
    WriteText("logged/f", "");
    WriteDiskFile(Root() + L"\\logged\\%m.f", "damaged");
    char buffer[16];
    EXPECT_EQ(-1, ZdvfsGetNTAclStr("logged/f", buffer, sizeof buffer));
    EXPECT_EQ(1u, g_lines.size());
    // The name at another address does not tell which of the two blocks goes.
    const std::string name = "logged";
    ASSERT_EQ(0, ZdvfsUmount(name.c_str()));
    EXPECT_EQ(-1, ZdvfsGetNTAclStr("logged/f", buffer, sizeof buffer));
    EXPECT_EQ(1u, g_lines.size());
    ASSERT_EQ(0, ZdvfsUmount(name.c_str()));
}

TEST(Libraries, ExportTheContractAndNothingElse) {
    static const struct {
        const wchar_t* library;
        std::vector<std::string> names;
    } kRows[] = {
        {L"hul.dll",
         {"InifileGetIntegerA", "InifileGetValueA", "InifileReleaseA", "_HulFree", "wcstoutf8_buf",
          "wcstoutf8_malloced"}},
        {L"zdvfs.dll",
         {"ZdvfsAppend",       "ZdvfsChmod",        "ZdvfsClose",          "ZdvfsClosedir",  "ZdvfsFgetDsidNTAclStr",
          "ZdvfsFgetNTAclStr", "ZdvfsFsetNTAclStr", "ZdvfsFstat",          "ZdvfsFtruncate", "ZdvfsGetDsidNTAclStr",
          "ZdvfsGetNTAclStr",  "ZdvfsIoctl",        "ZdvfsLseek",          "ZdvfsMkdir",     "ZdvfsMountV1",
          "ZdvfsOpen",         "ZdvfsOpendir",      "ZdvfsOpendirForList", "ZdvfsPread",     "ZdvfsPwrite",
          "ZdvfsReaddir",      "ZdvfsRename",       "ZdvfsSetNTAclStr",    "ZdvfsStat",      "ZdvfsStatvfs",
          "ZdvfsUmount",       "ZdvfsUnlink",       "ZdvfsUtime",          "ZdvfsVIoctl"}},
    };
    for (const auto& row : kRows) {
        std::vector<std::string> names = ExportedNames(::LoadLibraryW(row.library));
        std::sort(names.begin(), names.end());
        EXPECT_EQ(row.names, names);
    }
}

TEST(Libraries, UseTheUniversalRuntimeAndNotEachOther) {
    for (const wchar_t* library : {L"hul.dll", L"zdvfs.dll"}) {
        for (std::string name : ImportedLibraries(::LoadLibraryW(library))) {
            for (char& c : name) c = static_cast<char>(tolower(c));
            const bool allowed = name == "kernel32.dll" || name == "advapi32.dll" || name.find("api-ms-win-crt-") == 0;
            EXPECT_TRUE(allowed) << name;
        }
    }
}

}  // namespace
}  // namespace zd::test
