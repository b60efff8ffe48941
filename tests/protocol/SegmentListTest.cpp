// zd.conf: which keys are asked for, and the list of preferred segment sizes as written files show it.
#include "ProtocolFixture.h"

using namespace zd::test;

namespace {

class CSegmentListTest : public CProtocolTest {
protected:
    void ConnectWith(const std::string& list) {
        SetAgentValue("PREFERRED_EXT_SEGKSIZE", list);
        ASSERT_EQ(0U, Connect());
    }

    // The segment size that a new file of the name gets, "none" where it gets none.
    std::string SegmentSize(const std::wstring& name) {
        const Created created = Create(name);
        EXPECT_EQ(0U, created.code);
        ClearCalls();
        std::string size = "none";
        Close(created.handle);
        for (const Call& call : m_calls) {
            if (call.function == "ZdvfsIoctl" && call.arguments.find(", 2, ") != std::string::npos) {
                size = call.arguments.substr(call.arguments.find(", 2, ") + 5);
            }
        }
        return size.substr(0, size.find(','));
    }

private:
    void ClearCalls() {
        m_calls = Double().Calls();
        Double().ClearCalls();
    }
    std::vector<Call> m_calls;
};

TEST_F(CSegmentListTest, ConnectAsksForEveryKeyWithItsDefault) {
    m_manager = NewManager();
    ClearLogs();
    ASSERT_EQ(0U, Connect());
    const std::string file = "\"" + AgentFile("zd.conf") + "\", \"__dummy__section__\", ";
    std::vector<std::string> calls = TakeAllCalls();
    std::erase_if(calls, [](const std::string& line) { return !line.starts_with("Inifile"); });
    EXPECT_THAT(calls, ::testing::UnorderedElementsAre(
                           "InifileGetIntegerA(" + file + "\"IFS_COMPRESSION\", 0) = 0",
                           "InifileGetIntegerA(" + file + "\"ENCRYPTION\", 0) = 0",
                           "InifileGetIntegerA(" + file + "\"RESTORE_DECRYPT_LOCAL\", 1) = 1",
                           "InifileGetValueA(" + file + "\"PREFERRED_EXT_SEGKSIZE\", \"\", 256) = 0"));
}

TEST_F(CSegmentListTest, BlankHexadecimalAndUpperCaseItems) {
    ConnectWith(" EDB:0x400, vhd:64");
    EXPECT_EQ("1048576", SegmentSize(L"\\a.edb"));
    EXPECT_EQ("65536", SegmentSize(L"\\a.VHD"));
    Double().MakeDirectory("pool/Mail/VDB_01");
    EXPECT_EQ("1048576", SegmentSize(L"\\Mail\\VDB_01\\x.log")) << "the edb size is set whatever the extension's case";
}

TEST_F(CSegmentListTest, SemicolonEndsTheListAfterTheFirstItem) {
    ConnectWith("edb:1024;vhd:64");
    EXPECT_EQ("1048576", SegmentSize(L"\\a.edb"));
    EXPECT_EQ("none", SegmentSize(L"\\a.vhd"));
}

TEST_F(CSegmentListTest, SizesWrapIn32Bits) {
    ConnectWith("edb:4194304,vhd:4194305,vmdk:0x80000001");
    Double().MakeDirectory("pool/vdb_1");
    EXPECT_EQ("none", SegmentSize(L"\\a.edb")) << "0 after the wrap";
    EXPECT_EQ("none", SegmentSize(L"\\vdb_1\\a.txt")) << "the edb size is 0 too";
    EXPECT_EQ("1024", SegmentSize(L"\\a.vhd"));
}

TEST_F(CSegmentListTest, EmptyOrMissingListGivesNone) {
    ASSERT_EQ(0U, Connect());
    EXPECT_EQ("none", SegmentSize(L"\\a.edb"));
    ConnectWith("");
    EXPECT_EQ("none", SegmentSize(L"\\b.edb"));
}

TEST_F(CSegmentListTest, ItemsAreReadAsTheSyntaxSays) {
    static constexpr struct {
        const char* list;
        const wchar_t* name;
        const char* size;
    } kRows[] = {
        {"vhd:4", L"\\1.vhd", "4096"},
        {"vhd:010", L"\\2.vhd", "8192"},    // octal
        {"vhd:0X10", L"\\3.vhd", "16384"},  // hexadecimal
        {"vhd: 4", L"\\4.vhd", "4096"},     // blanks before a number belong to it
        {"vhd:+4", L"\\5.vhd", "4096"},
        {"   vhd:4", L"\\6.vhd", "4096"},
        {"\tvhd:4", L"\\7.vhd", "none"},  // only spaces are skipped
        {"vhd :4", L"\\8.vhd", "none"},   // a blank behind the extension is part of it
        {"vhd :4", L"\\9.vhd ", "4096"},
        {"edb:4,   vhd:8", L"\\10.vhd", "8192"},
        {"edb:4,vhd:8", L"\\11.edb", "4096"},
        {"edb:4 ,vhd:8", L"\\12.vhd", "none"},  // the comma stands right behind the number
        {"edb:4x,vhd:8", L"\\13.vhd", "none"},
        {"edb:4,", L"\\14.edb", "4096"},        // nothing behind the comma
        {"edb:4,,vhd:8", L"\\15.vhd", "none"},  // the extension would be ",vhd"
        {"edb:4,vhd", L"\\16.vhd", "none"},     // no colon
        {"vhd", L"\\17.vhd", "none"},
        {":4,vhd:8", L"\\18.vhd", "8192"},  // an empty extension is skipped
        {":4", L"\\19.vhd", "none"},
        {"   :4", L"\\20.vhd", "none"},
        {"vhd:", L"\\21.vhd", "none"},  // no number is 0, which is none
        {"vhd:x,edb:4", L"\\22.edb", "none"},
        {"vhd:,edb:4", L"\\23.edb", "4096"},
        {"vhd:0,vhd:4", L"\\24.vhd", "none"},  // the first match decides
        {"vhd:4,vhd:8", L"\\25.vhd", "4096"},
        {"hd:4,vhd:8", L"\\26.vhd", "4096"},  // an ending of the name is enough
        {"vhd:4", L"\\27vhd", "4096"},
        {"vhd:2097151", L"\\28.vhd", "2147482624"},  // the largest that is no 2 GiB
        {"vhd:2097152", L"\\29.vhd", "none"},        // 2 GiB and more count as none
        {"vhd:-1", L"\\30.vhd", "none"},
        {"vhd:99999999999999999999", L"\\31.vhd", "none"},
        {"\xff\xfe:4,vhd:8", L"\\32.vhd", "8192"},  // no UTF-8: the item is skipped
        {"\xc3\xa4\xc3\xb6:4", L"\\33.\u00e4\u00f6", "4096"},
        {"vhd.:4", L"\\34.vhd", "none"},
        {".vhd:4", L"\\35.vhd", "4096"},  // a dot is no more than a character
        {"longer-than-the-name:4", L"\\36", "none"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.list);
        ConnectWith(row.list);
        EXPECT_EQ(row.size, SegmentSize(row.name));
    }
}

TEST_F(CSegmentListTest, EdbItemSetsTheSizeOfDatabaseFolders) {
    ConnectWith("vhd:64,Edb:8");
    Double().MakeDirectory("pool/VDB_01");
    EXPECT_EQ("8192", SegmentSize(L"\\VDB_01\\x.log"));
    EXPECT_EQ("8192", SegmentSize(L"/VDB_01/y.vhd"));
    EXPECT_EQ("none", SegmentSize(L"\\x.log"));
}

TEST_F(CSegmentListTest, LaterEdbItemReplacesTheEdbSize) {
    ConnectWith("edb:4,EDB:8");
    Double().MakeDirectory("pool/vdb_1");
    EXPECT_EQ("8192", SegmentSize(L"\\vdb_1\\x.log"));
    EXPECT_EQ("4096", SegmentSize(L"\\x.edb")) << "in the list the first one decides";
}

TEST_F(CSegmentListTest, ListIsReadAnewAtEachConnectAndTheEdbSizeIsReset) {
    Double().MakeDirectory("pool/vdb_1");
    ConnectWith("edb:8,vhd:4");
    EXPECT_EQ("8192", SegmentSize(L"\\vdb_1\\x.log"));
    ConnectWith("vhd:16");
    EXPECT_EQ("none", SegmentSize(L"\\vdb_1\\y.log"));
    EXPECT_EQ("16384", SegmentSize(L"\\a.vhd"));
    EXPECT_EQ("none", SegmentSize(L"\\a.edb"));
    ConnectWith("");
    EXPECT_EQ("none", SegmentSize(L"\\b.vhd"));
}

TEST_F(CSegmentListTest, ListIsCutAt255Bytes) {
    const std::string filler = std::string(248, 'x') + ":1,";  // 251 bytes
    ConnectWith(filler + "v:48");                              // the 8 would be the 255th byte
    EXPECT_EQ("49152", SegmentSize(L"\\a.v"));
    ConnectWith("x" + filler + "v:48");
    EXPECT_EQ("4096", SegmentSize(L"\\b.v"));
}

TEST_F(CSegmentListTest, ReaderThatForgetsTheTerminatorDoesNoHarm) {
    // The double fills up to 255 bytes; a library of another maker may fill all 256.
    Double().Add(OnCall("InifileGetValueA").Answers(300));
    EXPECT_EQ(0U, Connect());
    EXPECT_EQ("none", SegmentSize(L"\\a.edb"));
}

}  // namespace
