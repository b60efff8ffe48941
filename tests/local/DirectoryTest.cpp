// Directory streams.
#include <set>

#include "LocalFixture.h"

namespace zd::test {
namespace {

class Directories : public LocalEngine {};

TEST_F(Directories, ListDotsAndNamesAndNothingOfTheEngine) {
    WriteText("pool/a", "");
    ASSERT_EQ(0, ZdvfsMkdir("pool/B", 0));
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/a", "O:BA"));
    WriteDiskFile(OnDisk(L"%m.stray"), "zdvfs metadata 1\nend\n");
    WriteDiskFile(OnDisk(L"Not Ours"), "");
    std::multiset<std::string> names;
    ZdvfsDirectory* stream = ZdvfsOpendirForList("pool", 1);
    ASSERT_NE(nullptr, stream);
    while (const ZdvfsDirectoryRecord* record = ZdvfsReaddir(stream)) names.insert(record->name);
    EXPECT_EQ(0, ZdvfsClosedir(stream));
    EXPECT_EQ((std::multiset<std::string>{".", "..", "a", "B"}), names);
}

TEST_F(Directories, EndLeavesErrnoAlone) {
    ZdvfsDirectory* stream = ZdvfsOpendir("pool");
    ASSERT_NE(nullptr, stream);
    while (ZdvfsReaddir(stream)) continue;
    errno = 55;
    EXPECT_EQ(nullptr, ZdvfsReaddir(stream));
    EXPECT_EQ(nullptr, ZdvfsReaddir(stream));
    EXPECT_EQ(55, errno);
    EXPECT_EQ(0, ZdvfsClosedir(stream));
}

TEST_F(Directories, RecordIdsAreStableAndDiffer) {
    for (const char* path : {"pool/a", "pool/b", "pool/c"}) WriteText(path, "");
    std::vector<uint64_t> ids[2];
    for (auto& list : ids) {
        ZdvfsDirectory* stream = ZdvfsOpendir("pool");
        while (const ZdvfsDirectoryRecord* record = ZdvfsReaddir(stream)) list.push_back(record->id);
        ZdvfsClosedir(stream);
        Remount();
    }
    EXPECT_EQ(ids[0].size(), 5u);
    EXPECT_EQ(std::set<uint64_t>(ids[0].begin(), ids[0].end()), std::set<uint64_t>(ids[1].begin(), ids[1].end()));
    EXPECT_EQ(5u, std::set<uint64_t>(ids[0].begin(), ids[0].end()).size());
}

TEST_F(Directories, StreamsShowTheMomentOfOpening) {
    for (int i = 0; i < 50; ++i) WriteText(("pool/f" + std::to_string(i)).c_str(), "");
    ZdvfsDirectory* stream = ZdvfsOpendir("pool");
    int count = 0;
    while (const ZdvfsDirectoryRecord* record = ZdvfsReaddir(stream)) {
        const std::string name = record->name;
        if (name == "." || name == "..") continue;
        ++count;
        EXPECT_EQ(0, ZdvfsUnlink(("pool/" + name).c_str()));
        WriteText(("pool/new" + name).c_str(), "");
    }
    EXPECT_EQ(0, ZdvfsClosedir(stream));
    EXPECT_EQ(50, count);
    EXPECT_EQ(50u, NamesOf("pool").size());
}

TEST_F(Directories, OfThousandsOfEntriesAreListedWhole) {
    // Made on the disk itself, as a restore would.
    ASSERT_EQ(0, ZdvfsMkdir("pool/many", 0));
    const std::wstring directory = OnDisk(L"many\\");
    for (int i = 0; i < 5000; ++i) WriteDiskFile(directory + L"f" + std::to_wstring(i), "");
    const std::vector<std::string> names = NamesOf("pool/many");
    EXPECT_EQ(5000u, names.size());
    EXPECT_EQ(5000u, std::set<std::string>(names.begin(), names.end()).size());
}

TEST_F(Directories, EntriesCanBeLookedAtByTheirListedNames) {
    WriteText("pool/Odd Name.", "x");
    ASSERT_EQ(0, ZdvfsMkdir("pool/sub", 0));
    ZdvfsDirectory* stream = ZdvfsOpendir("pool");
    while (const ZdvfsDirectoryRecord* record = ZdvfsReaddir(stream)) {
        EXPECT_TRUE(Exists((std::string("pool/") + record->name).c_str())) << record->name;
    }
    EXPECT_EQ(0, ZdvfsClosedir(stream));
}

TEST_F(Directories, VolumeRecordTellsTheDiskBelow) {
    ZdvfsVolumeRecord record;
    std::memset(&record, 0xAA, sizeof record);
    for (const char* path : {"pool", "/", "pool/.."}) {
        ASSERT_EQ(0, ZdvfsStatvfs(path, &record)) << path;
        EXPECT_EQ(4096u, record.blockSize);
        EXPECT_GT(record.totalBlocks, 0u);
        EXPECT_LE(record.availableBlocks, record.totalBlocks);
    }
}

}  // namespace
}  // namespace zd::test
