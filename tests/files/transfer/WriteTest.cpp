// Writing.
#include <array>

#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CWriteTest : public CConnectedFilesTest {
protected:
    // Writes and expects success.
    void Writes(Handle handle, std::int64_t offset, const std::string& data) {
        const Transfer transfer = Write(handle, offset, data);
        EXPECT_EQ(0U, transfer.code) << offset;
        EXPECT_EQ(data.size(), transfer.count) << offset;
    }

    // Writes and expects the code, an untouched count and a handle that others can use.
    void Refuses(DWORD code, Handle handle, std::int64_t offset, const std::string& data) {
        const Transfer transfer = Write(handle, offset, data);
        EXPECT_EQ(code, transfer.code) << offset;
        EXPECT_EQ(kUntouched, transfer.count) << offset;
        ExpectUsableElsewhere(handle);
    }
};

TEST_F(CWriteTest, WritesInsideOneFragment) {
    const Handle handle = OpenSized(10, "0123456789");
    Writes(handle, 3, "abc");
    EXPECT_CALLS("ZdvfsPwrite(10, 3, 3) = 3");
    EXPECT_LOG({6, "ZdWriteFile Enter - handle: " + Pointer(handle) + ", offset: 3, len: 3\n"},
               {6, "ZdWriteFile Exit! dwError: 0(0)\n"});
    EXPECT_THAT(Stored(), ::testing::ElementsAre("012abc6789"));
    Close(handle);
}

TEST_F(CWriteTest, WriteOfExactlyOneFragmentCreatesNoSecond) {
    const Handle handle = OpenSized(10, "");
    Writes(handle, 0, "0123456789");
    EXPECT_CALLS("ZdvfsPwrite(10, 10, 0) = 10");
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123456789"));
    Close(handle);
}

TEST_F(CWriteTest, WriteThatEndsAtABoundaryDoesNotMoveOn) {
    const Handle handle = OpenSized(10, "");
    Writes(handle, 0, "0123456789abcdefghij");
    EXPECT_CALLS("ZdvfsPwrite(10, 10, 0) = 10", "ZdvfsStat(\"pool/a;F1\") = -1",
                 "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11", "ZdvfsPwrite(11, 10, 0) = 10");
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123456789", "abcdefghij"));
    Close(handle);
}

TEST_F(CWriteTest, WriteOverThreeFragmentsTellsEachStep) {
    const Handle handle = OpenSized(10, "01234567");
    Writes(handle, 8, "abcdefghijklmn");
    EXPECT_CALLS("ZdvfsPwrite(10, 2, 8) = 2", "ZdvfsStat(\"pool/a;F1\") = -1",
                 "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11", "ZdvfsPwrite(11, 10, 0) = 10",
                 "ZdvfsStat(\"pool/a;F2\") = -1", "ZdvfsOpen(\"pool/a;F2\", 0x102, 0x0) = 12",
                 "ZdvfsPwrite(12, 2, 0) = 2");
    EXPECT_LOG({6, "ZdWriteFile Enter - handle: " + Pointer(handle) + ", offset: 8, len: 14\n"},
               {3, "Entering CProtocolManager::ReOpenFile(\"pool/a;F1\"\n"},
               {3, "ZdvfsStat(\"\\a;F1\") failed with errno = 2 during ReOpenFile\n"},
               {6, "filename = pool/a;F1   fd = 11\n"}, {3, "Entering CProtocolManager::ReOpenFile(\"pool/a;F2\"\n"},
               {3, "ZdvfsStat(\"\\a;F2\") failed with errno = 2 during ReOpenFile\n"},
               {6, "filename = pool/a;F2   fd = 12\n"}, {6, "ZdWriteFile Exit! dwError: 0(0)\n"});
    EXPECT_THAT(Stored(), ::testing::ElementsAre("01234567ab", "cdefghijkl", "mn"));
    Close(handle);
}

TEST_F(CWriteTest, OverwriteAcrossABoundaryKeepsTheRest) {
    const Handle handle = Open({"0123456789", "abcdefghij", "ABCDE"});
    Writes(handle, 8, "----");
    EXPECT_THAT(Stored(), ::testing::ElementsAre("01234567--", "--cdefghij", "ABCDE"));
    EXPECT_EQ(25U, TotalSize());
    Close(handle);
}

TEST_F(CWriteTest, BytesGivenAreThoseThatReachTheStorage) {
    const Handle handle = OpenSized(10, "");
    const std::string data = Pattern(25);
    Writes(handle, 0, data);
    std::string given;
    for (const Call& call : Double().Calls()) given.append(call.data.begin(), call.data.end());
    EXPECT_EQ(data, given);
    Close(handle);
}

TEST_F(CWriteTest, AWriteThatBeginsInTheNextFragmentFillsTheLastOneFirst) {
    const Handle handle = OpenSized(10, "0123");
    Writes(handle, 12, "ab");
    EXPECT_CALLS("ZdvfsFtruncate(10, 10) = 0", "ZdvfsStat(\"pool/a;F1\") = -1",
                 "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11", "ZdvfsPwrite(11, 2, 2) = 2");
    EXPECT_EQ("0123" + std::string(8, '\0') + "ab", Read(handle, 0, 100).data);
    // A new handle sees the same file.
    const Created again = Create(L"\\a", kOpenToRead);
    EXPECT_EQ(14U, again.information.size);
    EXPECT_EQ("0123" + std::string(8, '\0') + "ab", Read(again.handle, 0, 100).data);
    Close(again.handle);
    Close(handle);
}

TEST_F(CWriteTest, AClosedLastFragmentIsOpenedToBeFilled) {
    const Handle handle = OpenSized(10, "0123");
    EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0));
    ClearLogs();
    Writes(handle, 10, "ab");
    EXPECT_CALLS("ZdvfsStat(\"pool/a\") = 0", "ZdvfsOpen(\"pool/a\", 0x102, 0x0) = 11", "ZdvfsFtruncate(11, 10) = 0",
                 "ZdvfsStat(\"pool/a;F1\") = -1", "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 12",
                 "ZdvfsPwrite(12, 2, 0) = 2");
    Close(handle);
}

TEST_F(CWriteTest, AWriteBeyondTheNextFragmentIsRefusedAndChangesNothing) {
    const Handle handle = OpenSized(10, "0123");
    for (const std::int64_t offset : {20, 21, 29, 30, 1000}) {
        ClearLogs();
        Refuses(87, handle, offset, "ab");
        EXPECT_CALLS();
        EXPECT_TRUE(Logged(TakeLog(), 6, "ZdWriteFile Exit! dwError: 0x57(87)\n"));
    }
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123"));
    Writes(handle, 10, "ab");
    Writes(handle, 20, "cd");
    EXPECT_EQ(22U, TotalSize());
    Close(handle);
}

TEST_F(CWriteTest, FailureToFillTheLastFragmentIsTheTranslatedErrnoAndAddsNothing) {
    const Handle handle = OpenSized(10, "0123");
    Double().Add(OnCall("ZdvfsFtruncate").Fails(ENOSPC));
    Refuses(39, handle, 12, "ab");
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123"));
    Double().ClearRules();
    Writes(handle, 12, "ab");
    EXPECT_EQ(14U, TotalSize());
    Close(handle);
}

TEST_F(CWriteTest, FragmentWhoseFirstOpenFailsIsNotKept) {
    static constexpr struct {
        int error;
        DWORD lastError;
        DWORD code;
    } kRows[] = {{EMFILE, 4, 4}, {EACCES, 0, 5}, {ENOSPC, 112, 39}, {EIO, 2, 1117}, {0, 5, 1117}};
    const Handle handle = OpenSized(10, "0123456789");
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.error);
        Double().Add(OnCall("ZdvfsOpen").Fails(row.error, row.lastError));
        Refuses(row.code, handle, 10, "ab");
        Double().ClearRules();
        EXPECT_THAT(Stored(), ::testing::ElementsAre("0123456789"));
        EXPECT_EQ(0U, Read(handle, 10, 10).count);
        EXPECT_FALSE(Double().Exists("pool/a;F1")) << "the read found the end without a fragment";
        Refuses(87, handle, 20, "ab");
    }
    Writes(handle, 10, "ab");
    EXPECT_EQ(12U, TotalSize());
    Close(handle);
}

TEST_F(CWriteTest, ExistingFragmentThatCannotBeOpenedIsTheTranslatedErrnoOfTheOpen) {
    const Handle handle = Open({"0123456789", "abc"});
    Double().Add(OnCall("ZdvfsOpen").Fails(ENOSPC, 5));
    Refuses(39, handle, 10, "xyz");
    Double().ClearRules();
    Writes(handle, 10, "xyz");
    EXPECT_EQ("0123456789xyz", StoredWhole());
    Close(handle);
}

TEST_F(CWriteTest, ShortWritesOfTheStorageAreContinued) {
    const Handle handle = OpenSized(10, "");
    Double().Add(OnCall("ZdvfsPwrite").ShortenTo(4));
    Writes(handle, 0, "0123456789ab");
    EXPECT_CALLS("ZdvfsPwrite(10, 10, 0) = 4", "ZdvfsPwrite(10, 6, 4) = 4", "ZdvfsPwrite(10, 2, 8) = 2", "ZdvfsStat(*",
                 "ZdvfsOpen(*", "ZdvfsPwrite(11, 2, 0) = 2");
    EXPECT_EQ("0123456789ab", StoredWhole());
    Close(handle);
}

TEST_F(CWriteTest, AWriteThatMovesNothingIsAFullDiskAndNoEndlessLoop) {
    const Handle handle = OpenSized(10, "0123456789");
    Double().Add(OnCall("ZdvfsPwrite").OnNth(2).Answers(0));
    Refuses(39, handle, 5, "abcdefg");
    EXPECT_EQ("01234abcde", StoredWhole().substr(0, 10)) << "bytes already moved stay moved";
    Close(handle);
}

TEST_F(CWriteTest, FailureIsDecidedByTheLastErrorWhereTheTableHasItElseByErrno) {
    static constexpr struct {
        int error;
        DWORD lastError;
        DWORD code;
    } kRows[] = {
        {ENOSPC, 112, 39},  // no row for 112
        {ENOSPC, 0, 39},          {EIO, 0, 1117}, {EIO, 2, 2},  {ENOSPC, 5, 39}, {EIO, 13, 5},      {EIO, 28, 39},
        {EACCES, 24, 4},          {0, 0, 1117},   {0, 17, 183}, {EBADF, 6, 6},   {EBUSY, 130, 170}, {EBUSY, 129, 87},
        {EBUSY, 0xFFFFFFFF, 170},
    };
    const Handle handle = OpenSized(10, "0123456789");
    for (const auto& row : kRows) {
        SCOPED_TRACE(std::to_string(row.error) + ", " + std::to_string(row.lastError));
        Double().Add(OnCall("ZdvfsPwrite").Fails(row.error, row.lastError));
        ClearLogs();
        const Transfer transfer = Write(handle, 0, "abc");
        EXPECT_EQ(row.code, transfer.code);
        EXPECT_EQ(kUntouched, transfer.count);
        std::array<char, 64> exit{};
        std::snprintf(exit.data(), exit.size(), "ZdWriteFile Exit! dwError: %#lx(%ld)\n", row.code, row.code);
        EXPECT_LOG({6, "ZdWriteFile Enter*"},
                   {1, "ZdvfsPwrite failed, error: " + std::to_string(static_cast<int>(row.lastError)) + "\n"},
                   {6, exit.data()});
        Double().ClearRules();
        ExpectUsableElsewhere(handle);
    }
    EXPECT_EQ("0123456789", StoredWhole());
    Close(handle);
}

TEST_F(CWriteTest, SizesOfPiecesWrittenBeforeAFailureAreRemembered) {
    const Handle handle = OpenSized(10, "");
    Double().Add(OnCall("ZdvfsPwrite").OnNth(2).Fails(EIO));
    Refuses(1117, handle, 0, "0123456789abc");
    Double().ClearRules();
    // Ten bytes are there: nothing is to be filled before the next fragment, and a size of 10 changes nothing.
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(handle, 10));
    EXPECT_CALLS();
    Writes(handle, 10, "ab");
    EXPECT_EQ("0123456789ab", StoredWhole());
    Close(handle);
}

TEST_F(CWriteTest, AWriteOfNoBytesChangesNothing) {
    const Handle handle = OpenSized(10, "0123");
    DWORD count = kUntouched;
    for (const std::int64_t offset : {std::int64_t{0}, std::int64_t{4}, std::int64_t{10}, std::int64_t{15}}) {
        EXPECT_EQ(0U, m_manager->ZdWriteFile(handle, offset, 0, nullptr, &count)) << offset;
        EXPECT_EQ(0U, count);
        EXPECT_CALLS() << offset;
    }
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123"));
    Close(handle);
}

TEST_F(CWriteTest, ReadOnlyHandleCannotWrite) {
    const Handle handle = Open({"hello"}, "a", kOpenToRead);
    Refuses(6, handle, 0, "x");
    EXPECT_EQ("hello", StoredWhole());
    Close(handle);
}

}  // namespace
}  // namespace zd::test
