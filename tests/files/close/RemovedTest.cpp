// A handle whose file was removed through it: the name may be somebody else's by now.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CRemovedTest : public CConnectedFilesTest {
protected:
    // A handle on the removed file of two fragments; another file stands under its name again.
    Handle RemovedAndMadeAnew() {
        const Handle handle = Open({"0123456789", "rest"});
        EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
        Double().MakeFile("pool/a", "another's");
        ClearLogs();
        return handle;
    }
    void TearDown() override {
        EXPECT_EQ("another's", Double().Bytes("pool/a"));
        CConnectedFilesTest::TearDown();
    }
};

TEST_F(CRemovedTest, RemovingAgainLeavesANewFileOfThatName) {
    const Handle handle = RemovedAndMadeAnew();
    EXPECT_EQ(2U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_CALLS();
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CRemovedTest, SecurityOfANewFileOfThatNameIsNotTouched) {
    const Handle handle = RemovedAndMadeAnew();
    PSECURITY_DESCRIPTOR read = nullptr;
    EXPECT_EQ(2U, m_manager->ZdGetSecurity(handle, 0xF, &read));
    EXPECT_EQ(nullptr, read);
    const CDescriptor descriptor("O:BAG:BAD:(A;;0x3;;;WD)");
    EXPECT_EQ(2U, m_manager->ZdSetSecurity(handle, 0xF, descriptor.Raw()));
    EXPECT_CALLS();
    EXPECT_EQ("", Double().State("pool/a").sddl);
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CRemovedTest, EveryDataOperationFails) {
    const Handle handle = RemovedAndMadeAnew();
    EXPECT_EQ(2U, Read(handle, 0, 0).code);
    EXPECT_EQ(2U, Read(handle, 0, 4).code);
    EXPECT_EQ(2U, Write(handle, 0, "").code);
    EXPECT_EQ(2U, Write(handle, 0, "x").code);
    EXPECT_EQ(2U, m_manager->ZdSetFileSize(handle, 14));
    EXPECT_EQ(2U, m_manager->ZdAppendFile(handle, handle, 0, 0, 0));
    EXPECT_CALLS();
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

TEST_F(CRemovedTest, RemovalThatStoppedGoesOnWhereItStopped) {
    const Handle handle = Open({"0123456789", "rest"});
    Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/a;F1").OnNth(1).Fails(EACCES));
    EXPECT_EQ(5U, m_manager->ZdCloseFile(handle, 1));
    Double().MakeFile("pool/a", "another's");
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
    EXPECT_CALLS("ZdvfsUnlink(\"pool/a;F1\") = 0");
    EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
}

}  // namespace
}  // namespace zd::test
