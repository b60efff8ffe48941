// Appending from one file to another inside the storage.
#include <algorithm>
#include <array>

#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CAppendTest : public CConnectedFilesTest {
protected:
    DWORD Append(Handle target, Handle source, std::int64_t at, std::int64_t from, std::int64_t length) {
        return m_manager->ZdAppendFile(target, source, at, from, length);
    }
};

TEST_F(CAppendTest, CopiesInsideOneFragmentAndTellsEachStep) {
    const Handle target = OpenSized(10, "01234", "t");
    const Handle source = OpenSized(20, "abcdefgh", "s");
    EXPECT_EQ(0U, Append(target, source, 5, 2, 3));
    EXPECT_CALLS("ZdvfsLseek(10, 5, 0) = 5", "ZdvfsAppend(10, 3, 2, 20, 0) = 3");
    EXPECT_LOG({6, "ZdAppendFile Enter - hFileHandle: " + Pointer(target) + ", hSrcFileHandle: " + Pointer(source) +
                       ", byteOffset : 5, srcByteOffset : 2, len: 3\n"},
               {6, "Write File FragmentSize = 10\n, Read File FragmentSize = 20\n"},
               {6, "ZdvfsAppend called : bytesToAppend = 3\n, readOffset = 2\n"}, {6, "ZdAppendFile Exit - 0(0)\n"});
    EXPECT_EQ("01234cde", StoredWhole("t"));
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, PiecesEndWhereEitherFileHasABoundary) {
    const Handle target = OpenSized(10, "0123", "t");
    const Handle source = OpenSized(7, "abcdefghijklmnopqr", "s");
    EXPECT_EQ(0U, Append(target, source, 4, 5, 12));
    EXPECT_CALLS("ZdvfsLseek(10, 4, 0) = 4", "ZdvfsAppend(10, 2, 5, 20, 0) = 2",  // to the source's boundary
                 "ZdvfsStat(\"pool/s;F1\") = 0", "ZdvfsOpen(\"pool/s;F1\", 0x102, 0x0) = 21",  //
                 "ZdvfsLseek(10, 6, 0) = 6", "ZdvfsAppend(10, 4, 0, 21, 0) = 4",               // to the target's
                 "ZdvfsStat(\"pool/t;F1\") = -1", "ZdvfsOpen(\"pool/t;F1\", 0x102, 0x0) = 22",
                 "ZdvfsAppend(22, 3, 4, 21, 0) = 3",                                           // the source's again
                 "ZdvfsStat(\"pool/s;F2\") = 0", "ZdvfsOpen(\"pool/s;F2\", 0x102, 0x0) = 23",  //
                 "ZdvfsLseek(22, 3, 0) = 3", "ZdvfsAppend(22, 3, 0, 23, 0) = 3");
    EXPECT_THAT(Stored("t"), ::testing::ElementsAre("0123fghijk", "lmnopq"));
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, EveryPairOfGeometriesAndOffsetsCopiesTheRange) {
    const std::string from = Pattern(23, 1);
    for (const std::int64_t targetSize : {4, 7, 30}) {
        for (const std::int64_t sourceSize : {3, 7, 30}) {
            for (std::size_t at = 0; at <= 12; ++at) {
                for (std::size_t offset = 0; offset < 9; offset += 2) {
                    SCOPED_TRACE(std::to_string(targetSize) + ", " + std::to_string(sourceSize) + ", " +
                                 std::to_string(at) + ", " + std::to_string(offset));
                    const Handle target = OpenSized(targetSize, Pattern(9, 2), "t");
                    const Handle source = OpenSized(sourceSize, from, "s");
                    std::string expected = Pattern(9, 2);
                    const std::int64_t next = static_cast<std::int64_t>((expected.size() + 3) / 4) * 4;
                    const bool refused = targetSize == 4 && static_cast<std::int64_t>(at) >= next + 4;
                    const DWORD code =
                        Append(target, source, static_cast<std::int64_t>(at), static_cast<std::int64_t>(offset), 14);
                    ASSERT_EQ(refused ? 87U : 0U, code);
                    if (!refused) {
                        expected.resize(std::max(expected.size(), at + 14));
                        expected.replace(at, 14, from, offset, 14);
                    }
                    ASSERT_EQ(expected, StoredWhole("t"));
                    ASSERT_EQ(expected, Read(target, 0, 100).data);
                    ASSERT_EQ(from, StoredWhole("s"));
                    for (const auto& [handle, name] : {std::pair{target, "t"}, std::pair{source, "s"}}) {
                        EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1)) << name;
                        EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle)) << name;
                    }
                }
            }
        }
    }
}

TEST_F(CAppendTest, AFragmentJustAddedIsPositionedOnlyBehindItsStart) {
    const Handle source = Open({"abcdef"}, "s");
    const Handle target = OpenSized(10, "0123456789", "t");
    EXPECT_EQ(0U, Append(target, source, 10, 0, 2));
    EXPECT_CALLS("ZdvfsStat(\"pool/t;F1\") = -1", "ZdvfsOpen(\"pool/t;F1\", 0x102, 0x0) = 21",
                 "ZdvfsAppend(21, 2, 0, 10, 0) = 2");
    Close(target);
    const Handle further = OpenSized(10, "0123456789", "u");
    EXPECT_EQ(0U, Append(further, source, 13, 0, 2));
    EXPECT_CALLS("ZdvfsStat(\"pool/u;F1\") = -1", "ZdvfsOpen(\"pool/u;F1\", 0x102, 0x0) = 31",
                 "ZdvfsLseek(31, 3, 0) = 3", "ZdvfsAppend(31, 2, 0, 10, 0) = 2");
    EXPECT_EQ("0123456789" + std::string(3, '\0') + "ab", StoredWhole("u"));
    Close(further);
    Close(source);
}

TEST_F(CAppendTest, AnAppendThatBeginsInTheNextFragmentFillsTheLastOneFirst) {
    const Handle source = Open({"abcdef"}, "s");
    const Handle target = OpenSized(10, "0123", "t");
    EXPECT_EQ(0U, Append(target, source, 10, 0, 2));
    EXPECT_CALLS("ZdvfsFtruncate(20, 10) = 0", "ZdvfsStat(\"pool/t;F1\") = -1",
                 "ZdvfsOpen(\"pool/t;F1\", 0x102, 0x0) = 21", "ZdvfsAppend(21, 2, 0, 10, 0) = 2");
    EXPECT_THAT(Stored("t"), ::testing::ElementsAre("0123" + std::string(6, '\0'), "ab"));
    EXPECT_EQ(12U, TotalSize("t"));
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, AnAppendBeyondTheNextFragmentIsRefused) {
    const Handle source = Open({"abcdef"}, "s");
    const Handle target = OpenSized(10, "0123", "t");
    EXPECT_EQ(87U, Append(target, source, 20, 0, 2));
    EXPECT_CALLS();
    EXPECT_TRUE(Logged(TakeLog(), 6, "ZdAppendFile Exit - 0x57(87)\n"));
    EXPECT_EQ("0123", StoredWhole("t"));
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, ASourceBeyondItsLastFragmentIsRefused) {
    const Handle source = OpenSized(10, "abcdef", "s");
    const Handle target = OpenSized(10, "0123", "t");
    EXPECT_EQ(87U, Append(target, source, 4, 10, 2));
    EXPECT_CALLS();
    EXPECT_EQ("0123", StoredWhole("t"));
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, ThePieceCountsNotWhatTheStorageSaysItMoved) {
    const Handle source = OpenSized(4, "abcdefgh", "s");
    const Handle target = OpenSized(20, "", "t");
    Double().Add(OnCall("ZdvfsAppend").ShortenTo(1));
    EXPECT_EQ(0U, Append(target, source, 0, 0, 8));
    EXPECT_CALLS("ZdvfsLseek(20, 0, 0) = 0", "ZdvfsAppend(20, 4, 0, 10, 0) = 1", "ZdvfsStat(*", "ZdvfsOpen(*",
                 "ZdvfsLseek(20, 4, 0) = 4", "ZdvfsAppend(20, 4, 0, 21, 0) = 1");
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, ASourceThatEndsEarlyLeavesNoHoleBehindIt) {
    const Handle source = Open({"0123456789", "abc"}, "s");
    const Handle target = OpenSized(10, "", "t");
    EXPECT_EQ(0U, Append(target, source, 0, 0, 20));
    EXPECT_EQ(0U, Write(target, 20, "x").code);
    EXPECT_THAT(Stored("t"), ::testing::ElementsAre("0123456789", "abc" + std::string(7, '\0'), "x"));
    EXPECT_EQ(21U, TotalSize("t"));
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, AnAppendOfNothingCallsNothing) {
    const Handle source = Open({"abcdef"}, "s");
    const Handle target = Open({"0123"}, "t");
    EXPECT_EQ(0U, Append(target, source, 4, 0, 0));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdAppendFile Enter*"},
               {6, "Write File FragmentSize = 53687091200\n, Read File FragmentSize = 53687091200\n"},
               {6, "ZdAppendFile Exit - 0(0)\n"});
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, FailuresOfAppendAndSeekAreDecidedByTheLastErrorWhereTheTableHasIt) {
    static constexpr struct {
        const char* function;
        const char* line;
    } kCalls[] = {{"ZdvfsAppend", "ZdvfsAppend failed with error: "},
                  {"ZdvfsLseek", "ZdvfsLseek failed to seek to bytesToWrite, error: "}};
    static constexpr struct {
        int error;
        DWORD lastError;
        DWORD code;
    } kRows[] = {{ENOSPC, 112, 39}, {EIO, 0, 1117}, {EIO, 2, 2}, {EACCES, 24, 4}, {0, 0, 1117}, {ENOSPC, 28, 39}};
    const Handle source = Open({"abcdef"}, "s");
    const Handle target = Open({"0123"}, "t");
    for (const auto& call : kCalls) {
        for (const auto& row : kRows) {
            SCOPED_TRACE(std::string(call.function) + " " + std::to_string(row.error));
            Double().Add(OnCall(call.function).Fails(row.error, row.lastError));
            ClearLogs();
            EXPECT_EQ(row.code, Append(target, source, 4, 0, 2));
            const auto lines = TakeLog();
            EXPECT_TRUE(Logged(lines, 1, call.line + std::to_string(row.lastError) + "\n"));
            std::array<char, 64> exit{};
            std::snprintf(exit.data(), exit.size(), "ZdAppendFile Exit - %#lx(%ld)\n", row.code, row.code);
            EXPECT_EQ(exit.data(), lines.back().text);
            Double().ClearRules();
            ExpectUsableElsewhere(source);
            ExpectUsableElsewhere(target);
        }
    }
    EXPECT_EQ("0123", StoredWhole("t"));
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, ASourceThatCannotBeOpenedIsAnInvalidHandle) {
    const Handle source = Open({"0123456789", "abcdef"}, "s");
    const Handle target = OpenSized(10, "0123", "t");
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/s;F1").Fails(EACCES));
    ClearLogs();
    EXPECT_EQ(6U, Append(target, source, 4, 12, 2));
    EXPECT_TRUE(Logged(TakeLog(), 6, "GetFragmentFileHandle call failed to open fragment to read!!!"));
    EXPECT_EQ(0U, Double().Count("ZdvfsAppend"));
    EXPECT_EQ("0123", StoredWhole("t"));
    ExpectUsableElsewhere(source);
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, ATargetThatCannotBeOpenedIsAnInvalidHandle) {
    const Handle source = Open({"abcdef"}, "s");
    const Handle target = Open({"0123456789", "abcdef"}, "t");
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/t;F1").Fails(ENOSPC));
    EXPECT_EQ(6U, Append(target, source, 12, 0, 2));
    EXPECT_TRUE(Logged(TakeLog(), 6, "GetFragmentFileHandle call failed to open fragment to write!!!"));
    EXPECT_EQ("0123456789abcdef", StoredWhole("t"));
    ExpectUsableElsewhere(target);
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, ATargetFragmentWhoseFirstOpenFailsIsNotKept) {
    const Handle source = Open({"abcdef"}, "s");
    const Handle target = OpenSized(10, "0123456789", "t");
    Double().Add(OnCall("ZdvfsOpen").Fails(ENOSPC));
    EXPECT_EQ(6U, Append(target, source, 10, 0, 2));
    EXPECT_TRUE(Logged(TakeLog(), 6, "GetFragmentFileHandle call failed to open fragment to write!!!"));
    Double().ClearRules();
    EXPECT_EQ(87U, Write(target, 20, "x").code) << "fragment 1 does not count";
    EXPECT_EQ(0U, Append(target, source, 10, 0, 2));
    EXPECT_EQ("0123456789ab", StoredWhole("t"));
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, BytesMovedBeforeAFailureStayMovedAndAreRemembered) {
    const Handle source = OpenSized(4, "abcdefgh", "s");
    const Handle target = OpenSized(10, "0123", "t");
    Double().Add(OnCall("ZdvfsAppend").OnNth(2).Fails(EIO));
    EXPECT_EQ(1117U, Append(target, source, 4, 0, 8));
    EXPECT_EQ("0123abcd", StoredWhole("t"));
    Double().ClearRules();
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(target, 8));
    EXPECT_CALLS() << "the handle knows its size";
    Close(target);
    Close(source);
}

TEST_F(CAppendTest, CopiesBetweenTwoHandlesOnOneFile) {
    const Handle target = OpenSized(10, "01234567", "a");
    const Created source = Create(L"\\a", kOpenToRead);
    ASSERT_EQ(0U, source.code);
    EXPECT_EQ(0U, Append(target, source.handle, 8, 0, 6));
    EXPECT_EQ("01234567012345", StoredWhole());
    Close(source.handle);
    Close(target);
}

TEST_F(CAppendTest, ReadOnlyTargetAndWriteOnlySourceAreTheStoragesRefusal) {
    const Handle reader = Open({"hello"}, "r", kOpenToRead);
    const Handle writer = Open({"world"}, "w.edb");
    EXPECT_EQ(6U, Append(reader, reader, 5, 0, 2));
    EXPECT_EQ(6U, Append(writer, writer, 5, 0, 2));
    EXPECT_EQ(0U, Append(writer, reader, 5, 0, 2));
    EXPECT_EQ("hello", StoredWhole("r"));
    EXPECT_EQ("worldhe", StoredWhole("w.edb"));
    Close(reader);
    Close(writer);
}

}  // namespace
}  // namespace zd::test
