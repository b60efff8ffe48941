// Setting a larger size.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CGrowTest : public CConnectedFilesTest {};

std::string Zeros(std::size_t count) {
    return std::string(count, '\0');
}

TEST_F(CGrowTest, SameSizeChangesNothing) {
    const Handle handle = Open({"0123456789", "abc"});
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 13));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdSetFileSize Enter\n"}, {6, "ZdSetFileSize Exit\n"});
    Close(handle);
    const Handle empty = OpenSized(10, "", "empty");
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(empty, 0));
    EXPECT_CALLS();
    Close(empty);
}

TEST_F(CGrowTest, FromNothingToTwoAndAHalfFragmentsFillsTwoAndMakesAHalf) {
    const Handle handle = OpenSized(10, "");
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 25));
    EXPECT_CALLS("ZdvfsFtruncate(10, 10) = 0", "ZdvfsStat(\"pool/a;F1\") = -1",
                 "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11", "ZdvfsFtruncate(11, 10) = 0",
                 "ZdvfsStat(\"pool/a;F2\") = -1", "ZdvfsOpen(\"pool/a;F2\", 0x102, 0x0) = 12",
                 "ZdvfsFtruncate(12, 5) = 0");
    EXPECT_THAT(Stored(), ::testing::ElementsAre(Zeros(10), Zeros(10), Zeros(5)));
    EXPECT_EQ(25U, TotalSize());
    Close(handle);
}

TEST_F(CGrowTest, EachSizeMakesExactlyTheFragmentsItNeeds) {
    for (std::size_t from = 0; from <= 31; from += 1) {
        for (const std::size_t to : {from + 1, from + 5, from + 10, from + 20, std::size_t{60}}) {
            SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
            const std::string content = Pattern(from);
            const Handle handle = OpenSized(10, content);
            ASSERT_EQ(0U, m_manager->ZdSetFileSize(handle, static_cast<std::int64_t>(to)));
            const std::vector<std::string> stored = Stored();
            EXPECT_EQ((to + 9) / 10, stored.size());
            for (std::size_t i = 0; i + 1 < stored.size(); ++i) EXPECT_EQ(10U, stored[i].size());
            EXPECT_EQ(content + Zeros(to - from), StoredWhole());
            EXPECT_EQ(content + Zeros(to - from), Read(handle, 0, 100).data);
            EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
            EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
        }
    }
}

TEST_F(CGrowTest, InsideTheLastFragmentOnlyThatOneIsTouched) {
    const Handle handle = Open({"0123456789", "abc"});
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 17));
    EXPECT_CALLS("ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11",
                 "ZdvfsFtruncate(11, 7) = 0");
    EXPECT_EQ("0123456789abc" + Zeros(4), StoredWhole());
    Close(handle);
}

TEST_F(CGrowTest, FromAFullFragmentTheNextOneIsAdded) {
    const Handle handle = OpenSized(10, "0123456789");
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 11));
    EXPECT_CALLS("ZdvfsFtruncate(10, 10) = 0", "ZdvfsStat(\"pool/a;F1\") = -1",
                 "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11", "ZdvfsFtruncate(11, 1) = 0");
    EXPECT_EQ("0123456789" + Zeros(1), StoredWhole());
    Close(handle);
}

TEST_F(CGrowTest, ToABoundaryAddsNoEmptyFragment) {
    const Handle handle = OpenSized(10, "0123");
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 20));
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123" + Zeros(6), Zeros(10)));
    Close(handle);
}

TEST_F(CGrowTest, AFailingTruncateFailsAndTheSizesSoFarStayTrue) {
    static constexpr struct {
        int nth;
        int error;
        DWORD code;
        std::size_t size;  // afterwards
    } kRows[] = {{1, ENOSPC, 39, 4}, {2, EIO, 1117, 10}, {3, EACCES, 5, 20}, {4, ENOTSUP, 87, 30}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.nth);
        const Handle handle = OpenSized(10, "0123");
        Double().Add(OnCall("ZdvfsFtruncate").OnNth(row.nth).Fails(row.error, 4711));
        EXPECT_EQ(row.code, m_manager->ZdSetFileSize(handle, 35));
        const auto lines = TakeLog();
        EXPECT_EQ("ZdSetFileSize Exit\n", lines.back().text);
        for (const LogLine& line : lines) EXPECT_NE(1U, line.level) << line.text;
        Double().ClearRules();
        ExpectUsableElsewhere(handle);
        EXPECT_EQ(row.size, StoredWhole().size());
        EXPECT_EQ("0123" + Zeros(row.size - 4), Read(handle, 0, 100).data);
        // The handle knows the size as it is: setting it changes nothing, and growing goes on from there.
        ClearLogs();
        EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, static_cast<std::int64_t>(row.size)));
        EXPECT_CALLS();
        EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 35));
        EXPECT_EQ("0123" + Zeros(31), StoredWhole());
        EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
    }
}

TEST_F(CGrowTest, AFragmentWhoseFirstOpenFailsIsNotKept) {
    const Handle handle = OpenSized(10, "0123");
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/a;F2").Fails(EMFILE));
    EXPECT_EQ(4U, m_manager->ZdSetFileSize(handle, 35));
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123" + Zeros(6), Zeros(10)));
    EXPECT_EQ(87U, Write(handle, 30, "x").code) << "fragment 2 does not count";
    Double().ClearRules();
    EXPECT_EQ(0U, Write(handle, 20, "x").code);
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 35));
    EXPECT_EQ(35U, TotalSize());
    Close(handle);
}

TEST_F(CGrowTest, AFileWhoseFragmentsAreLargerThanTheirPlaceGrowsNoHole) {
    // Twenty-five bytes in two fragments of ten: index 2 is the next one.
    const Handle handle = Open({"0123456789", "abcdefghijklmno"});
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 28));
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123456789", "abcdefghijklmno", Zeros(8)));
    Close(handle);
    // In forty-five the last current index would lie beyond the next one.
    const Handle odd = Open({"0123456789", std::string(35, 'x')}, "b");
    EXPECT_EQ(87U, m_manager->ZdSetFileSize(odd, 50));
    EXPECT_EQ(45U, StoredWhole("b").size());
    Close(odd);
}

TEST_F(CGrowTest, ReadOnlyHandleCannotGrow) {
    const Handle handle = Open({"hello"}, "a", kOpenToRead);
    EXPECT_EQ(6U, m_manager->ZdSetFileSize(handle, 10));
    EXPECT_EQ("hello", StoredWhole());
    Close(handle);
}

}  // namespace
}  // namespace zd::test
