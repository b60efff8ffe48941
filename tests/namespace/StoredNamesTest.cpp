// Listings, renames, attributes and sizes over the local engine: what one connection sets, the next one finds.
#include "NamespaceFixture.h"

namespace zd::test {
namespace {

constexpr std::size_t kMegabyte = 1 << 20;

class CStoredNamesTest : public CLocalEngineTest {
protected:
    void SetUp() override {
        CLocalEngineTest::SetUp();
        Registry().SetDword(kPluginKey, L"MaxFileSizeMB", 1);
        ASSERT_EQ(0U, Connect());
    }

    // `extra` bytes behind as many full fragments.
    Handle MakeFile(const std::wstring& name, int fullFragments, std::size_t extra, char fill) {
        const Handle handle = Create(name, {.disposition = kZdCreate, .access = 0x3}).handle;
        std::int64_t offset = 0;
        for (int i = 0; i < fullFragments; ++i, offset += std::int64_t{kMegabyte}) {
            EXPECT_EQ(0U, Write(handle, offset, std::string(kMegabyte, fill)).code);
        }
        EXPECT_EQ(0U, Write(handle, offset, std::string(extra, fill)).code);
        return handle;
    }
    Listing ListRoot() {
        const Handle root = Create(L"\\", kOpenDirectory).handle;
        const Listing listing = List(root);
        Close(root);
        return listing;
    }
    std::uint64_t SizeOf(const wchar_t* path) {
        FileInformation information{};
        EXPECT_EQ(0U, m_manager->ZdQueryPathInfo(path, &information)) << Narrow(path);
        return information.size;
    }
    std::string FirstByte(const std::wstring& name, std::int64_t offset) {
        const Handle handle = Create(name, kOpenToRead).handle;
        const Transfer read = Read(handle, offset, 1);
        Close(handle);
        return read.data;
    }
};

TEST_F(CStoredNamesTest, FileOfManyFragmentsIsOneEntryWithItsWholeSize) {
    Close(MakeFile(L"\\Big", 3, 7, 'b'));
    Close(MakeFile(L"\\a\u00e4", 0, 5, 'a'));
    const Listing listing = ListRoot();
    ASSERT_EQ(0U, listing.code);
    EXPECT_EQ((std::vector<std::wstring>{L".", L"..", L"a\u00e4", L"Big"}), listing.names);
    EXPECT_EQ(5U, listing.entries[2].size);
    EXPECT_EQ(3 * kMegabyte + 7, listing.entries[3].size);
    EXPECT_EQ(3 * kMegabyte + 7, SizeOf(L"\\Big"));
}

TEST_F(CStoredNamesTest, RenameTakesAllFragmentsAlong) {
    const Handle handle = MakeFile(L"\\one", 2, 7, 'x');
    ASSERT_EQ(0U, m_manager->ZdRenameFile(handle, L"\\two", 0));
    FileInformation information{};
    ASSERT_EQ(0U, m_manager->ZdQueryFileInfo(handle, &information));
    EXPECT_EQ(2 * kMegabyte + 7, information.size);
    EXPECT_STREQ(L"\\two", information.name);
    Close(handle);
    ASSERT_EQ(0U, Connect());
    EXPECT_EQ((std::vector<std::wstring>{L".", L"..", L"two"}), ListRoot().names);
    EXPECT_EQ(2 * kMegabyte + 7, SizeOf(L"\\two"));
    EXPECT_EQ("x", FirstByte(L"\\two", 2 * kMegabyte + 6));
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdQueryPathInfo(L"\\one;F1", &information));
}

TEST_F(CStoredNamesTest, RenameReplacesOnlyWhenAsked) {
    Close(MakeFile(L"\\target", 3, 1, 't'));
    const Handle handle = MakeFile(L"\\source", 1, 1, 's');
    EXPECT_EQ(DWORD{ERROR_ALREADY_EXISTS}, m_manager->ZdRenameFile(handle, L"\\target", 0));
    EXPECT_EQ(3 * kMegabyte + 1, SizeOf(L"\\target"));
    EXPECT_EQ(0U, m_manager->ZdRenameFile(handle, L"\\target", 1));
    Close(handle);
    ASSERT_EQ(0U, Connect());
    EXPECT_EQ(kMegabyte + 1, SizeOf(L"\\target")) << "no fragment of the replaced file is left";
    EXPECT_EQ("s", FirstByte(L"\\target", kMegabyte));
    EXPECT_EQ((std::vector<std::wstring>{L".", L"..", L"target"}), ListRoot().names);
}

TEST_F(CStoredNamesTest, DirectoryIsRenamedWithWhatItHolds) {
    const Handle directory = Create(L"\\dir", {.isDirectory = 1, .disposition = kZdCreate}).handle;
    Close(MakeFile(L"\\dir\\big", 1, 1, 'x'));
    ASSERT_EQ(0U, m_manager->ZdRenameFile(directory, L"\\other", 0));
    Close(directory);
    EXPECT_EQ(kMegabyte + 1, SizeOf(L"\\other\\big"));
    FileInformation information{};
    EXPECT_EQ(DWORD{ERROR_FILE_NOT_FOUND}, m_manager->ZdQueryPathInfo(L"\\dir", &information));
}

TEST_F(CStoredNamesTest, AttributesAndTimesAreReadBack) {
    const Handle handle = MakeFile(L"\\file", 0, 1, 'x');
    const auto access = static_cast<std::int64_t>(FileTime(1600000000));
    const auto write = static_cast<std::int64_t>(FileTime(1500000000));
    Close(handle);
    const Handle reader = Create(L"\\file", kOpenToRead).handle;
    EXPECT_EQ(0U, m_manager->ZdSetFileBasicInfo(reader, 0, access, write, 0, 0x2023));
    Close(reader);
    ASSERT_EQ(0U, Connect());
    FileInformation information{};
    ASSERT_EQ(0U, m_manager->ZdQueryPathInfo(L"\\file", &information));
    EXPECT_EQ(0x2023U, information.attributes);
    EXPECT_EQ(FileTime(1600000000), information.lastAccessTime);
    EXPECT_EQ(FileTime(1500000000), information.lastWriteTime);
    EXPECT_EQ(FileTime(1500000000), information.changeTime);
}

TEST_F(CStoredNamesTest, VolumeHasTheSizesOfADisk) {
    VolumeInformation information{};
    ASSERT_EQ(0U, m_manager->ZdQueryVolumeInfo(2, &information));
    EXPECT_LT(0U, information.totalUnits);
    EXPECT_LE(information.availableUnits, information.totalUnits);
    EXPECT_LT(0U, information.sectorsPerUnit);
    EXPECT_EQ(512U, information.bytesPerSector);
}

}  // namespace
}  // namespace zd::test
