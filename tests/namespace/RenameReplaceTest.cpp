// Slot 10 with replacing: what stands under the new name is removed first.
#include <algorithm>

#include "NamespaceFixture.h"

namespace zd::test {
namespace {

class CRenameReplaceTest : public CNamespaceTest {
protected:
    void SetUp() override {
        CNamespaceTest::SetUp();
        Double().MakeFile("pool/a", "mine");
        m_handle = Open(L"\\a");
    }

    DWORD Replace(const std::wstring& newName) {
        ::SetLastError(0);  // an old one would be told by the open within
        return m_manager->ZdRenameFile(m_handle, newName.c_str(), 1);
    }
    std::wstring NameOf(Handle handle) {
        FileInformation information{};
        EXPECT_EQ(0U, m_manager->ZdQueryFileInfo(handle, &information));
        ClearLogs();
        return information.name;
    }

    Handle m_handle = 0;
};

TEST_F(CRenameReplaceTest, ExistingFileIsOpenedAndDeletedFirst) {
    Double().MakeFile("pool/b", "theirs");
    TakeModified();
    ClearLogs();
    EXPECT_EQ(0U, Replace(L"\\b"));
    EXPECT_CALLS("ZdvfsStat(\"pool/b\") = 0",  //
                 "ZdvfsStat(\"pool/b\") = 0", "ZdvfsGetNTAclStr(\"pool/b\", 16384) = 0",
                 "ZdvfsGetDsidNTAclStr(\"pool/b\", 16384, 1) = 0", "ZdvfsOpen(\"pool/b\", 0x10000, 0x0) = 11",
                 "ZdvfsStat(\"pool/b\") = 0",
                 "ZdvfsStat(\"pool/b;F1\") = -1",                      //
                 "ZdvfsClose(11) = 0", "ZdvfsUnlink(\"pool/b\") = 0",  //
                 "ZdvfsRename(\"pool/a\", \"pool/b\") = 0");
    EXPECT_EQ("mine", Double().Bytes("pool/b"));
    EXPECT_EQ(L"\\b", NameOf(m_handle));
    EXPECT_TRUE(TakeModified());
    ExpectUsableElsewhere(m_handle);
}

TEST_F(CRenameReplaceTest, LinesAreThoseOfTheOpenAndTheCloseWithin) {
    Double().MakeFile("pool/b", "theirs");
    EXPECT_EQ(0U, Replace(L"\\b"));
    EXPECT_LOG({6, "ZdRenameFile Enter\n"},                                              //
               {6, "ZdCreateFile Enter \\b FileAttributes: 0  CreateDisposition: 1\n"},  //
               {6, "ZdCreateFile Exit       File created:   pool/b, handle: *\n"},       //
               {6, "ZdCloseFile Enter - handle: *\n"}, {6, "ZdCloseFile:    FileName= \\b\n"},
               {6, "CloseFileHandle Enter Fragment: 0, Handle Value: 11\n"}, {6, "CloseFileHandle: closeCount: 1\n"},
               {6, "ZdCloseFile Exit\n"}, {6, "ZdRenameFile Exit\n"});
}

TEST_F(CRenameReplaceTest, HandleOfTheRemovedTargetIsNoneAfterwards) {
    Double().MakeFile("pool/b", "theirs");
    EXPECT_EQ(0U, Replace(L"\\b"));
    Handle target = 0;
    const std::string before = "handle: ";
    for (const LogLine& line : TakeLog()) {
        const std::size_t at = line.text.find(before);
        if (line.text.starts_with("ZdCreateFile Exit") && at != std::string::npos) {
            target = std::stoull(line.text.substr(at + before.size()), nullptr, 16);
        }
    }
    ASSERT_NE(Handle{0}, target);
    ASSERT_NE(m_handle, target);
    FileInformation information{};
    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, m_manager->ZdQueryFileInfo(target, &information));
}

TEST_F(CRenameReplaceTest, MissingTargetLetsTheRenameProceed) {
    EXPECT_EQ(0U, Replace(L"\\b"));
    EXPECT_CALLS("ZdvfsStat(\"pool/b\") = -1",  //
                 "ZdvfsStat(\"pool/b\") = -1", "ZdvfsGetNTAclStr(\"pool/b\", 16384) = -1",
                 "ZdvfsGetDsidNTAclStr(\"pool/b\", 16384, 1) = -1",
                 "ZdvfsOpen(\"pool/b\", 0x10000, 0x0) = -1",  //
                 "ZdvfsRename(\"pool/a\", \"pool/b\") = 0");
    EXPECT_LOG({6, "ZdRenameFile Enter\n"}, {6, "ZdCreateFile Enter \\b FileAttributes: 0  CreateDisposition: 1\n"},
               {6, "ZdCreateFile Exit       File created:   pool/b, handle: 0000000000000000\n"},
               {6, "ZdRenameFile Exit\n"});
    EXPECT_EQ(L"\\b", NameOf(m_handle));
}

TEST_F(CRenameReplaceTest, AnyFlagButZeroReplaces) {
    for (const DWORD flag : {1U, 2U, 0x80000000U, 0xFFFFFFFFU}) {
        Double().MakeFile("pool/b", "theirs");
        EXPECT_EQ(0U, m_manager->ZdRenameFile(m_handle, L"\\b", flag)) << flag;
        EXPECT_EQ("mine", Double().Bytes("pool/b")) << flag;
        EXPECT_EQ(0U, m_manager->ZdRenameFile(m_handle, L"\\a", 0)) << flag;
    }
}

TEST_F(CRenameReplaceTest, AllFragmentsOfTheTargetAreRemoved) {
    MakeFragments("b", {10, 10, 10});
    EXPECT_EQ(0U, Replace(L"\\b"));
    EXPECT_EQ("mine", Double().Bytes("pool/b"));
    EXPECT_FALSE(Double().Exists("pool/b;F1"));
    EXPECT_FALSE(Double().Exists("pool/b;F2"));
}

TEST_F(CRenameReplaceTest, EmptyDirectoryIsRemovedAsADirectory) {
    Double().MakeDirectory("pool/b");
    EXPECT_EQ(0U, Replace(L"\\b"));
    EXPECT_CALLS("ZdvfsStat(\"pool/b\") = 0",  //
                 "ZdvfsStat(\"pool/b\") = 0", "ZdvfsGetNTAclStr(\"pool/b\", 16384) = 0",
                 "ZdvfsGetDsidNTAclStr(\"pool/b\", 16384, 1) = 0", "ZdvfsOpendirForList(\"pool/b\", 0) = dir2",
                 "ZdvfsStat(\"pool/b\") = 0",                               //
                 "ZdvfsClosedir(dir2) = 0", "ZdvfsUnlink(\"pool/b\") = 0",  //
                 "ZdvfsRename(\"pool/a\", \"pool/b\") = 0");
    EXPECT_EQ("mine", Double().Bytes("pool/b"));
}

TEST_F(CRenameReplaceTest, TargetThatCannotBeRemovedStopsTheRename) {
    Double().MakeFile("pool/full/x", "theirs");
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Replace(L"\\full"));
    EXPECT_TRUE(Double().Exists("pool/full/x"));
    Double().MakeFile("pool/b", "theirs");
    Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/b").Fails(EACCES));
    ClearLogs();
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Replace(L"\\b")) << "the removal's own error is ignored";
    EXPECT_EQ("theirs", Double().Bytes("pool/b"));
    for (const LogLine& line : TakeLog()) EXPECT_LT(1U, line.level) << line.text;
    EXPECT_EQ(L"\\a", NameOf(m_handle));
    Close(m_handle);
    EXPECT_TRUE(Double().OpenDescriptors().empty());
}

TEST_F(CRenameReplaceTest, TargetThatCannotBeOpenedStopsTheRename) {
    Double().MakeFile("pool/b", "theirs");
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/b").Fails(EACCES));
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Replace(L"\\b"));
    EXPECT_EQ("theirs", Double().Bytes("pool/b"));
    EXPECT_EQ(L"\\a", NameOf(m_handle));
}

TEST_F(CRenameReplaceTest, CallerMustBeGrantedTheRightToDelete) {
    static constexpr struct {
        const char* granted;
        bool isRemoved;
    } kRows[] = {{"(A;;0x1f01ff;;;S-1-5-21-1-2-3-1000)", false},  // to somebody else
                 {"(A;;0x1;;;WD)", false},
                 {"(A;;0x1effff;;;WD)", false},  // all but that
                 {"(A;;0x10000;;;WD)", true}};
    const CImpersonation impersonation;
    for (const auto& row : kRows) {
        Double().MakeFile("pool/b", "theirs");
        NodeState state = Double().State("pool/b");
        state.sddl = std::string("O:S-1-5-21-1-2-3-1000G:S-1-5-21-1-2-3-1000D:") + row.granted;
        ASSERT_TRUE(Double().SetState("pool/b", state));
        ClearLogs();
        if (row.isRemoved) {
            EXPECT_EQ(0U, Replace(L"\\b")) << row.granted;
            EXPECT_EQ("mine", Double().Bytes("pool/b")) << row.granted;
        } else {
            EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Replace(L"\\b")) << row.granted;
            EXPECT_CALLS("ZdvfsStat(\"pool/b\") = 0",  //
                         "ZdvfsStat(\"pool/b\") = 0", "ZdvfsGetNTAclStr(\"pool/b\", 16384) = 0",
                         "ZdvfsRename(\"pool/a\", \"pool/b\") = -1");
            EXPECT_EQ("theirs", Double().Bytes("pool/b")) << row.granted;
        }
    }
}

TEST_F(CRenameReplaceTest, FailedStatusCountsAsAFile) {
    Double().MakeDirectory("pool/b");
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/b").OnNth(1).Fails(EIO));
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Replace(L"\\b"));
    EXPECT_EQ(1, std::ranges::count_if(TakeCalls(), [](const std::string& call) {
                  return call.starts_with("ZdvfsOpen(\"pool/b\", 0x10000, 0x0) = -1");
              }));
}

TEST_F(CRenameReplaceTest, NameThatOtherHandlesHoldDoesNotFailTheRenameAndStaysTheRenamedFiles) {
    Double().MakeFile("pool/b", "theirs");
    const Handle holder = Open(L"\\b");
    EXPECT_EQ(0U, Replace(L"\\b"));
    EXPECT_EQ(L"\\b", NameOf(m_handle));
    Close(holder);
    // Had the holder's release taken the entry away, this handle would have a name of its own.
    const Handle later = Open(L"\\b");
    EXPECT_EQ(0U, m_manager->ZdRenameFile(m_handle, L"\\c", 0));
    EXPECT_EQ(L"\\c", NameOf(later));
}

TEST_F(CRenameReplaceTest, FailureAfterTheRemovalKeepsTheOldName) {
    Double().MakeFile("pool/b", "theirs");
    Double().Add(OnCall("ZdvfsRename").Fails(EIO));
    EXPECT_EQ(DWORD{ERROR_IO_DEVICE}, Replace(L"\\b"));
    EXPECT_EQ(L"\\a", NameOf(m_handle));
    EXPECT_EQ("mine", Double().Bytes("pool/a"));
    ExpectUsableElsewhere(m_handle);
}

TEST_F(CRenameReplaceTest, ExceptionInTheStatusOfTheTargetIsReported) {
    Double().MakeFile("pool/b", "theirs");
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/b").OnNth(1).Throws(EThrow::kBadAlloc));
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, Replace(L"\\b"));
    EXPECT_LOG({6, "ZdRenameFile Enter\n"}, {1, "ZdRenameFile:   ERROR:  Not Enough Memory, dwError Code:    8\n"},
               {6, "ZdRenameFile Exit\n"});
    EXPECT_EQ("theirs", Double().Bytes("pool/b"));
    ExpectUsableElsewhere(m_handle);
}

TEST_F(CRenameReplaceTest, CountOfWritersStaysBalanced) {
    Double().MakeFile("pool/b", "theirs");
    const Handle writer = Open(L"\\a", kOpenToWrite);
    EXPECT_EQ(0U, m_manager->ZdRenameFile(writer, L"\\b", 1));
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(writer, 0));
    EXPECT_TRUE(Logged(TakeLog(), 6,
                       "CloseFileHandle: found direct-io/write-only/read-write file - m_OpenFlags:*, "
                       "m_OpenDirectIOorWriteFiles: 0\n"));
}

}  // namespace
}  // namespace zd::test
