// The bytes of files.
#include <atomic>
#include <thread>

#include "LocalFixture.h"

namespace zd::test {
namespace {

constexpr int64_t kGiB = 1 << 30;

class Data : public LocalEngine {
protected:
    static int Open(const char* path, int flags = kZdvfsReadWrite | kZdvfsCreate) {
        const int descriptor = ZdvfsOpen(path, flags, 0x20);
        EXPECT_GE(descriptor, 0) << path << " errno " << errno;
        return descriptor;
    }
    static std::string ReadAt(int descriptor, int64_t offset, std::size_t length) {
        std::string text(length, '?');
        const int64_t got = ZdvfsPread(descriptor, text.data(), length, offset);
        EXPECT_GE(got, 0);
        text.resize(static_cast<std::size_t>(got));
        return text;
    }
};

TEST_F(Data, IsReadBackAtItsOffsets) {
    const int file = Open("pool/f");
    EXPECT_EQ(5, ZdvfsPwrite(file, "hello", 5, 3));
    EXPECT_EQ(std::string("\0\0\0hello", 8), ReadAt(file, 0, 100));
    EXPECT_EQ("ell", ReadAt(file, 4, 3));
    EXPECT_EQ("", ReadAt(file, 8, 10));
    EXPECT_EQ("", ReadAt(file, 1000, 10));
    EXPECT_EQ(0, ZdvfsPread(file, nullptr, 0, 0));
    EXPECT_EQ(0, ZdvfsPwrite(file, nullptr, 0, 100));
    EXPECT_EQ(8, StatOf("pool/f").size);
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Data, TruncateFlagEmptiesAnExistingFileAndKeepsTheRest) {
    WriteText("pool/f", "something");
    ASSERT_EQ(0, ZdvfsChmod("pool/f", 0x22));
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/f", "O:BA"));
    for (const int access : {kZdvfsReadOnly, kZdvfsWriteOnly, kZdvfsReadWrite}) {
        const int file = Open("pool/f", access | kZdvfsTruncate);
        EXPECT_EQ(0, StatOf("pool/f").size);
        EXPECT_EQ(0, ZdvfsClose(file));
        const int writer = Open("pool/f", kZdvfsWriteOnly);
        EXPECT_EQ(3, ZdvfsPwrite(writer, "abc", 3, 0));
        EXPECT_EQ(0, ZdvfsClose(writer));
    }
    EXPECT_EQ(0x22, StatOf("pool/f").attributes);
    EXPECT_EQ("O:BA", DescriptorOf("pool/f"));
}

TEST_F(Data, ReaderThatTruncatedAtTheOpenMaySetTheSameSizeAgain) {
    WriteText("pool/f", "something");
    const int reader = Open("pool/f", kZdvfsReadOnly | kZdvfsTruncate);
    EXPECT_EQ(0, ZdvfsFtruncate(reader, 0));
    EXPECT_EQ(-1, ZdvfsFtruncate(reader, 1));
    EXPECT_EQ(EACCES, errno);
    EXPECT_EQ(0, StatOf("pool/f").size);
    EXPECT_EQ(0, ZdvfsClose(reader));
}

TEST_F(Data, HintFlagsChangeNothing) {
    for (const int hint : {kZdvfsDirectIo, kZdvfsTemporary, kZdvfsReadAhead}) {
        const int file = Open("pool/f", kZdvfsReadWrite | kZdvfsCreate | hint);
        EXPECT_EQ(3, ZdvfsPwrite(file, "abc", 3, 1));
        EXPECT_EQ("abc", ReadAt(file, 1, 9));
        EXPECT_EQ(0, ZdvfsClose(file));
    }
    EXPECT_TRUE(Exists("pool/f"));
}

TEST_F(Data, SizeIsSetBothWaysAndNewBytesAreZero) {
    const int file = Open("pool/f");
    ZdvfsPwrite(file, "abcdef", 6, 0);
    EXPECT_EQ(0, ZdvfsFtruncate(file, 2));
    EXPECT_EQ(0, ZdvfsFtruncate(file, 5));
    EXPECT_EQ(std::string("ab\0\0\0", 5), ReadAt(file, 0, 10));
    EXPECT_EQ(0, ZdvfsFtruncate(file, 0));
    EXPECT_EQ(0, StatOf("pool/f").size);
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Data, FilesOverFourGiBWork) {
    const int file = Open("pool/big");
    ASSERT_EQ(0, ZdvfsFtruncate(file, 5 * kGiB));
    EXPECT_EQ(5 * kGiB, StatOf("pool/big").size);
    EXPECT_EQ(4, ZdvfsPwrite(file, "high", 4, 4 * kGiB + 7));
    EXPECT_EQ(3, ZdvfsPwrite(file, "low", 3, 7));
    EXPECT_EQ("high", ReadAt(file, 4 * kGiB + 7, 4));
    EXPECT_EQ("low", ReadAt(file, 7, 3));
    EXPECT_EQ(std::string(3, '\0'), ReadAt(file, 5 * kGiB - 3, 100));
    EXPECT_EQ(5 * kGiB, ZdvfsLseek(file, 0, 2));
    const int copy = Open("pool/copy");
    EXPECT_EQ(4, ZdvfsAppend(copy, 4, 4 * kGiB + 7, file, 0));
    EXPECT_EQ("high", ReadAt(copy, 0, 10));
    ZdvfsStatRecord record = {};
    EXPECT_EQ(0, ZdvfsFstat(file, &record));
    EXPECT_EQ(5 * kGiB, record.size);
    EXPECT_EQ(0, ZdvfsClose(copy));
    EXPECT_EQ(0, ZdvfsClose(file));
    EXPECT_EQ(0, ZdvfsUnlink("pool/big"));
}

TEST_F(Data, LengthBeyondTheFileReadsWhatThereIs) {
    WriteText("pool/f", "abc");
    const int file = Open("pool/f", kZdvfsReadOnly);
    // The system would look at all of a buffer it is told of, so the length is large and the file small.
    std::string buffer(200u << 20, '?');
    EXPECT_EQ(3, ZdvfsPread(file, buffer.data(), buffer.size(), 0));
    EXPECT_EQ("abc?", buffer.substr(0, 4));
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Data, PiecesOfManySystemCallsAreOneTransfer) {
    std::string data(150u << 20, '\0');
    for (std::size_t i = 0; i < data.size(); i += 4093) data[i] = static_cast<char>(i);
    const int file = Open("pool/f");
    EXPECT_EQ(static_cast<int64_t>(data.size()), ZdvfsPwrite(file, data.data(), data.size(), 0));
    EXPECT_TRUE(data == ReadAt(file, 0, data.size() + 10));
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Data, PositionIsKeptPerDescriptor) {
    WriteText("pool/f", "0123456789");
    const int one = Open("pool/f");
    const int two = Open("pool/f");
    EXPECT_EQ(4, ZdvfsLseek(one, 4, 0));
    EXPECT_EQ(6, ZdvfsLseek(one, 2, 1));
    EXPECT_EQ(0, ZdvfsLseek(two, 0, 1));
    EXPECT_EQ(7, ZdvfsLseek(two, -3, 2));
    EXPECT_EQ("0123", ReadAt(one, 0, 4));
    EXPECT_EQ(6, ZdvfsLseek(one, 0, 1));
    EXPECT_EQ(100, ZdvfsLseek(one, 100, 0));
    EXPECT_EQ(10, StatOf("pool/f").size);
    EXPECT_EQ(0, ZdvfsClose(one));
    EXPECT_EQ(0, ZdvfsClose(two));
}

TEST_F(Data, AppendCopiesToThePositionWhichMoves) {
    WriteText("pool/source", "0123456789");
    const int source = Open("pool/source", kZdvfsReadOnly);
    const int target = Open("pool/target", kZdvfsWriteOnly | kZdvfsCreate);
    EXPECT_EQ(4, ZdvfsAppend(target, 4, 2, source, 0));
    EXPECT_EQ(3, ZdvfsAppend(target, 3, 0, source, 0));
    EXPECT_EQ(7, ZdvfsLseek(target, 0, 1));
    EXPECT_EQ(1, ZdvfsLseek(target, 1, 0));
    EXPECT_EQ(2, ZdvfsAppend(target, 2, 8, source, 0));
    EXPECT_EQ(0, ZdvfsClose(target));
    EXPECT_EQ(0, ZdvfsClose(source));
    EXPECT_EQ("2895012", ReadText("pool/target"));
}

TEST_F(Data, AppendOfAShortSourceCopiesWhatThereIs) {
    WriteText("pool/source", "abc");
    const int source = Open("pool/source", kZdvfsReadOnly);
    const int target = Open("pool/target");
    EXPECT_EQ(2, ZdvfsAppend(target, 100, 1, source, 0));
    EXPECT_EQ(0, ZdvfsAppend(target, 100, 3, source, 0));
    EXPECT_EQ(0, ZdvfsAppend(target, 100, INT64_MAX, source, 0));
    EXPECT_EQ(0, ZdvfsAppend(target, INT64_MAX, 1000, source, 0));
    EXPECT_EQ(2, ZdvfsLseek(target, 0, 1));
    EXPECT_EQ(0, ZdvfsClose(target));
    EXPECT_EQ(0, ZdvfsClose(source));
    EXPECT_EQ("bc", ReadText("pool/target"));
}

TEST_F(Data, AppendWithinOneFileCopiesWhatWasThereBefore) {
    std::string data(3'500'000, '\0');
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 31 + i / 977);
    static constexpr struct {
        int64_t to, from, length;
    } kRows[] = {{100, 0, 3'000'000}, {1'500'000, 0, 3'500'000}, {0, 100, 3'400'000},
                 {0, 0, 3'500'000},   {3'500'000, 0, 3'500'000}, {3'000'000, 2'999'999, 500'000}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(std::to_string(row.from) + " to " + std::to_string(row.to));
        const int file = Open("pool/f", kZdvfsReadWrite | kZdvfsCreate | kZdvfsTruncate);
        ASSERT_EQ(static_cast<int64_t>(data.size()), ZdvfsPwrite(file, data.data(), data.size(), 0));
        const std::string moved = data.substr(static_cast<std::size_t>(row.from), static_cast<std::size_t>(row.length));
        std::string expected = data;
        expected.resize(std::max(data.size(), static_cast<std::size_t>(row.to) + moved.size()));
        expected.replace(static_cast<std::size_t>(row.to), moved.size(), moved);
        ASSERT_EQ(row.to, ZdvfsLseek(file, row.to, 0));
        EXPECT_EQ(static_cast<int64_t>(moved.size()), ZdvfsAppend(file, row.length, row.from, file, 0));
        EXPECT_TRUE(expected == ReadAt(file, 0, expected.size() + 1));
        EXPECT_EQ(0, ZdvfsClose(file));
    }
}

TEST_F(Data, AppendWithinOneFileThroughTwoDescriptorsDoesTheSame) {
    WriteText("pool/f", "0123456789");
    const int reader = Open("pool/f", kZdvfsReadOnly);
    const int writer = Open("pool/f", kZdvfsWriteOnly);
    ZdvfsLseek(writer, 3, 0);
    EXPECT_EQ(10, ZdvfsAppend(writer, 10, 0, reader, 0));
    EXPECT_EQ(0, ZdvfsClose(writer));
    EXPECT_EQ(0, ZdvfsClose(reader));
    EXPECT_EQ("0120123456789", ReadText("pool/f"));
}

TEST_F(Data, ThreadsWriteOneDescriptorAtTheirOwnOffsets) {
    const int file = Open("pool/f");
    constexpr int64_t kBlock = 4096;
    std::atomic<int> differing{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([=, &differing] {
            for (int i = 0; i < 50; ++i) {
                const std::string block(kBlock, static_cast<char>('a' + thread));
                ZdvfsPwrite(file, block.data(), block.size(), (i * 4 + thread) * kBlock);
                std::string back(kBlock, '?');
                ZdvfsPread(file, back.data(), back.size(), (i * 4 + thread) * kBlock);
                if (block != back) ++differing;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, differing.load());
    EXPECT_EQ(200 * kBlock, StatOf("pool/f").size);
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Data, DescriptorNumbersAreUsedAgain) {
    WriteText("pool/f", "x");
    const int first = Open("pool/f");
    const int second = Open("pool/f");
    EXPECT_EQ(0, ZdvfsClose(first));
    EXPECT_EQ(first, Open("pool/f"));
    EXPECT_EQ(0, ZdvfsClose(first));
    EXPECT_EQ(0, ZdvfsClose(second));
}

}  // namespace
}  // namespace zd::test
