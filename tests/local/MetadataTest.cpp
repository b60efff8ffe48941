// Attributes, times, and removal of what is open.
#include "Metadata.h"

#include "LocalFixture.h"

namespace zd::test {
namespace {

TEST(MetadataText, ComesBackWhole) {
    engine::Metadata metadata;
    metadata.attributes = 0xFEDCBA98;
    metadata.creationTime = -5;
    metadata.descriptor = "O:BAG:SY\nend\n%41 \xC3\xA9";
    metadata.longName = "a\nb%";
    const auto back = engine::ParseMetadata(engine::FormatMetadata(metadata));
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(metadata.attributes, back->attributes);
    EXPECT_EQ(metadata.creationTime, back->creationTime);
    EXPECT_EQ(metadata.descriptor, back->descriptor);
    EXPECT_EQ(metadata.longName, back->longName);
}

TEST(MetadataText, EveryCutIsNoticed) {
    engine::Metadata metadata;
    metadata.descriptor = "O:BA";
    const std::string text = engine::FormatMetadata(metadata);
    for (std::size_t size = 0; size < text.size(); ++size) {
        EXPECT_FALSE(engine::ParseMetadata(text.substr(0, size)).has_value()) << size;
    }
    EXPECT_FALSE(engine::ParseMetadata(std::string(text.size(), '\0')).has_value());
    EXPECT_FALSE(engine::ParseMetadata("zdvfs metadata 1\nattributes=zz\nend\n").has_value());
    EXPECT_TRUE(engine::ParseMetadata("zdvfs metadata 1\nlater=1\nend\n").has_value());
}

class Attributes : public LocalEngine {};

TEST_F(Attributes, OfOpenMkdirAndChmodSurviveAMount) {
    ASSERT_EQ(0, ZdvfsClose(ZdvfsOpen("pool/f", kZdvfsReadWrite | kZdvfsCreate, 0x0800'0022)));
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0x2002));
    WriteText("pool/c", "");
    ASSERT_EQ(0, ZdvfsChmod("pool/c", 0x8000'1007u));
    ASSERT_EQ(0, ZdvfsChmod("pool", 0x4));
    Remount();
    EXPECT_EQ(0x22, StatOf("pool/f").attributes);
    EXPECT_EQ(0x2012, StatOf("pool/d").attributes);
    EXPECT_EQ(0x1007, StatOf("pool/c").attributes);
    EXPECT_EQ(0x14, StatOf("pool").attributes);
    EXPECT_NE(std::string::npos, ReadDiskFile(OnDisk(L"%m.c")).find("attributes=80001007"));
}

TEST_F(Attributes, ReadOnlyBlocksNothingHere) {
    WriteText("pool/f", "old");
    ASSERT_EQ(0, ZdvfsChmod("pool/f", 1));
    WriteText("pool/f", "new");
    EXPECT_EQ("new", ReadText("pool/f"));
    EXPECT_EQ(0, ZdvfsUnlink("pool/f"));
}

TEST_F(Attributes, ModeTellsFileAndDirectoryApart) {
    WriteText("pool/f", "");
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    ASSERT_EQ(0, ZdvfsChmod("pool/f", 0x30));
    ASSERT_EQ(0, ZdvfsChmod("pool/d", 0x80));
    EXPECT_EQ(0x8000u, StatOf("pool/f").mode & kZdvfsModeTypeMask);
    EXPECT_EQ(0x4000u, StatOf("pool/d").mode & kZdvfsModeTypeMask);
    EXPECT_EQ(0x20, StatOf("pool/f").attributes);
    EXPECT_EQ(0x90, StatOf("pool/d").attributes);
    EXPECT_EQ(0x10, StatOf("pool").attributes & 0x10);
}

TEST_F(Attributes, AFileFromElsewhereCountsWithOrdinaryOnes) {
    WriteDiskFile(OnDisk(L"foreign"), "data");
    EXPECT_EQ(FILE_ATTRIBUTE_NORMAL, StatOf("pool/foreign").attributes);
    EXPECT_EQ("", DescriptorOf("pool/foreign"));
    EXPECT_EQ("data", ReadText("pool/foreign"));
    EXPECT_EQ(0, ZdvfsRename("pool/foreign", "pool/own"));
    EXPECT_EQ("data", ReadText("pool/own"));
}

class Times : public LocalEngine {};

TEST_F(Times, AreSetAndKept) {
    WriteText("pool/f", "x");
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    const int64_t created = StatOf("pool/f").creationTime;
    static constexpr ZdvfsTimes kRows[] = {{1700000000, 1600000000}, {0, 0}, {1, 2}, {4000000000, 4000000001}};
    for (const ZdvfsTimes& times : kRows) {
        for (const char* path : {"pool/f", "pool/d"}) {
            SCOPED_TRACE(times.access);
            ASSERT_EQ(0, ZdvfsUtime(path, &times));
            EXPECT_EQ(times.access, StatOf(path).accessTime);
            EXPECT_EQ(times.modification, StatOf(path).modificationTime);
        }
    }
    Remount();
    EXPECT_EQ(4000000000, StatOf("pool/f").accessTime);
    EXPECT_EQ(4000000001, StatOf("pool/f").modificationTime);
    EXPECT_EQ(created, StatOf("pool/f").creationTime);
}

TEST_F(Times, OfANewObjectAreNow) {
    const time_t before = time(nullptr);
    WriteText("pool/f", "x");
    const ZdvfsStatRecord record = StatOf("pool/f");
    for (const int64_t value : {record.creationTime, record.modificationTime, record.accessTime}) {
        EXPECT_GE(value, before - 2);
        EXPECT_LE(value, time(nullptr) + 2);
    }
}

TEST_F(Times, BeyondWhatTheSystemHoldsAreRefused) {
    WriteText("pool/f", "x");
    for (const int64_t bad : {INT64_MIN, int64_t{-11644473600}, int64_t{INT64_MAX}, int64_t{922337203685}}) {
        const ZdvfsTimes times = {bad, 0};
        EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsUtime("pool/f", &times); })) << bad;
    }
}

TEST_F(Times, CreationSurvivesChangesAndRename) {
    WriteText("pool/f", "x");
    // The file system's own idea of the time is moved away, so that the answer can only come from the metadata.
    const std::string sidecar = "zdvfs metadata 1\nattributes=00000020\ncreated=1234567890\nend\n";
    WriteDiskFile(OnDisk(L"%m.f"), sidecar);
    ASSERT_EQ(0, ZdvfsChmod("pool/f", 2));
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/f", "O:BA"));
    ASSERT_EQ(0, ZdvfsRename("pool/f", "pool/g"));
    Remount();
    EXPECT_EQ(1234567890, StatOf("pool/g").creationTime);
}

class Removal : public LocalEngine {};

TEST_F(Removal, OfAnOpenFileFreesItsNameAtOnce) {
    WriteText("pool/f", "old");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/f", "O:BA"));
    const int file = ZdvfsOpen("pool/f", kZdvfsReadWrite, 0);
    ASSERT_EQ(0, ZdvfsUnlink("pool/f"));
    EXPECT_FALSE(Exists("pool/f"));
    WriteText("pool/f", "new");
    char buffer[16] = {};
    EXPECT_EQ(3, ZdvfsPread(file, buffer, sizeof buffer, 0));
    EXPECT_STREQ("old", buffer);
    EXPECT_EQ("new", ReadText("pool/f"));
    EXPECT_EQ("", DescriptorOf("pool/f"));
    // The descriptor still stands for the old file, and nothing it does reaches the new one.
    char text[64] = {};
    EXPECT_EQ(0, ZdvfsFgetNTAclStr(file, text, sizeof text));
    EXPECT_STREQ("O:BA", text);
    EXPECT_EQ(kMissing, FailureOf([&] { return ZdvfsFsetNTAclStr(file, "O:SY"); }));
    EXPECT_EQ("", DescriptorOf("pool/f"));
    ZdvfsStatRecord record = {};
    EXPECT_EQ(0, ZdvfsFstat(file, &record));
    EXPECT_EQ(3, record.size);
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Removal, OfAnEmptyDirectoryLeavesNothing) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    WriteText("pool/d/x", "");
    ASSERT_EQ(0, ZdvfsUnlink("pool/d/x"));
    ASSERT_EQ(0, ZdvfsUnlink("pool/d"));
    EXPECT_FALSE(DiskHas(OnDisk(L"d")));
    EXPECT_FALSE(DiskHas(OnDisk(L"%m.d")));
}

TEST_F(Removal, OfADirectoryWithAnOpenRemovedFileWorks) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    WriteText("pool/d/x", "x");
    const int file = ZdvfsOpen("pool/d/x", kZdvfsReadOnly, 0);
    ASSERT_EQ(0, ZdvfsUnlink("pool/d/x"));
    EXPECT_EQ(0, ZdvfsUnlink("pool/d"));
    EXPECT_EQ(0, ZdvfsClose(file));
}

}  // namespace
}  // namespace zd::test
