// What a process that dies in the middle of a change leaves, put on disk by hand and by killing one.
#include "LocalFixture.h"

namespace zd::test {
namespace {

const std::string kStray = "zdvfs metadata 1\nattributes=00000026\ncreated=5\nsddl=O:SYstray\nend\n";

class Crash : public LocalEngine {};

TEST_F(Crash, StraySidecarIsNotBelievedByANewFile) {
    WriteDiskFile(OnDisk(L"%m.f"), kStray);
    EXPECT_FALSE(Exists("pool/f"));
    EXPECT_TRUE(NamesOf("pool").empty());
    WriteText("pool/f", "x");
    EXPECT_EQ("", DescriptorOf("pool/f"));
    EXPECT_EQ(0, StatOf("pool/f").attributes);
    EXPECT_NE(5, StatOf("pool/f").creationTime);
}

TEST_F(Crash, StraySidecarIsNotBelievedByANewDirectory) {
    WriteDiskFile(OnDisk(L"%m.d"), kStray);
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 2));
    EXPECT_EQ("", DescriptorOf("pool/d"));
    EXPECT_EQ(0x12, StatOf("pool/d").attributes);
}

TEST_F(Crash, StraySidecarIsNotBelievedByARenamedFile) {
    WriteDiskFile(OnDisk(L"%m.to"), kStray);
    WriteText("pool/from", "x");
    ASSERT_EQ(0, ZdvfsRename("pool/from", "pool/to"));
    EXPECT_EQ("", DescriptorOf("pool/to"));
    WriteDiskFile(OnDisk(L"%m.last"), kStray);
    WriteDiskFile(OnDisk(L"foreign"), "x");
    ASSERT_EQ(0, ZdvfsRename("pool/foreign", "pool/last"));
    EXPECT_EQ("", DescriptorOf("pool/last"));
}

TEST_F(Crash, StraysDoNotKeepADirectory) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    WriteDiskFile(OnDisk(L"d\\%m.gone"), kStray);
    EXPECT_EQ(0, ZdvfsUnlink("pool/d"));
    EXPECT_FALSE(Exists("pool/d"));
}

TEST_F(Crash, RenameStoppedBeforeTheMoveIsUndone) {
    WriteText("pool/a", "x");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/a", "O:BA"));
    ASSERT_TRUE(::CopyFileW(OnDisk(L"%m.a").c_str(), OnDisk(L"%m.b").c_str(), TRUE));
    Remount();
    EXPECT_EQ(std::vector<std::string>{"a"}, NamesOf("pool"));
    EXPECT_EQ("O:BA", DescriptorOf("pool/a"));
    WriteText("pool/b", "new");
    EXPECT_EQ("", DescriptorOf("pool/b"));
}

TEST_F(Crash, RenameStoppedAfterTheMoveIsDone) {
    WriteText("pool/a", "x");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/a", "O:BA"));
    ASSERT_TRUE(::CopyFileW(OnDisk(L"%m.a").c_str(), OnDisk(L"%m.b").c_str(), TRUE));
    ASSERT_TRUE(::MoveFileW(OnDisk(L"a").c_str(), OnDisk(L"b").c_str()));
    Remount();
    EXPECT_EQ(std::vector<std::string>{"b"}, NamesOf("pool"));
    EXPECT_EQ("O:BA", DescriptorOf("pool/b"));
    WriteText("pool/a", "new");
    EXPECT_EQ("", DescriptorOf("pool/a"));
}

TEST_F(Crash, HalfWrittenFilesAreClearedAtMount) {
    WriteText("pool/f", "x");
    WriteDiskFile(OnDisk(L"%pool\\tmp\\half"), "zdvfs meta");
    WriteDiskFile(OnDisk(L"%pool\\trash\\removed"), "data");
    ASSERT_TRUE(::CreateDirectoryW(OnDisk(L"%pool\\trash\\dir").c_str(), nullptr));
    WriteDiskFile(OnDisk(L"%pool\\trash\\dir\\%m.x"), kStray);
    Remount();
    EXPECT_FALSE(DiskHas(OnDisk(L"%pool\\tmp\\half")));
    EXPECT_FALSE(DiskHas(OnDisk(L"%pool\\trash\\removed")));
    EXPECT_FALSE(DiskHas(OnDisk(L"%pool\\trash\\dir")));
    EXPECT_EQ(std::vector<std::string>{"f"}, NamesOf("pool"));
}

int RenameForever(const std::string&) {
    for (int i = 0;; ++i) {
        ZdvfsRename("pool/a", "pool/b");
        ZdvfsRename("pool/b", "pool/a");
        if (i == 3) WriteText("pool/under-way", "");
    }
}
const ChildTaskRegistration kRenameForever("rename-forever", &RenameForever);

TEST_F(Crash, KilledRenamesNeverLoseTheDescriptorNorTheLock) {
    WriteText("pool/a", "data");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/a", "O:BA"));
    for (DWORD round = 0; round < 12; ++round) {
        CChild child(L"rename-forever");
        for (int tries = 0; tries < 2000 && !Exists("pool/under-way"); ++tries) ::Sleep(5);
        ASSERT_EQ(0, ZdvfsUnlink("pool/under-way"));
        // It dies at a moment of a rename that differs from round to round.
        ::Sleep(round * 3);
        child.Kill();
        const std::vector<std::string> names = NamesOf("pool");
        ASSERT_EQ(1u, names.size());
        const std::string path = "pool/" + names[0];
        EXPECT_EQ("data", ReadText(path.c_str()));
        EXPECT_EQ("O:BA", DescriptorOf(path.c_str()));
    }
    // The pool still takes changes, so no lock stayed with the dead.
    EXPECT_EQ(0, ZdvfsMkdir("pool/after", 0));
    EXPECT_EQ(2u, NamesOf("pool").size());
}

}  // namespace
}  // namespace zd::test
