// Which fragments an opening finds, what becomes of them, and the fragment size that follows from them.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

constexpr std::int64_t kMegabyte = 1048576;

class CDiscoveryTest : public CFilesTest {
protected:
    // The calls that an opening makes for fragments 1 and up.
    std::vector<std::string> CallsOnFragments(const CreateOptions& options) {
        ClearLogs();
        m_created = Create(L"\\a", options);
        EXPECT_EQ(0U, m_created.code);
        std::vector<std::string> found;
        for (const std::string& line : TakeCalls()) {
            if (line.find(";F") != std::string::npos) found.push_back(line);
        }
        return found;
    }

    // The fragment size of a handle, as an append of nothing tells it.
    std::int64_t FragmentSize(Handle handle) {
        ClearLogs();
        EXPECT_EQ(0U, m_manager->ZdAppendFile(handle, handle, 0, 0, 0));
        EXPECT_CALLS();
        const std::string start = "Write File FragmentSize = ";
        const auto lines = LinesStarting(TakeLog(), start);
        if (lines.size() != 1) return -1;
        const std::int64_t size = std::stoll(lines[0].substr(start.size()));
        EXPECT_EQ(start + std::to_string(size) + "\n, Read File FragmentSize = " + std::to_string(size) + "\n",
                  lines[0]);
        return size;
    }

    Created m_created;
};

TEST_F(CDiscoveryTest, StopsAtTheFirstMissingNumber) {
    ConnectWith();
    MakeFragments({"0123456789", "12345"});
    Double().MakeFile("pool/a;F3", "beyond the gap");
    EXPECT_TRUE(
        LinesFit({"ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsStat(\"pool/a;F2\") = -1"}, CallsOnFragments(kOpenToWrite)));
    EXPECT_EQ(15U, m_created.information.size);
    EXPECT_EQ("012345678912345", Read(m_created.handle, 0, 100).data);
    Close(m_created.handle);
    EXPECT_EQ("beyond the gap", Double().Bytes("pool/a;F3"));
}

TEST_F(CDiscoveryTest, AnyFailingStatusEndsTheSearch) {
    ConnectWith();
    MakeFragments({"0123456789", "abcdefghij", "tail"});
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/a;F2").Fails(EIO));
    EXPECT_TRUE(
        LinesFit({"ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsStat(\"pool/a;F2\") = -1"}, CallsOnFragments(kOpenToWrite)));
    EXPECT_EQ(20U, m_created.information.size);
    Close(m_created.handle);
    EXPECT_EQ("tail", Double().Bytes("pool/a;F2"));
}

TEST_F(CDiscoveryTest, FindsFragmentsOfSeveralDigitsAndNamesOfAnyLetters) {
    ConnectWith();
    std::vector<std::string> fragments;
    for (int i = 0; i < 12; ++i) fragments.push_back(std::string(4, static_cast<char>('a' + i)));
    const std::string name =
        "gr\xc3\xb6\xc3\x9f"
        "e %d.vhd";
    const Handle handle = Open(fragments, name);
    EXPECT_EQ("kklll", Read(handle, 42, 5).data);
    EXPECT_TRUE(Logged(TakeLog(), 3, "Entering CProtocolManager::ReOpenFile(\"" + StoragePath(name, 11) + "\"\n"));
    Close(handle);
    EXPECT_EQ(48U, TotalSize(name));
}

TEST_F(CDiscoveryTest, KeepingDispositionsKeepAndTruncatingOnesRemoveTheFragments) {
    ConnectWith();
    static constexpr struct {
        const char* name;
        DWORD disposition;
        bool exists;
        bool removes;
    } kRows[] = {
        {"supersede", kZdSupersede, true, true},
        {"open", kZdOpen, true, false},
        {"create", kZdCreate, false, true},
        {"open if", kZdOpenIf, true, false},
        {"open if, fragments of a lost file", kZdOpenIf, false, false},
        {"overwrite", kZdOverwrite, true, true},
        {"overwrite if", kZdOverwriteIf, true, true},
        {"overwrite if, fragments of a lost file", kZdOverwriteIf, false, true},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        MakeFragments({"0123456789", "abcdefghij", "tail"});
        if (!row.exists) Double().Remove("pool/a");
        const auto calls = CallsOnFragments({.disposition = row.disposition, .access = kWriteAccess});
        if (row.removes) {
            EXPECT_TRUE(LinesFit(
                {"ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsUnlink(\"pool/a;F1\") = 0", "ZdvfsStat(\"pool/a;F2\") = 0",
                 "ZdvfsUnlink(\"pool/a;F2\") = 0", "ZdvfsStat(\"pool/a;F3\") = -1"},
                calls));
            EXPECT_EQ(0U, m_created.information.size);
            EXPECT_EQ(std::vector<std::string>{""}, Stored());
            EXPECT_FALSE(Double().Exists("pool/a;F1"));
        } else {
            EXPECT_TRUE(LinesFit(
                {"ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsStat(\"pool/a;F2\") = 0", "ZdvfsStat(\"pool/a;F3\") = -1"},
                calls));
            EXPECT_EQ(row.exists ? 24U : 14U, m_created.information.size);
            EXPECT_EQ("tail", Double().Bytes("pool/a;F2"));
        }
        EXPECT_FALSE(Double().Exists("pool/a;F3"));
        Close(m_created.handle);
    }
}

TEST_F(CDiscoveryTest, FailureToRemoveAFragmentIsIgnored) {
    ConnectWith();
    MakeFragments({"0123456789", "abcdefghij", "tail"});
    Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/a;F1").Fails(EBUSY));
    EXPECT_TRUE(
        LinesFit({"ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsUnlink(\"pool/a;F1\") = -1", "ZdvfsStat(\"pool/a;F2\") = 0",
                  "ZdvfsUnlink(\"pool/a;F2\") = 0", "ZdvfsStat(\"pool/a;F3\") = -1"},
                 CallsOnFragments({.disposition = kZdOverwrite, .access = kWriteAccess})));
    EXPECT_EQ(0U, m_created.information.size);
    EXPECT_EQ(0U, Read(m_created.handle, 0, 100).count) << "the handle knows fragment 0 only";
    Close(m_created.handle);
}

TEST_F(CDiscoveryTest, DirectoriesHaveNoFragments) {
    ConnectWith();
    Double().MakeDirectory("pool/a");
    Double().MakeFile("pool/a;F1", "not of the directory");
    EXPECT_TRUE(CallsOnFragments({.isDirectory = 1, .disposition = kZdOpen}).empty());
    Close(m_created.handle);
}

TEST_F(CDiscoveryTest, FragmentSizeIsTheConfiguredOneUnlessTheFileShowsAnother) {
    ConnectWith(std::nullopt, 1);
    static constexpr struct {
        const char* name;
        std::int64_t first;   // bytes of fragment 0
        std::int64_t second;  // -1: there is none
        DWORD disposition;
        std::int64_t expected;
    } kRows[] = {
        {"new", -1, -1, kZdCreate, kMegabyte},
        {"empty", 0, -1, kZdOpen, kMegabyte},
        {"smaller, alone", 10, -1, kZdOpen, kMegabyte},
        {"full, alone", kMegabyte, -1, kZdOpen, kMegabyte},
        {"one byte more, alone", kMegabyte + 1, -1, kZdOpen, kMegabyte + 1},
        {"larger, alone", 300 * kMegabyte, -1, kZdOpen, 300 * kMegabyte},
        {"full with a second", kMegabyte, 10, kZdOpen, kMegabyte},
        {"smaller with a second", 10, 5, kZdOpen, 10},
        {"smaller with a second, opened or made", 10, 5, kZdOpenIf, 10},
        {"smaller with an empty second", 10, 0, kZdOpen, 10},
        {"larger with a second", 7 * kMegabyte, 1, kZdOpen, 7 * kMegabyte},
        {"smaller than its second", 10, 11, kZdOpen, 10},
        {"empty with a second: no size at all, so the configured one stays", 0, 5, kZdOpen, kMegabyte},
        {"larger, emptied", 7 * kMegabyte, 1, kZdOverwriteIf, kMegabyte},
        {"smaller, emptied", 10, 5, kZdSupersede, kMegabyte},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        for (int i = 0; i < 2; ++i) Double().Remove(StoragePath("a", i));
        if (row.first >= 0) Double().MakeFile("pool/a", "", row.first);
        if (row.second >= 0) Double().MakeFile("pool/a;F1", "", row.second);
        const Created created = Create(L"\\a", {.disposition = row.disposition, .access = kWriteAccess});
        ASSERT_EQ(0U, created.code);
        EXPECT_EQ(row.expected, FragmentSize(created.handle));
        Close(created.handle);
    }
}

TEST_F(CDiscoveryTest, ConfiguredSizeIsFiftyGibibytesUnlessSet) {
    ConnectWith();
    const Created created = Create(L"\\a");
    EXPECT_EQ(53687091200, FragmentSize(created.handle));
    Close(created.handle);
    // Each object reads the setting when it is made.
    static constexpr struct {
        DWORD megabytes;
        std::int64_t expected;
    } kRows[] = {{0, 53687091200},
                 {1, kMegabyte},
                 {100, 100 * kMegabyte},
                 {4096, 4096 * kMegabyte},
                 {0xFFFFFFFF, 0xFFFFFFFF * kMegabyte}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.megabytes);
        Registry().SetDword(kPluginKey, L"MaxFileSizeMB", row.megabytes);
        m_manager = nullptr;
        ASSERT_EQ(0U, Connect());
        const Created file = Create(L"\\a");
        EXPECT_EQ(row.expected, FragmentSize(file.handle));
        Close(file.handle);
    }
}

TEST_F(CDiscoveryTest, SizeIsTheSumOverAllFragmentsInSixtyFourBits) {
    ConnectWith();
    constexpr std::int64_t kFull = 53687091200;
    Double().MakeFile("pool/a", "", kFull);
    Double().MakeFile("pool/a;F1", "", kFull);
    Double().MakeFile("pool/a;F2", "", 7);
    EXPECT_EQ(static_cast<std::uint64_t>(2 * kFull + 7), TotalSize());
}

TEST_F(CDiscoveryTest, FailedDiscoveryLeavesNoHandleBehind) {
    ConnectWith();
    MakeFragments({"0123456789", "tail"});
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/a;F1").Throws(EThrow::kUnsignedLong, 4711));
    EXPECT_EQ(4711U, Create(L"\\a", kOpenToWrite).code);
    Double().ClearRules();
    EXPECT_TRUE(Double().OpenDescriptors().empty());
    EXPECT_EQ(0, OpenWriters());
}

}  // namespace
}  // namespace zd::test
