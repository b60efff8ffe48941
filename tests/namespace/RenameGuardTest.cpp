// Slot 10: what a rename must not reach. Names that differ in case, parts of files, removed objects, other handles.
#include <functional>
#include <thread>

#include "NamespaceFixture.h"

namespace zd::test {
namespace {

class CRenameGuardTest : public CNamespaceTest {
protected:
    DWORD Rename(Handle handle, const std::wstring& newName, DWORD replace = 0) {
        ::SetLastError(0);
        return m_manager->ZdRenameFile(handle, newName.c_str(), replace);
    }
    // Closes with removal and makes another object under the name.
    Handle Deleted(const std::wstring& name, const CreateOptions& options = kOpenToWrite) {
        const Handle handle = Open(name, options);
        EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
        return handle;
    }
    void SetSddl(const std::string& path, const std::string& sddl) {
        NodeState state = Double().State(path);
        state.sddl = sddl;
        ASSERT_TRUE(Double().SetState(path, state));
    }
};

TEST_F(CRenameGuardTest, ReplaceByAnotherSpellingOfTheOldNameRemovesNeither) {
    Double().MakeFile("pool/a.txt", "mine");
    Double().MakeFile("pool/A.txt", "theirs");
    const Handle handle = Open(L"\\a.txt", kOpenToWrite);
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Rename(handle, L"\\A.txt", 1)) << "the storage decides";
    EXPECT_EQ("mine", Double().Bytes("pool/a.txt"));
    EXPECT_EQ("theirs", Double().Bytes("pool/A.txt"));
    ExpectUsableElsewhere(handle);
}

TEST_F(CRenameGuardTest, ReplaceDoesNotRemoveWhatAnotherHandleHoldsUnderAnotherSpelling) {
    Double().MakeFile("pool/t", "mine");
    Double().MakeFile("pool/B.TXT", "held");
    Double().MakeFile("pool/b.txt", "target");
    const Handle holder = Open(L"\\B.TXT");
    const Handle handle = Open(L"\\t", kOpenToWrite);
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Rename(handle, L"\\b.txt", 1));
    EXPECT_EQ("held", Double().Bytes("pool/B.TXT"));
    EXPECT_EQ("target", Double().Bytes("pool/b.txt"));
    EXPECT_EQ("mine", Double().Bytes("pool/t"));
    Close(holder);
    EXPECT_EQ(0U, Rename(handle, L"\\b.txt", 1));
    EXPECT_EQ("mine", Double().Bytes("pool/b.txt"));
}

TEST_F(CRenameGuardTest, PartDoesNotReplaceItsFile) {
    MakeFragments("c", {10, 4});
    const Handle part = Open(L"\\c;F1", kOpenToWrite);
    EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, Rename(part, L"\\c", 1));
    EXPECT_EQ(DWORD{ERROR_INVALID_NAME}, Rename(part, L"\\.\\c", 1));
    EXPECT_EQ(10, Double().State("pool/c").size);
    EXPECT_EQ(4, Double().State("pool/c;F1").size);
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, Rename(part, L"\\c"));
}

TEST_F(CRenameGuardTest, DirectoryMayTakeANameOfFragmentShape) {
    Double().MakeDirectory("pool/d");
    const Handle handle = Open(L"\\d", kOpenDirectory);
    EXPECT_EQ(0U, Rename(handle, L"\\d;F1"));
    EXPECT_TRUE(Double().Exists("pool/d;F1"));
}

TEST_F(CRenameGuardTest, NameOfAPartTakesTheAccessThatTheWholeFileGrants) {
    Double().MakeFile("pool/victim", "whole");
    Double().MakeFile("pool/mine", "mine");
    SetSddl("pool/victim", "O:S-1-5-21-1-2-3-4G:S-1-5-21-1-2-3-4D:(A;;0x1;;;WD)");
    const Handle handle = Open(L"\\mine", kOpenToWrite);
    {
        const CImpersonation caller;
        EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Rename(handle, L"\\victim;F1", 1));
        EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Rename(handle, L"\\x\\..\\victim;F1"));
    }
    EXPECT_FALSE(Double().Exists("pool/victim;F1"));
    SetSddl("pool/victim", "O:S-1-5-21-1-2-3-4G:S-1-5-21-1-2-3-4D:(A;;0x3;;;WD)");
    const CImpersonation caller;
    EXPECT_EQ(0U, Rename(handle, L"\\victim;F1"));
    EXPECT_EQ("mine", Double().Bytes("pool/victim;F1"));
}

TEST_F(CRenameGuardTest, DirectoryTakesTheNameOfAPartOnlyWithThatAccess) {
    Double().MakeFile("pool/victim", "whole");
    Double().MakeDirectory("pool/d");
    SetSddl("pool/victim", "O:S-1-5-21-1-2-3-4G:S-1-5-21-1-2-3-4D:(A;;0x1;;;WD)");
    const Handle handle = Open(L"\\d", kOpenDirectory);
    const CImpersonation caller;
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Rename(handle, L"\\victim;F1"));
    EXPECT_TRUE(Double().Exists("pool/d"));
}

TEST_F(CRenameGuardTest, StatusOfTheWholeFileThatFailsStopsTheRename) {
    Double().MakeFile("pool/victim", "whole");
    Double().MakeFile("pool/mine", "mine");
    const Handle handle = Open(L"\\mine", kOpenToWrite);
    Double().Add(OnCall("ZdvfsStat").ForPath("pool/victim").Fails(EACCES));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, Rename(handle, L"\\victim;F1"));
    EXPECT_FALSE(Double().Exists("pool/victim;F1"));
}

TEST_F(CRenameGuardTest, NameOfAPartBehindNoFileIsANameLikeAnyOther) {
    Double().MakeDirectory("pool/d");
    SetSddl("pool/d", "O:S-1-5-21-1-2-3-4G:S-1-5-21-1-2-3-4D:(A;;0x1;;;WD)");
    Double().MakeFile("pool/mine", "mine");
    const Handle handle = Open(L"\\mine", kOpenToWrite);
    const CImpersonation caller;
    EXPECT_EQ(0U, Rename(handle, L"\\d;F1")) << "behind a directory";
    EXPECT_EQ("mine", Double().Bytes("pool/d;F1"));
    for (const int error : {ENOENT, ENOTDIR}) {
        Double().Add(OnCall("ZdvfsStat").ForPath("pool/d").Fails(error));
        ClearLogs();
        EXPECT_EQ(0U, Rename(handle, error == ENOENT ? L"\\d;F2" : L"\\d;F3"));
        EXPECT_CALLS("ZdvfsStat(\"pool/d\") = -1", "ZdvfsRename(\"pool/d;F*\", \"pool/d;F*\") = 0");
        Double().ClearRules();
    }
    EXPECT_EQ("mine", Double().Bytes("pool/d;F3"));
}

TEST_F(CRenameGuardTest, NameOfAPartIsFreeWhereTheWholeFileHasNoDescriptor) {
    Double().MakeFile("pool/victim", "whole");
    Double().MakeFile("pool/mine", "mine");
    const Handle handle = Open(L"\\mine", kOpenToWrite);
    const CImpersonation caller;
    EXPECT_EQ(0U, Rename(handle, L"\\victim;F1"));
    EXPECT_CALLS("ZdvfsStat(\"pool/victim\") = 0", "ZdvfsGetNTAclStr(\"pool/victim\", 16384) = 0",
                 "ZdvfsGetDsidNTAclStr(\"pool/victim\", 16384, 1) = 0",
                 "ZdvfsRename(\"pool/mine\", \"pool/victim;F1\") = 0");
}

TEST_F(CRenameGuardTest, DescriptorOfTheWholeFileThatCannotBeReadStopsTheRename) {
    Double().MakeFile("pool/victim", "whole");
    Double().MakeFile("pool/mine", "mine");
    const Handle handle = Open(L"\\mine", kOpenToWrite);
    Double().Add(OnCall("ZdvfsGetNTAclStr").ForPath("pool/victim").Fails(EIO));
    Double().Add(OnCall("ZdvfsGetDsidNTAclStr").ForPath("pool/victim").Fails(EBUSY));
    EXPECT_EQ(DWORD{ERROR_BUSY}, Rename(handle, L"\\victim;F1", 1));
    EXPECT_CALLS("ZdvfsStat(\"pool/victim\") = 0", "ZdvfsGetNTAclStr(\"pool/victim\", 16384) = -1",
                 "ZdvfsGetDsidNTAclStr(\"pool/victim\", 16384, 1) = -1");
    EXPECT_FALSE(Double().Exists("pool/victim;F1"));
    ExpectUsableElsewhere(handle);
}

TEST_F(CRenameGuardTest, ReplaceReachesALongerPathThatIsNotBelow) {
    Double().MakeFile("pool/a", "mine");
    Double().MakeFile("pool/d/x", "theirs");
    const Handle handle = Open(L"\\a", kOpenToWrite);
    EXPECT_EQ(0U, Rename(handle, L"\\d\\x", 1));
    EXPECT_EQ("mine", Double().Bytes("pool/d/x"));
    EXPECT_FALSE(Double().Exists("pool/a"));
}

TEST_F(CRenameGuardTest, TrailingSeparatorsOfAFilesNewNameAreNoPartOfIt) {
    MakeFragments("f", {10, 4});
    const Handle handle = Open(L"\\f", kOpenToWrite);
    EXPECT_EQ(0U, Rename(handle, L"\\g\\/"));
    EXPECT_CALLS("ZdvfsRename(\"pool/f\", \"pool/g\") = 0", "ZdvfsRename(\"pool/f;F1\", \"pool/g;F1\") = 0");
    EXPECT_EQ(0U, Rename(handle, L"\\g\\")) << "its own name";
    EXPECT_CALLS();
}

TEST_F(CRenameGuardTest, NothingBelowADirectoryIsRemovedForIt) {
    Double().MakeFile("pool/d/x", "inside");
    const Handle handle = Open(L"\\d", kOpenDirectory);
    EXPECT_NE(0U, Rename(handle, L"\\d\\x", 1));
    EXPECT_EQ("inside", Double().Bytes("pool/d/x"));
}

TEST_F(CRenameGuardTest, RemovedFilesHandleDoesNotReachANewFileOfTheName) {
    Double().MakeFile("pool/d", "old");
    const Handle handle = Deleted(L"\\d");
    Double().MakeFile("pool/d", "stranger");
    Double().MakeFile("pool/e", "kept");
    ClearLogs();
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Rename(handle, L"\\e", 1));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdSetFileBasicInfo(handle, 0, 0, 0, 0, FILE_ATTRIBUTE_HIDDEN));
    EXPECT_CALLS();
    EXPECT_EQ("kept", Double().Bytes("pool/e"));
    std::thread([&] { EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0)); }).join();
}

TEST_F(CRenameGuardTest, RemovedDirectorysHandleTellsNothingOfANewObjectOfTheName) {
    Double().MakeDirectory("pool/d");
    const Handle handle = Deleted(L"\\d", kOpenDirectory);
    Double().MakeFile("pool/d", "stranger");
    ClearLogs();
    FileInformation information{};
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdQueryFileInfo(handle, &information));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdSetFileBasicInfo(handle, 0, 0, 0, 0, FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Rename(handle, L"\\e"));
    EXPECT_CALLS();
}

// ---- Handles of a file that a rename has replaced ----

class CReplacedFileTest : public CRenameGuardTest {
protected:
    void SetUp() override {
        CRenameGuardTest::SetUp();
        Double().MakeFile("pool/a", "mine");
        Double().MakeFile("pool/b", "theirs");
        m_holder = Open(L"\\b", kOpenToWrite);
        m_handle = Open(L"\\a", kOpenToWrite);
        ASSERT_EQ(0U, Rename(m_handle, L"\\b", 1));
        ClearLogs();
    }

    Handle m_holder = 0;
    Handle m_handle = 0;
};

TEST_F(CReplacedFileTest, AreNotClosedWithRemovalOfTheNewOne) {
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdCloseFile(m_holder, 1));
    EXPECT_EQ("mine", Double().Bytes("pool/b"));
}

TEST_F(CReplacedFileTest, UseWhatTheyHaveOpenAndNothingElse) {
    EXPECT_EQ("theirs", Read(m_holder, 0, 10).data);
    EXPECT_EQ(0U, m_manager->ZdCloseFile(m_holder, 0));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Write(m_holder, 0, "late").code);
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Read(m_holder, 0, 10).code);
    EXPECT_EQ("mine", Double().Bytes("pool/b"));
}

TEST_F(CReplacedFileTest, ChangeNoAttributesNoNameAndNoDescriptorOfTheNewOne) {
    const CDescriptor descriptor("O:BAG:BAD:(A;;FA;;;WD)");
    EXPECT_EQ(0U, m_manager->ZdCloseFile(m_holder, 0));
    ClearLogs();
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdSetFileBasicInfo(m_holder, 0, 0, 0, 0, FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Rename(m_holder, L"\\c"));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdSetSecurity(m_holder, 0, descriptor.Raw()));
    EXPECT_CALLS();
    EXPECT_TRUE(Double().Exists("pool/b"));
}

TEST_F(CReplacedFileTest, DoNotStandInTheWayOfNewHandles) {
    const Handle later = Open(L"\\b", kOpenToWrite);
    EXPECT_EQ(0U, m_manager->ZdCloseFile(later, 0));
    EXPECT_EQ(0U, Write(later, 0, "MINE").code) << "reopened by its name";
    EXPECT_EQ("MINE", Double().Bytes("pool/b"));
    EXPECT_EQ(0U, Rename(later, L"\\c"));
    EXPECT_EQ(0U, Rename(m_handle, L"\\c")) << "both are handles of the renamed file";
}

TEST_F(CReplacedFileTest, CountAsReplacedWhereTheRemovalStopsMidway) {
    MakeFragments("c", {10, 4});
    const Handle old = Open(L"\\c", kOpenToWrite);
    ASSERT_EQ(0U, m_manager->ZdCloseFile(old, 0));
    Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/c;F1").Fails(EACCES));
    EXPECT_EQ(0U, Rename(m_handle, L"\\c", 1));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, Write(old, 0, "late").code);
    EXPECT_EQ("mine", Double().Bytes("pool/c"));
}

// ---- A rename beside another one ----

class COvertakenRenameTest : public CRenameGuardTest {
protected:
    void SetUp() override {
        CRenameGuardTest::SetUp();
        Double().MakeFile("pool/a", "mine");
        Double().MakeFile("pool/b", "theirs");
        m_first = Open(L"\\a", kOpenToWrite);
        m_second = Open(L"\\a", kOpenToWrite);
    }
    // What another thread does by the second handle while the first one's target is being removed: the target is held
    // then, the file is not yet.
    std::function<void(const Call&)> Overtaking(const wchar_t* newName) {
        return [this, newName](const Call&) { std::thread([&] { EXPECT_EQ(0U, Rename(m_second, newName)); }).join(); };
    }

    Handle m_first = 0;
    Handle m_second = 0;
};

TEST_F(COvertakenRenameTest, GoesOnFromTheNewName) {
    Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/b").Before(Overtaking(L"\\c")));
    EXPECT_EQ(0U, Rename(m_first, L"\\b", 1));
    EXPECT_EQ("mine", Double().Bytes("pool/b"));
    EXPECT_FALSE(Double().Exists("pool/a"));
    EXPECT_FALSE(Double().Exists("pool/c"));
    EXPECT_EQ("mine", Read(m_second, 0, 10).data);
}

TEST_F(COvertakenRenameTest, IsDoneWhereTheOtherOneHadTheSameTarget) {
    Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/b").After(Overtaking(L"\\b")));
    EXPECT_EQ(0U, Rename(m_first, L"\\b", 1));
    EXPECT_EQ("mine", Double().Bytes("pool/b"));
    EXPECT_FALSE(Double().Exists("pool/a"));
    EXPECT_EQ(0U, Rename(m_first, L"\\c")) << "the file is still that of both handles";
    EXPECT_EQ("mine", Double().Bytes("pool/c"));
}

// ---- A rename beside a reopening ----

TEST_F(CRenameGuardTest, FragmentReopenedDuringARenameIsThatOfTheNewName) {
    Double().MakeFile("pool/a", "hello");
    const Handle renamer = Open(L"\\a", kOpenToWrite);
    const Handle writer = Open(L"\\a", kOpenToWrite);
    ASSERT_EQ(0U, m_manager->ZdCloseFile(writer, 0));
    std::thread late;
    // The storage has renamed the file, the handles do not know of it yet.
    Double().Add(OnCall("ZdvfsRename").OnNth(1).After([&](const Call&) {
        late = std::thread([&] { EXPECT_EQ(0U, Write(writer, 0, "HELLO").code); });
        ::Sleep(100);
    }));
    EXPECT_EQ(0U, Rename(renamer, L"\\b"));
    late.join();
    EXPECT_EQ("HELLO", Double().Bytes("pool/b"));
    EXPECT_FALSE(Double().Exists("pool/a"));
}

}  // namespace
}  // namespace zd::test
