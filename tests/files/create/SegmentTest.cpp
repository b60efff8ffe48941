// Segment sizes: which files get one, and with which controls.
#include "CreateFixture.h"

namespace zd::test {
namespace {

class CSegmentTest : public CCreateTest {
protected:
    // Connects with that list of extensions.
    void ConnectWith(const std::string& list) {
        Hul().SetValue(Narrow(Environment().AgentFolder()) + "zd.conf", "__dummy__section__", "PREFERRED_EXT_SEGKSIZE",
                       list);
        ASSERT_EQ(0U, Connect());
        ClearLogs();
    }
    void SetUp() override { CDoubleTest::SetUp(); }

    // "request:size ..." of the controls that set segment sizes, in order.
    std::string SetOn(const std::wstring& name, const CreateOptions& options) {
        const std::string path = "pool/" + Narrow(name.substr(1));
        std::string plain = path;
        for (char& c : plain) {
            if (c == '\\') c = '/';
        }
        if (options.isDirectory == 0) Double().MakeFile(plain);
        OpenAndClose(name, options);
        std::string set;
        for (const std::string& line : CallsOf(m_calls, "ZdvfsIoctl")) {
            const std::size_t request = line.find(", ") + 2;
            if (line.substr(request).starts_with("46,")) continue;
            EXPECT_TRUE(Fits("*, 4) = 0", line)) << line;
            const std::size_t size = line.find(", ", request) + 2;
            if (!set.empty()) set += " ";
            set += line.substr(request, size - 2 - request) + ":" + line.substr(size, line.rfind(", ") - size);
        }
        return set;
    }
};

constexpr CreateOptions kWriter{.disposition = kZdOpenIf, .access = kWrite};
constexpr CreateOptions kDirectWriter{
    .attributes = FILE_FLAG_SEQUENTIAL_SCAN, .disposition = kZdOpenIf, .access = kWrite};

TEST_F(CSegmentTest, SizeFollowsDirectoryAndExtension) {
    ConnectWith("edb:1024,vhd:64,b:8,log:16,LOG2:32,none:0,big.none:4");
    static constexpr struct {
        const char* name;
        const wchar_t* file;
        const char* set;
    } kRows[] = {
        {"database directory", L"\\Mail\\VDB_01\\x.log", "2:1048576"},
        {"database directory, slashes", L"/mail/vdb_2/x.vhd", "2:1048576"},
        {"a file that begins like one", L"\\Vdb_x", "2:1048576"},
        {"not at the beginning of a component", L"\\x\\avdb_1\\x.txt", ""},
        {"extension", L"\\x.vhd", "2:65536"},
        {"extension in another case", L"\\x.VHD", "2:65536"},
        {"the name's tail without a dot", L"\\myvhd", "2:65536"},
        {"an entry shorter than the extension", L"\\x.db", "2:8192"},
        {"the first entry that fits decides", L"\\x.edb", "2:1048576 23:1048576"},
        {"an entry in upper case", L"\\x.log2", "2:32768"},
        {"no entry", L"\\x.txt", ""},
        {"an entry longer than the name", L"\\d", ""},
        {"an entry whose size is 0 ends the search", L"\\big.none", ""},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.set, SetOn(row.file, kWriter));
    }
}

TEST_F(CSegmentTest, LaterEntryDoesNotOverrideAnEarlierOne) {
    ConnectWith("db:8,edb:16");
    EXPECT_EQ("2:8192", SetOn(L"\\x.db", kWriter));
    EXPECT_EQ("2:8192 23:8192", SetOn(L"\\x.edb", kWriter));
    EXPECT_EQ("2:16384", SetOn(L"\\vdb_1\\x.db", kWriter));
}

TEST_F(CSegmentTest, WithoutADatabaseSizeTheDirectoryMeansNothing) {
    ConnectWith("vhd:64");
    EXPECT_EQ("", SetOn(L"\\vdb_1\\x.log", kWriter));
    EXPECT_EQ("2:65536", SetOn(L"\\vdb_1\\x.vhd", kWriter));
}

TEST_F(CSegmentTest, StreamSegmentIsSetForDirectIoOnly) {
    ConnectWith("vhd:64");
    EXPECT_EQ("2:65536", SetOn(L"\\x.vhd", kWriter));
    EXPECT_FALSE(Logged(m_log, 3, "Stream*"));
    EXPECT_EQ("2:65536 23:65536", SetOn(L"\\x.vhd", kDirectWriter));
    EXPECT_TRUE(Logged(m_log, 3, "Segment size of \\x.vhd set to 65536\n"));
    EXPECT_TRUE(Logged(m_log, 3, "Stream segment size of \\x.vhd set to 65536\n"));
}

TEST_F(CSegmentTest, ControlsComeBeforeTheLocality) {
    ConnectWith("vhd:64");
    Double().MakeFile("pool/d/x.vhd");
    OpenAndClose(L"\\d\\x.vhd", kDirectWriter);
    EXPECT_TRUE(LinesFit({"ZdvfsIoctl(*, 2, 65536, 4) = 0", "ZdvfsIoctl(*, 23, 65536, 4) = 0",
                          "ZdvfsIoctl(*, 46, null, 0, \"d\", 0, 32) = 0"},
                         CallsOf(m_calls, "ZdvfsIoctl")));
}

TEST_F(CSegmentTest, ReadersAndPlainOpensAndDirectoriesGetNone) {
    ConnectWith("vhd:64");
    EXPECT_EQ("", SetOn(L"\\x.vhd", {.disposition = kZdOpenIf, .access = kRead}));
    EXPECT_EQ("", SetOn(L"\\x.vhd", {.disposition = kZdOpen, .access = kRead}));
    EXPECT_EQ("", SetOn(L"\\x.vhd", {.disposition = kZdOpen, .access = kWrite}));
    EXPECT_EQ("", SetOn(L"\\y.vhd", {.isDirectory = 1, .disposition = kZdOpenIf, .access = kWrite}));
}

TEST_F(CSegmentTest, RefusedControlsAreNotReportedAndDoNotFailTheOpen) {
    ConnectWith("vhd:64");
    Double().MakeFile("pool/x.vhd");
    Double().Add(OnCall("ZdvfsIoctl").Fails(ENOTSUP));
    OpenAndClose(L"\\x.vhd", kDirectWriter);
    EXPECT_TRUE(LinesFit({"ZdvfsIoctl(*, 2, 65536, 4) = -1", "ZdvfsIoctl(*, 23, 65536, 4) = -1"},
                         CallsOf(m_calls, "ZdvfsIoctl")));
    for (const LogLine& line : m_log) EXPECT_EQ(6U, line.level) << line.text;
}

TEST_F(CSegmentTest, SizesOfTwoGibibytesAndMoreCountAsNone) {
    ConnectWith("edb:2097152,vhd:2097151,log:4194304,txt:3000000");
    EXPECT_EQ("", SetOn(L"\\x.edb", kWriter));
    EXPECT_EQ("2:2147482624", SetOn(L"\\x.vhd", kWriter));
    EXPECT_EQ("", SetOn(L"\\x.log", kWriter));
    EXPECT_EQ("", SetOn(L"\\x.txt", kWriter));
    EXPECT_EQ("2:2147482624", SetOn(L"\\vdb_1\\x.vhd", kWriter));
}

// The size stays with the handle: fragments opened later get it too, both controls, whatever the cache flags.
TEST_F(CSegmentTest, LaterFragmentsGetBothControls) {
    Registry().SetDword(kPluginKey, L"MaxFileSizeMB", 1);
    ConnectWith("vhd:64");
    const Created created = Open(L"\\x.vhd", {.disposition = kZdCreate, .access = kWrite});
    ASSERT_EQ(0U, created.code);
    EXPECT_EQ(0U, Write(created.handle, 0, std::string(1048576, 'a')).code);
    ClearLogs();
    EXPECT_EQ(0U, Write(created.handle, 1048576, "b").code);
    EXPECT_TRUE(LinesFit({"ZdvfsIoctl(*, 2, 65536, 4) = 0", "ZdvfsIoctl(*, 23, 65536, 4) = 0"},
                         CallsOf(TakeCalls(), "ZdvfsIoctl")));
    const std::vector<LogLine> lines = TakeLog();
    EXPECT_TRUE(Logged(lines, 6, "Set segment size of pool/x.vhd;F1 to 65536\n"));
    EXPECT_TRUE(Logged(lines, 6, "Set segment stream size of pool/x.vhd;F1 to 65536\n"));
    Close(created.handle);
}

TEST_F(CSegmentTest, LocalityIsCutBetweenCharactersToFitItsField) {
    static constexpr struct {
        const wchar_t* directory;
        const char* locality;
    } kRows[] = {{L"0123456789012345678901234567890", "0123456789012345678901234567890"},
                 {L"01234567890123456789012345678901", "0123456789012345678901234567890"},
                 {L"012345678901234567890123456789\u00e4", "012345678901234567890123456789"},
                 {L"01234567890123456789012345678\u00e4x", "01234567890123456789012345678\xc3\xa4"}};
    ASSERT_EQ(0U, Connect());
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.locality);
        Double().MakeDirectory("pool/" + Narrow(row.directory));
        OpenAndClose(std::wstring(L"\\") + row.directory + L"\\deeper;x", {.disposition = kZdCreate, .access = kWrite});
        EXPECT_TRUE(LinesFit({"ZdvfsIoctl(*, 46, null, 0, \"" + std::string(row.locality) + "\", 0, 32) = 0"},
                             CallsOf(m_calls, "ZdvfsIoctl")));
    }
}

}  // namespace
}  // namespace zd::test
