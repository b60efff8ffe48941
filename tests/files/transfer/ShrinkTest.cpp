// Setting a smaller size.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CShrinkTest : public CConnectedFilesTest {};

TEST_F(CShrinkTest, FromTwoAndAHalfToOneFragmentRemovesTheOthersFromTheEnd) {
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDE"});
    EXPECT_EQ(1U, Read(handle, 20, 1).count);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 10));
    EXPECT_CALLS("ZdvfsFtruncate(10, 10) = 0", "ZdvfsUnlink(\"pool/a;F2\") = 0", "ZdvfsClose(11) = 0",
                 "ZdvfsUnlink(\"pool/a;F1\") = 0");
    EXPECT_LOG({6, "ZdSetFileSize Enter\n"}, {6, "ZdSetFileSize Exit\n"});
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123456789"));
    EXPECT_EQ(0U, Read(handle, 10, 10).count);
    Close(handle);
}

TEST_F(CShrinkTest, ToNothingLeavesAnEmptyFragmentZero) {
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDE"});
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 0));
    EXPECT_CALLS("ZdvfsFtruncate(10, 0) = 0", "ZdvfsUnlink(\"pool/a;F2\") = 0", "ZdvfsUnlink(\"pool/a;F1\") = 0");
    EXPECT_THAT(Stored(), ::testing::ElementsAre(""));
    EXPECT_FALSE(Double().Exists("pool/a;F2"));
    EXPECT_EQ(0U, Read(handle, 0, 10).count);
    Close(handle);
}

TEST_F(CShrinkTest, TheNewLastFragmentIsOpenedToBeCut) {
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDEFGHIJ", "tail"});
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 13));
    EXPECT_CALLS("ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11",
                 "ZdvfsFtruncate(11, 3) = 0", "ZdvfsUnlink(\"pool/a;F3\") = 0", "ZdvfsUnlink(\"pool/a;F2\") = 0");
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123456789", "abc"));
    Close(handle);
}

TEST_F(CShrinkTest, EachSizeLeavesExactlyTheBytesBeforeIt) {
    const std::string content = Pattern(35);
    for (std::size_t to = 0; to < content.size(); ++to) {
        SCOPED_TRACE(to);
        const Handle handle = OpenSized(10, content);
        ASSERT_EQ(0U, m_manager->ZdSetFileSize(handle, static_cast<std::int64_t>(to)));
        EXPECT_EQ(content.substr(0, to), StoredWhole());
        EXPECT_EQ(to == 0 ? 1U : (to + 9) / 10, Double().Names("pool").size());
        EXPECT_EQ(content.substr(0, to), Read(handle, 0, 100).data);
        // What is grown again reads as zero.
        ASSERT_EQ(0U, m_manager->ZdSetFileSize(handle, 35));
        EXPECT_EQ(content.substr(0, to) + std::string(35 - to, '\0'), StoredWhole());
        EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    }
}

TEST_F(CShrinkTest, AFailingTruncateFailsAndRemovesNothing) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{EACCES, 5}, {EIO, 1117}, {ENOSPC, 39}, {0, 1117}};
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDE"});
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.error);
        Double().Add(OnCall("ZdvfsFtruncate").Fails(row.error, 4711));
        EXPECT_EQ(row.code, m_manager->ZdSetFileSize(handle, 5));
        EXPECT_EQ(0U, Double().Count("ZdvfsUnlink"));
        Double().ClearRules();
        ExpectUsableElsewhere(handle);
        EXPECT_EQ("0123456789abcdefghijABCDE", Read(handle, 0, 100).data);
    }
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 5));
    EXPECT_THAT(Stored(), ::testing::ElementsAre("01234"));
    Close(handle);
}

TEST_F(CShrinkTest, AFailingOpenOfTheNewLastFragmentFailsAndRemovesNothing) {
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDE"});
    Double().Add(OnCall("ZdvfsOpen").Fails(EACCES));
    EXPECT_EQ(5U, m_manager->ZdSetFileSize(handle, 15));
    EXPECT_EQ("0123456789abcdefghijABCDE", StoredWhole());
    Close(handle);
}

TEST_F(CShrinkTest, AFailingRemovalIsIgnored) {
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDE"});
    Double().Add(OnCall("ZdvfsUnlink").ForPath("pool/a;F2").Fails(EBUSY));
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 5));
    EXPECT_FALSE(Double().Exists("pool/a;F1"));
    EXPECT_EQ("01234", Read(handle, 0, 100).data);
    Close(handle);
}

TEST_F(CShrinkTest, AShrunkFileGrowsByWritingAsBefore) {
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDE"});
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 7));
    EXPECT_EQ(87U, Write(handle, 20, "x").code);
    EXPECT_EQ(0U, Write(handle, 10, "xyz").code);
    EXPECT_EQ("0123456" + std::string(3, '\0') + "xyz", StoredWhole());
    Close(handle);
}

TEST_F(CShrinkTest, AReaderRemovesNoFragment) {
    const Handle handle = Open({"0123456", "7"}, "a", kOpenToRead);
    // This storage would take it, because fragment 0 has that length.
    Double().Add(OnCall("ZdvfsFtruncate").Answers(0));
    EXPECT_EQ(DWORD{ERROR_ACCESS_DENIED}, m_manager->ZdSetFileSize(handle, 7));
    EXPECT_CALLS();
    EXPECT_EQ("01234567", StoredWhole());
    ExpectUsableElsewhere(handle);
}

}  // namespace
}  // namespace zd::test
