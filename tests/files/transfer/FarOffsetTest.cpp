// Offsets and sizes beyond 32 bits. The double keeps such files without memory for their zeros.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

constexpr std::int64_t kMegabyte = 1048576;
constexpr std::int64_t kGigabyte = 1073741824;
constexpr std::int64_t kDefault = 50 * kGigabyte;

class CFarOffsetTest : public CFilesTest {
protected:
    // The file "a" of whole fragments and a rest, opened.
    Handle OpenLarge(int whole, std::int64_t fragmentSize, std::int64_t rest) {
        for (int i = 0; i < whole; ++i) Double().MakeFile(StoragePath("a", i), "", fragmentSize);
        Double().MakeFile(StoragePath("a", whole), "", rest);
        return Open({});
    }
};

TEST_F(CFarOffsetTest, OffsetOf250MegabytesInFragmentsOf100IsFiftyIntoTheThird) {
    ConnectWith(std::nullopt, 100);
    const Handle handle = OpenLarge(2, 100 * kMegabyte, 60 * kMegabyte);
    EXPECT_EQ(std::string(8, '\0'), Read(handle, 250 * kMegabyte, 8).data);
    EXPECT_CALLS("ZdvfsStat(\"pool/a;F2\") = 0", "ZdvfsOpen(\"pool/a;F2\", 0x102, 0x0) = 11",
                 "ZdvfsPread(11, 8, 52428800) = 8");
    Close(handle);
}

TEST_F(CFarOffsetTest, TransfersBeyondFourGigabytesInsideOneFragment) {
    ConnectWith();
    const Handle handle = OpenLarge(0, 0, 5 * kGigabyte);
    EXPECT_EQ(0U, Write(handle, 5 * kGigabyte - 2, "abcd").code);
    EXPECT_CALLS("ZdvfsPwrite(10, 4, 5368709118) = 4");
    EXPECT_EQ("abcd", Read(handle, 5 * kGigabyte - 2, 100).data);
    EXPECT_EQ(static_cast<std::uint64_t>(5 * kGigabyte + 2), TotalSize());
    EXPECT_EQ(0U, Write(handle, 20 * kGigabyte, "far").code);
    EXPECT_EQ("far", Read(handle, 20 * kGigabyte, 3).data);
    Close(handle);
}

TEST_F(CFarOffsetTest, TransfersAcrossTheFiftyGibibyteBoundary) {
    ConnectWith();
    const Handle handle = OpenLarge(0, 0, kDefault - 2);
    EXPECT_EQ(0U, Write(handle, kDefault - 2, "abcd").code);
    EXPECT_CALLS("ZdvfsPwrite(10, 2, 53687091198) = 2", "ZdvfsStat(\"pool/a;F1\") = -1",
                 "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11", "ZdvfsPwrite(11, 2, 0) = 2");
    EXPECT_EQ("abcd", Read(handle, kDefault - 2, 10).data);
    EXPECT_EQ(static_cast<std::uint64_t>(kDefault + 2), TotalSize());
    Close(handle);
}

TEST_F(CFarOffsetTest, GrowsAndShrinksByFragmentsOfFiftyGibibytes) {
    ConnectWith();
    const Created created = Create(L"\\a");
    ASSERT_EQ(0U, created.code);
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(created.handle, 2 * kDefault + 7));
    EXPECT_EQ(kDefault, Double().State("pool/a").size);
    EXPECT_EQ(kDefault, Double().State("pool/a;F1").size);
    EXPECT_EQ(7, Double().State("pool/a;F2").size);
    EXPECT_EQ(0U, Write(created.handle, 2 * kDefault + 5, "end").code);
    EXPECT_EQ("end", Read(created.handle, 2 * kDefault + 5, 10).data);
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(created.handle, kDefault + 1));
    EXPECT_EQ(1, Double().State("pool/a;F1").size);
    EXPECT_FALSE(Double().Exists("pool/a;F2"));
    EXPECT_EQ(0U, m_manager->ZdSetFileSize(created.handle, 3));
    EXPECT_EQ(3, Double().State("pool/a").size);
    EXPECT_FALSE(Double().Exists("pool/a;F1"));
    Close(created.handle);
}

TEST_F(CFarOffsetTest, AppendsBeyondFourGigabytes) {
    ConnectWith();
    Double().MakeFile("pool/s", "", 6 * kGigabyte);
    const Handle target = OpenLarge(0, 0, 7 * kGigabyte);
    const Handle source = Open({}, "s");
    EXPECT_EQ(0U, Write(source, 6 * kGigabyte - 3, "xyz").code);
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdAppendFile(target, source, 7 * kGigabyte, 6 * kGigabyte - 3, 3));
    EXPECT_CALLS("ZdvfsLseek(10, 7516192768, 0) = 7516192768", "ZdvfsAppend(10, 3, 6442450941, 20, 0) = 3");
    EXPECT_EQ("xyz", Read(target, 7 * kGigabyte, 3).data);
    EXPECT_TRUE(Logged(TakeLog(), 6, "ZdvfsAppend called : bytesToAppend = 3\n, readOffset = 6442450941\n"));
    Close(source);
    Close(target);
}

TEST_F(CFarOffsetTest, AnAppendOfMoreThanFourGigabytesIsOnePieceInAFragment) {
    ConnectWith();
    const Handle target = OpenLarge(0, 0, 10);
    Double().MakeFile("pool/s", "", 9 * kGigabyte);
    const Handle source = Open({}, "s");
    // The store would copy for long: the call is answered without being carried out.
    Double().Add(OnCall("ZdvfsAppend").Answers(5 * kGigabyte));
    EXPECT_EQ(0U, m_manager->ZdAppendFile(target, source, 10, 1, 5 * kGigabyte));
    EXPECT_CALLS("ZdvfsLseek(10, 10, 0) = 10", "ZdvfsAppend(10, 5368709120, 1, 20, 0) = 5368709120");
    Close(source);
    Close(target);
}

TEST_F(CFarOffsetTest, ReadFarBeyondTheLastFragmentIsTheEnd) {
    ConnectWith();
    const Handle handle = Open({"hello"});
    for (const std::int64_t offset : {kDefault, 3 * kDefault, INT64_MAX - 10, INT64_MAX}) {
        const Transfer transfer = Read(handle, offset, 10);
        EXPECT_EQ(0U, transfer.code) << offset;
        EXPECT_EQ(0U, transfer.count) << offset;
        EXPECT_CALLS();
    }
    Close(handle);
}

TEST_F(CFarOffsetTest, SmallestFragmentsOfOneMegabyte) {
    ConnectWith(2, 1);
    const Created created = Create(L"\\a");
    ASSERT_EQ(0U, created.code);
    const std::string data = Pattern(static_cast<std::size_t>(3 * kMegabyte + 12345));
    EXPECT_EQ(data.size(), Write(created.handle, 0, data).count);
    EXPECT_EQ(4U, Stored().size());
    EXPECT_EQ(kMegabyte, Double().State("pool/a;F2").size);
    EXPECT_EQ(12345, Double().State("pool/a;F3").size);
    EXPECT_TRUE(data == StoredWhole());
    EXPECT_TRUE(data == Read(created.handle, 0, static_cast<DWORD>(data.size())).data);
    EXPECT_TRUE(data.substr(1048570, 12) == Read(created.handle, 1048570, 12).data);
    Close(created.handle);
}

}  // namespace
}  // namespace zd::test
