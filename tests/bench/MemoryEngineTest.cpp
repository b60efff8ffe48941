// The benchmark's engine keeps to the contract: its figures would mean nothing if it cheated.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "benchmark/memory/Requests.h"
#include "tests/harness/RandomBits.h"
#include "zdvfs.h"

namespace zd::memory {
namespace {

constexpr int kNew = kZdvfsReadWrite | kZdvfsCreate;

class CMount {
public:
    CMount() {
        m_block.poolName = m_name;
        EXPECT_EQ(0, ::ZdvfsMountV1("6.0.0.0", &m_block, sizeof m_block));
    }
    ~CMount() { EXPECT_EQ(0, ::ZdvfsUmount(m_name)); }
    CMount(const CMount&) = delete;
    CMount& operator=(const CMount&) = delete;

private:
    char m_name[5] = "pool";
    ZdvfsMountBlock m_block{};
};

void ExpectFailure(std::int64_t result, int error, DWORD lastError) {
    EXPECT_EQ(-1, result);
    EXPECT_EQ(error, errno);
    EXPECT_EQ(lastError, ::GetLastError());
}

void MakeFile(const std::string& path) {
    const int file = ::ZdvfsOpen(path.c_str(), kNew, FILE_ATTRIBUTE_ARCHIVE);
    ASSERT_LE(0, file) << path;
    EXPECT_EQ(0, ::ZdvfsClose(file));
}

bool Exists(const std::string& path) {
    ZdvfsStatRecord record{};
    return ::ZdvfsStat(path.c_str(), &record) == 0;
}

std::multiset<std::string> Rest(ZdvfsDirectory* stream) {
    std::multiset<std::string> names;
    while (const ZdvfsDirectoryRecord* const record = ::ZdvfsReaddir(stream)) names.emplace(record->name);
    return names;
}

std::multiset<std::string> Listed(const char* path) {
    ZdvfsDirectory* const stream = ::ZdvfsOpendir(path);
    if (stream == nullptr) return {};
    std::multiset<std::string> names = Rest(stream);
    EXPECT_EQ(0, ::ZdvfsClosedir(stream));
    return names;
}

TEST(MemoryEngine, PoolIsThereWhileItIsMountedAndKeepsItsFiles) {
    {
        const CMount first;
        {
            const CMount second;
            MakeFile("pool/kept");
        }
        EXPECT_TRUE(Exists("pool/kept"));
    }
    ZdvfsStatRecord record{};
    ExpectFailure(::ZdvfsStat("pool/kept", &record), ENOENT, ERROR_FILE_NOT_FOUND);
    ExpectFailure(::ZdvfsOpen("pool/new", kNew, 0), ENOENT, ERROR_FILE_NOT_FOUND);
    const CMount again;
    EXPECT_TRUE(Exists("pool/kept"));
}

TEST(MemoryEngine, SpellingsOfAPathLeadToOneObject) {
    const CMount mount;
    ASSERT_EQ(0, ::ZdvfsMkdir("pool/dir", FILE_ATTRIBUTE_DIRECTORY));
    MakeFile("pool/dir/.hidden");
    for (const char* path : {"/pool/dir/.hidden", "//pool//dir/.hidden/", "pool/./dir/x/../.hidden",
                             "../pool/dir/.hidden/.", "pool/../../dir/.hidden"}) {
        EXPECT_TRUE(Exists(path)) << path;
    }
    EXPECT_FALSE(Exists("pool/../pool/dir/.hidden")) << "a path never leaves its pool";
}

TEST(MemoryEngine, BytesAreThoseOfAModel) {
    const CMount mount;
    const int file = ::ZdvfsOpen("pool/model", kNew, 0);
    constexpr std::size_t kMost = 300'000;
    std::vector<char> model;
    std::vector<char> buffer(kMost);
    std::uint64_t state = 1;
    for (int step = 0; step < 2000; ++step) {
        const std::size_t offset = test::NextBits(state) % kMost;
        const std::size_t length = std::min<std::size_t>(test::NextBits(state) % 20'000, kMost - offset);
        const std::size_t end = offset + length;
        switch (test::NextBits(state) % 8) {
            case 0:
                ASSERT_EQ(0, ::ZdvfsFtruncate(file, static_cast<std::int64_t>(offset)));
                model.resize(offset);
                break;
            case 1:
            case 2:
            case 3:
                std::fill_n(buffer.begin(), length, static_cast<char>(step));
                ASSERT_EQ(static_cast<std::int64_t>(length),
                          ::ZdvfsPwrite(file, buffer.data(), length, static_cast<std::int64_t>(offset)));
                if (length > 0 && end > model.size()) model.resize(end);
                std::fill_n(model.begin() + static_cast<std::ptrdiff_t>(offset), length, static_cast<char>(step));
                break;
            default: {
                const std::size_t expected = offset < model.size() ? std::min(length, model.size() - offset) : 0;
                ASSERT_EQ(static_cast<std::int64_t>(expected),
                          ::ZdvfsPread(file, buffer.data(), length, static_cast<std::int64_t>(offset)));
                ASSERT_TRUE(std::equal(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(expected),
                                       model.begin() + static_cast<std::ptrdiff_t>(std::min(offset, model.size()))));
            }
        }
        ASSERT_EQ(static_cast<std::int64_t>(model.size()), ::ZdvfsLseek(file, 0, 2));
    }
    EXPECT_EQ(0, ::ZdvfsClose(file));
}

TEST(MemoryEngine, DescriptorsAreCheckedAndComeAgain) {
    const CMount mount;
    char byte = 'x';
    const int writer = ::ZdvfsOpen("pool/file", kZdvfsWriteOnly | kZdvfsCreate, 0);
    ExpectFailure(::ZdvfsPread(writer, &byte, 1, 0), EBADF, ERROR_INVALID_HANDLE);
    EXPECT_EQ(1, ::ZdvfsPwrite(writer, &byte, 1, 0));
    ASSERT_EQ(0, ::ZdvfsUnlink("pool/file"));
    ZdvfsStatRecord record{};
    EXPECT_EQ(0, ::ZdvfsFstat(writer, &record));
    EXPECT_EQ(1, record.size);
    EXPECT_EQ(0, ::ZdvfsClose(writer));
    ExpectFailure(::ZdvfsClose(writer), EBADF, ERROR_INVALID_HANDLE);
    ExpectFailure(::ZdvfsOpen("pool/file", kZdvfsReadOnly, 0), ENOENT, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(writer, ::ZdvfsOpen("pool", 0, 0));
    EXPECT_EQ(0, ::ZdvfsClose(writer));
    MakeFile("pool/file");
    ExpectFailure(::ZdvfsOpen("pool/file", kNew | kZdvfsExclusive, 0), EEXIST, ERROR_ALREADY_EXISTS);
}

TEST(MemoryEngine, StreamShowsWhatStaysOnceWhateverGoesMeanwhile) {
    const CMount mount;
    ASSERT_EQ(0, ::ZdvfsMkdir("pool/dir", 0));
    constexpr int kFiles = 100;
    for (int i = 0; i < kFiles; ++i) MakeFile("pool/dir/" + std::to_string(i));
    ZdvfsDirectory* const stream = ::ZdvfsOpendir("pool/dir");
    ASSERT_NE(nullptr, stream);
    for (int i = 0; i < 12; ++i) ASSERT_NE(nullptr, ::ZdvfsReaddir(stream));  // ".", ".." and ten files
    for (int i = 0; i < kFiles; i += 1 + i % 2) ASSERT_EQ(0, ::ZdvfsUnlink(("pool/dir/" + std::to_string(i)).c_str()));
    std::multiset<std::string> expected;
    for (int i = 10; i < kFiles; ++i) {
        if (Exists("pool/dir/" + std::to_string(i))) expected.insert(std::to_string(i));
    }
    EXPECT_EQ(expected, Rest(stream));
    EXPECT_EQ(0, ::ZdvfsClosedir(stream));
    ExpectFailure(::ZdvfsUnlink("pool/dir"), ENOTEMPTY, ERROR_DIR_NOT_EMPTY);
    for (int i = 0; i < kFiles; ++i) ::ZdvfsUnlink(("pool/dir/" + std::to_string(i)).c_str());
    EXPECT_EQ((std::multiset<std::string>{".", ".."}), Listed("pool/dir"));
    EXPECT_EQ(0, ::ZdvfsUnlink("pool/dir"));
}

TEST(MemoryEngine, RenameTakesEverythingBelowAlong) {
    const CMount mount;
    for (const char* directory : {"pool/a", "pool/a/b", "pool/c"}) ASSERT_EQ(0, ::ZdvfsMkdir(directory, 0));
    MakeFile("pool/a/b/file");
    ExpectFailure(::ZdvfsRename("pool/a", "pool/a/b/c"), EINVAL, ERROR_INVALID_PARAMETER);
    ExpectFailure(::ZdvfsRename("pool/a", "pool/c"), EEXIST, ERROR_ALREADY_EXISTS);
    EXPECT_EQ(0, ::ZdvfsRename("pool/a", "pool/c/d"));
    EXPECT_EQ(0, ::ZdvfsRename("pool/c/d/b", "pool/c/d/e"));
    EXPECT_TRUE(Exists("pool/c/d/e/file"));
    EXPECT_FALSE(Exists("pool/a/b/file"));
    EXPECT_EQ((std::multiset<std::string>{".", "..", "e"}), Listed("pool/c/d"));
    for (const char* path : {"pool/c/d/e/file", "pool/c/d/e", "pool/c/d", "pool/c"}) EXPECT_EQ(0, ::ZdvfsUnlink(path));
    EXPECT_EQ((std::multiset<std::string>{".", ".."}), Listed("pool"));
}

TEST(MemoryEngine, AttributesTimesAndDescriptorsAreKept) {
    const CMount mount;
    MakeFile("pool/file");
    const ZdvfsTimes times{5, 7};
    EXPECT_EQ(0, ::ZdvfsUtime("pool/file", &times));
    EXPECT_EQ(0, ::ZdvfsChmod("pool/file", FILE_ATTRIBUTE_HIDDEN));
    ZdvfsStatRecord record{};
    EXPECT_EQ(0, ::ZdvfsStat("pool/file", &record));
    EXPECT_EQ(FILE_ATTRIBUTE_HIDDEN, record.attributes);
    EXPECT_EQ(5, record.accessTime);
    EXPECT_EQ(7, record.modificationTime);
    EXPECT_NEAR(static_cast<double>(::_time64(nullptr)), static_cast<double>(record.creationTime), 5);
    char text[8] = "?";
    int flag = 1;
    EXPECT_EQ(0, ::ZdvfsGetDsidNTAclStr("pool/file", text, sizeof text, &flag));
    EXPECT_STREQ("", text);
    EXPECT_EQ(1, flag);
    EXPECT_EQ(0, ::ZdvfsSetNTAclStr("pool/file", "O:BA"));
    EXPECT_EQ(0, ::ZdvfsGetDsidNTAclStr("pool/file", text, sizeof text, &flag));
    EXPECT_STREQ("O:BA", text);
    EXPECT_EQ(0, flag);
    ExpectFailure(::ZdvfsGetNTAclStr("pool/file", text, 4), ERANGE, ERROR_INSUFFICIENT_BUFFER);
}

TEST(MemoryEngine, GeneratedEntriesAreDistinctAndHaveAStatus) {
    const CMount mount;
    ASSERT_EQ(0, ::ZdvfsMkdir("pool/dir", 0));
    const int root = ::ZdvfsOpen("pool", 0, 0);
    ASSERT_EQ(0, ::ZdvfsIoctl(root, kMemoryIoctlGenerate, "pool/dir", std::int64_t{1000}));
    EXPECT_EQ(0, ::ZdvfsClose(root));
    const std::multiset<std::string> names = Listed("pool/dir");
    EXPECT_EQ(1002u, names.size());
    EXPECT_EQ(1002u, std::set<std::string>(names.begin(), names.end()).size());
    int fragments = 0;
    for (const std::string& name : names) {
        EXPECT_TRUE(Exists("pool/dir/" + name)) << name;
        if (!name.ends_with(";F1")) continue;
        ++fragments;
        EXPECT_TRUE(names.contains(name.substr(0, name.size() - 3))) << name;
    }
    EXPECT_EQ(100, fragments);
    for (const char* name : {"document-000001000.dat", "document-000000009.dat", "document-000000000.dat;F1", "x"}) {
        EXPECT_FALSE(Exists(std::string("pool/dir/") + name)) << name;
    }
}

TEST(MemoryEngine, ThreadsWorkOnOneDirectory) {
    const CMount mount;
    ASSERT_EQ(0, ::ZdvfsMkdir("pool/dir", 0));
    constexpr int kThreads = 16;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([number] {
            for (int i = 0; i < 500; ++i) {
                const std::string path = "pool/dir/" + std::to_string(number) + "-" + std::to_string(i % 20);
                const int file = ::ZdvfsOpen(path.c_str(), kNew | kZdvfsExclusive, 0);
                ASSERT_LE(0, file);
                EXPECT_EQ(sizeof number, ::ZdvfsPwrite(file, &number, sizeof number, i));
                int seen = -1;
                EXPECT_EQ(sizeof seen, ::ZdvfsPread(file, &seen, sizeof seen, i));
                EXPECT_EQ(number, seen);
                EXPECT_EQ(0, ::ZdvfsClose(file));
                EXPECT_EQ(0, ::ZdvfsUnlink(path.c_str()));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ((std::multiset<std::string>{".", ".."}), Listed("pool/dir"));
}

}  // namespace
}  // namespace zd::memory
