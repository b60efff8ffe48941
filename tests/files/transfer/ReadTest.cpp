// Reading.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

const std::vector<std::string> kThree = {"0123456789", "abcdefghij", "ABCDE"};

class CReadTest : public CConnectedFilesTest {};

TEST_F(CReadTest, ReadsInsideOneFragment) {
    const Handle handle = Open(kThree);
    const Transfer transfer = Read(handle, 2, 5);
    EXPECT_EQ(0U, transfer.code);
    EXPECT_EQ("23456", transfer.data);
    EXPECT_CALLS("ZdvfsPread(10, 5, 2) = 5");
    EXPECT_LOG({6, "ZdReadFile Enter - handle: " + Pointer(handle) + ", offset: 2, len: 5\n"},
               {6, "ZdReadFile Exit\n"});
    Close(handle);
}

TEST_F(CReadTest, ReadAcrossAFragmentBoundaryReturnsBothPieces) {
    const Handle handle = Open(kThree);
    EXPECT_EQ("89ab", Read(handle, 8, 4).data);
    EXPECT_CALLS("ZdvfsPread(10, 2, 8) = 2", "ZdvfsStat(\"pool/a;F1\") = 0",
                 "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11", "ZdvfsPread(11, 2, 0) = 2");
    EXPECT_EQ("56789abcdefghijABC", Read(handle, 5, 18).data);
    EXPECT_CALLS("ZdvfsPread(10, 5, 5) = 5", "ZdvfsPread(11, 10, 0) = 10", "ZdvfsStat(\"pool/a;F2\") = 0",
                 "ZdvfsOpen(\"pool/a;F2\", 0x102, 0x0) = 12", "ZdvfsPread(12, 3, 0) = 3");
    Close(handle);
}

TEST_F(CReadTest, EveryRangeOfAFragmentedFileReadsAsOfTheWhole) {
    const Handle handle = Open({"01234", "56789", "abcde", "fgh"});
    const std::string whole = "0123456789abcdefgh";
    for (std::size_t offset = 0; offset <= whole.size() + 6; ++offset) {
        for (std::size_t length = 0; length <= whole.size() + 6; ++length) {
            const Transfer transfer = Read(handle, static_cast<std::int64_t>(offset), static_cast<DWORD>(length));
            ASSERT_EQ(0U, transfer.code) << offset << ", " << length;
            ASSERT_EQ(offset < whole.size() ? whole.substr(offset, length) : "", transfer.data)
                << offset << ", " << length;
        }
    }
    Close(handle);
}

TEST_F(CReadTest, ReadThatEndsAtABoundaryDoesNotTouchTheNextFragment) {
    const Handle handle = Open(kThree);
    EXPECT_EQ("56789", Read(handle, 5, 5).data);
    EXPECT_CALLS("ZdvfsPread(10, 5, 5) = 5");
    EXPECT_EQ("abc", Read(handle, 10, 3).data);
    EXPECT_CALLS("ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11",
                 "ZdvfsPread(11, 3, 0) = 3");
    Close(handle);
}

TEST_F(CReadTest, ReadAtOrPastTheEndIsNothingAndSuccess) {
    static constexpr struct {
        std::int64_t offset;
        std::size_t preads;
    } kRows[] = {{25, 1},
                 {26, 1},
                 {29, 1},
                 {30, 0},
                 {31, 0},
                 {40, 0},
                 {1000000, 0},
                 {INT64_MAX, 0},
                 {INT64_MAX - 9, 0},
                 {std::int64_t{10} << 31, 0},
                 {(std::int64_t{10} << 31) - 1, 0},
                 {(std::int64_t{10} << 32) + 5, 0},
                 {std::int64_t{10} << 40, 0}};
    const Handle handle = Open(kThree);
    for (const auto& row : kRows) {
        ClearLogs();
        const Transfer transfer = Read(handle, row.offset, 10);
        EXPECT_EQ(0U, transfer.code) << row.offset;
        EXPECT_EQ(0U, transfer.count) << row.offset;
        EXPECT_EQ(row.preads, Double().Count("ZdvfsPread")) << row.offset;
    }
    Close(handle);
    const Handle empty = Open({""}, "empty");
    EXPECT_EQ(0U, Read(empty, 0, 10).count);
    Close(empty);
}

TEST_F(CReadTest, ReadReachingPastTheEndReturnsWhatThereIs) {
    const Handle handle = Open(kThree);
    EXPECT_EQ("DE", Read(handle, 23, 100).data);
    EXPECT_CALLS("ZdvfsStat(\"pool/a;F2\") = 0", "ZdvfsOpen(\"pool/a;F2\", 0x102, 0x0) = 11",
                 "ZdvfsPread(11, 7, 3) = 2", "ZdvfsPread(11, 5, 5) = 0");
    Close(handle);
}

TEST_F(CReadTest, FullLastFragmentIsTheEndWithoutAFurtherOpen) {
    const Handle handle = Open({"0123456789", "abcdefghij"});
    EXPECT_EQ("hij", Read(handle, 17, 100).data);
    EXPECT_CALLS("ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11",
                 "ZdvfsPread(11, 3, 7) = 3");
    EXPECT_FALSE(Double().Exists("pool/a;F2"));
    Close(handle);
}

TEST_F(CReadTest, ShortReadsOfTheStorageAreContinued) {
    const Handle handle = Open(kThree);
    Double().Add(OnCall("ZdvfsPread").ShortenTo(4));
    EXPECT_EQ("789abcdefghijAB", Read(handle, 7, 15).data);
    EXPECT_CALLS("ZdvfsPread(10, 3, 7) = 3", "ZdvfsStat(*", "ZdvfsOpen(*", "ZdvfsPread(11, 10, 0) = 4",
                 "ZdvfsPread(11, 6, 4) = 4", "ZdvfsPread(11, 2, 8) = 2", "ZdvfsStat(*", "ZdvfsOpen(*",
                 "ZdvfsPread(12, 2, 0) = 2");
    Close(handle);
}

TEST_F(CReadTest, NothingReadEndsTheTransfer) {
    const Handle handle = Open(kThree);
    Double().Add(OnCall("ZdvfsPread").OnNth(2).Answers(0));
    EXPECT_EQ("789", Read(handle, 7, 15).data);
    EXPECT_EQ(2U, Double().Count("ZdvfsPread"));
    Close(handle);
}

TEST_F(CReadTest, AFragmentShorterThanItsPlaceEndsTheTransfer) {
    const Handle handle = Open({"0123456789", "abc", "ABCDEFGHIJ"});
    EXPECT_EQ("789abc", Read(handle, 7, 20).data);
    EXPECT_EQ("BCD", Read(handle, 21, 3).data);
    Close(handle);
}

TEST_F(CReadTest, ReadOfNoBytesCallsNothing) {
    const Handle handle = Open(kThree);
    DWORD count = kUntouched;
    EXPECT_EQ(0U, m_manager->ZdReadFile(handle, 15, 0, nullptr, &count));
    EXPECT_EQ(0U, count);
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdReadFile Enter - handle: " + Pointer(handle) + ", offset: 15, len: 0\n"},
               {6, "ZdReadFile Exit\n"});
    Close(handle);
}

TEST_F(CReadTest, FailureIsTheTranslatedErrnoAndLeavesTheCountAlone) {
    static constexpr struct {
        int error;
        DWORD lastError;
        DWORD code;
    } kRows[] = {{EIO, 5, 1117}, {EACCES, 0, 5}, {EBADF, 1234, 6}, {ENOMEM, 8, 122}, {EINVAL, 2, 13}, {0, 31, 1117}};
    const Handle handle = Open(kThree);
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.error);
        Double().Add(OnCall("ZdvfsPread").OnNth(2).Fails(row.error, row.lastError));
        const Transfer transfer = Read(handle, 7, 15);
        EXPECT_EQ(row.code, transfer.code) << "the last error does not count in a read";
        EXPECT_EQ(kUntouched, transfer.count);
        const auto lines = TakeLog();
        for (const LogLine& line : lines) EXPECT_NE(1U, line.level) << line.text;
        EXPECT_EQ("ZdReadFile Exit\n", lines.back().text);
        Double().ClearRules();
        ExpectUsableElsewhere(handle);
    }
    Close(handle);
}

TEST_F(CReadTest, FragmentThatCannotBeOpenedEndsTheTransfer) {
    const Handle handle = Open(kThree);
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/a;F1").Fails(EACCES));
    EXPECT_EQ("789", Read(handle, 7, 15).data);
    EXPECT_EQ("", Read(handle, 12, 5).data);
    const Transfer beyond = Read(handle, 20, 5);
    EXPECT_EQ("ABCDE", beyond.data) << "the fragment behind it opens";
    Close(handle);
}

TEST_F(CReadTest, ABufferKeepsWhatIsBehindTheBytesRead) {
    const Handle handle = Open(kThree);
    char buffer[16];
    std::fill(std::begin(buffer), std::end(buffer), '#');
    DWORD count = kUntouched;
    EXPECT_EQ(0U, m_manager->ZdReadFile(handle, 22, 16, buffer, &count));
    EXPECT_EQ(3U, count);
    EXPECT_EQ("CDE#############", std::string(buffer, sizeof(buffer)));
    Close(handle);
}

TEST_F(CReadTest, WriteOnlyHandleCannotRead) {
    Double().MakeFile("pool/x.edb", "hello");
    const Created created = Create(L"\\x.edb", kOpenToWrite);
    ASSERT_EQ(0U, created.code);
    EXPECT_EQ(6U, Read(created.handle, 0, 5).code) << "the storage's own refusal";
    Close(created.handle);
}

}  // namespace
}  // namespace zd::test
