// Slots 14 and 15: what is told of the volume, and its label.
#include <algorithm>

#include "NamespaceFixture.h"
#include "zdvfs.h"

namespace zd::test {
namespace {

class CVolumeInfoTest : public CNamespaceTest {
protected:
    DWORD Query(BYTE request) {
        m_information = Untouched<VolumeInformation>();
        return m_manager->ZdQueryVolumeInfo(request, &m_information);
    }
    void SetVolume(std::uint64_t blockSize, std::uint64_t total, std::uint64_t available) {
        ZdvfsVolumeRecord record{};
        record.blockSize = blockSize;
        record.totalBlocks = total;
        record.availableBlocks = available;
        Double().SetVolume(record);
    }
    std::wstring Label() {
        EXPECT_EQ(0U, Query(4));
        return m_information.label;
    }

    VolumeInformation m_information{};
};

// The whole record, byte by byte, so that nothing beside the fields asked for may differ from zero.
bool Same(const VolumeInformation& first, const VolumeInformation& second) {
    return std::memcmp(&first, &second, sizeof first) == 0;
}

VolumeInformation Zero() {
    VolumeInformation information;
    std::memset(&information, 0, sizeof information);
    return information;
}

TEST_F(CVolumeInfoTest, NoFlagGivesAnAllZeroRecord) {
    EXPECT_EQ(0U, Query(0));
    EXPECT_TRUE(Same(Zero(), m_information));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdQueryVolumeInfo Exit\n"});
}

TEST_F(CVolumeInfoTest, FlagOneGivesTheAttributesAndNothingElse) {
    EXPECT_EQ(0U, Query(1));
    VolumeInformation expected = Zero();
    expected.fileSystemFlags = 0x0004001D;
    expected.maximumComponentLength = 260;
    std::copy_n(L"NTFS", 4, expected.fileSystemName);
    EXPECT_TRUE(Same(expected, m_information));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdQueryVolumeInfo Exit\n"});
}

TEST_F(CVolumeInfoTest, FlagTwoGivesTheSizesAndNothingElse) {
    SetVolume(4096, 0x123456789ABCDEF0, 0xFEDCBA9876543210);
    EXPECT_EQ(0U, Query(2));
    VolumeInformation expected = Zero();
    expected.totalUnits = 0x123456789ABCDEF0;
    expected.availableUnits = 0xFEDCBA9876543210;
    expected.sectorsPerUnit = 8;
    expected.bytesPerSector = 512;
    EXPECT_TRUE(Same(expected, m_information));
    EXPECT_CALLS("ZdvfsStatvfs(\"pool\") = 0");
    EXPECT_LOG({6, "ZdQueryVolumeInfo Exit\n"});
}

TEST_F(CVolumeInfoTest, FlagFourGivesTheIdentityAndNothingElse) {
    ASSERT_EQ(0U, m_manager->ZdSetVolumeLabel(L"backup"));
    EXPECT_EQ(0U, Query(4));
    VolumeInformation expected = Zero();
    expected.serialNumber = 0x12345678;
    std::copy_n(L"backup", 6, expected.label);
    EXPECT_TRUE(Same(expected, m_information));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdQueryVolumeInfo Exit\n"});
}

TEST_F(CVolumeInfoTest, FlagsAddUpAndOthersMeanNothing) {
    SetVolume(65536, 10, 5);
    EXPECT_EQ(0U, Query(7));
    const VolumeInformation all = m_information;
    EXPECT_EQ(260U, all.maximumComponentLength);
    EXPECT_EQ(128U, all.sectorsPerUnit);
    EXPECT_EQ(0x12345678U, all.serialNumber);
    EXPECT_EQ(0U, Query(0xFF));
    EXPECT_TRUE(Same(all, m_information));
    ClearLogs();
    EXPECT_EQ(0U, Query(0xF8));
    EXPECT_TRUE(Same(Zero(), m_information));
    EXPECT_CALLS();
}

TEST_F(CVolumeInfoTest, SectorsPerUnitAreThirtyTwoBitsOfTheBlockSizeShiftedByNine) {
    static constexpr struct {
        std::uint64_t blockSize;
        std::uint32_t sectors;
    } kRows[] = {{4096, 8}, {512, 1}, {511, 0}, {0, 0}, {1 << 20, 2048}, {0xFFFFFFFF, 0x7FFFFF}, {0x100001000, 8}};
    for (const auto& row : kRows) {
        SetVolume(row.blockSize, 1, 1);
        EXPECT_EQ(0U, Query(2));
        EXPECT_EQ(row.sectors, m_information.sectorsPerUnit) << row.blockSize;
        EXPECT_EQ(512U, m_information.bytesPerSector) << row.blockSize;
    }
}

TEST_F(CVolumeInfoTest, FailedStatusIsTranslatedAndLeavesAZeroRecord) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{ENOENT, 2}, {EACCES, 5}, {EBUSY, 170}, {ENOMEM, 122}, {EIO, 1117}};
    for (const auto& row : kRows) {
        Double().Add(OnCall("ZdvfsStatvfs").OnNth(1).Fails(row.error, 1234));
        ClearLogs();
        EXPECT_EQ(row.code, Query(7)) << row.error;
        EXPECT_TRUE(Same(Zero(), m_information)) << row.error;
        EXPECT_CALLS("ZdvfsStatvfs(\"pool\") = -1");
        EXPECT_LOG({6, "ZdQueryVolumeInfo Exit\n"});
    }
}

TEST_F(CVolumeInfoTest, NullRecordIsRefusedBeforeAnyCall) {
    EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER}, m_manager->ZdQueryVolumeInfo(7, nullptr));
    EXPECT_CALLS();
    EXPECT_LOG({6, "ZdQueryVolumeInfo Exit\n"});
}

TEST_F(CVolumeInfoTest, ExhaustedMemoryHasALineOtherExceptionsHaveNone) {
    Double().Add(OnCall("ZdvfsStatvfs").OnNth(1).Throws(EThrow::kBadAlloc));
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, Query(2));
    EXPECT_LOG({1, "ZdQueryVolumeInfo:  ERROR:  Not Enough Memory, dwError Code:    8\n"},
               {6, "ZdQueryVolumeInfo Exit\n"});
    Double().Add(OnCall("ZdvfsStatvfs").OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(31));
    EXPECT_EQ(31U, Query(2));
    EXPECT_LOG({6, "ZdQueryVolumeInfo Exit\n"});
    Double().Add(OnCall("ZdvfsStatvfs").OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(0));
    EXPECT_EQ(DWORD{ERROR_IO_DEVICE}, Query(2));
    EXPECT_LOG({6, "ZdQueryVolumeInfo Exit\n"});
}

TEST_F(CVolumeInfoTest, RootOfTheConnectionIsAsked) {
    ASSERT_EQ(0U, Connect(L"/other"));
    ClearLogs();
    EXPECT_EQ(0U, Query(2));
    EXPECT_CALLS("ZdvfsStatvfs(\"/other\") = 0");
}

TEST_F(CVolumeInfoTest, UnconnectedObjectAsksTheRoot) {
    IProtocolManager* const other = NewManager();
    ClearLogs();
    m_information = Untouched<VolumeInformation>();
    other->ZdQueryVolumeInfo(2, &m_information);
    EXPECT_CALLS("ZdvfsStatvfs(\"/\") = *");
}

TEST_F(CVolumeInfoTest, LabelIsEmptyUntilItIsSetAndMakesNoStorageCall) {
    EXPECT_EQ(L"", Label());
    ClearLogs();
    EXPECT_EQ(0U, m_manager->ZdSetVolumeLabel(L"one"));
    EXPECT_LOG();
    EXPECT_EQ(L"one", Label());
    EXPECT_EQ(0U, m_manager->ZdSetVolumeLabel(L"a longer one"));
    EXPECT_EQ(L"a longer one", Label());
    EXPECT_EQ(0U, m_manager->ZdSetVolumeLabel(L"b"));
    EXPECT_EQ(L"b", Label());
    for (std::size_t i = 1; i < std::size(m_information.label); ++i) ASSERT_EQ(L'\0', m_information.label[i]) << i;
    EXPECT_CALLS();
}

TEST_F(CVolumeInfoTest, NullOrEmptyLabelEmptiesIt) {
    for (const wchar_t* const label : {static_cast<const wchar_t*>(nullptr), L""}) {
        ASSERT_EQ(0U, m_manager->ZdSetVolumeLabel(L"one"));
        EXPECT_EQ(0U, m_manager->ZdSetVolumeLabel(label));
        EXPECT_EQ(L"", Label());
    }
}

TEST_F(CVolumeInfoTest, LabelIsCutTo127Characters) {
    for (const std::size_t length : {126U, 127U, 128U, 129U, 5000U}) {
        const std::wstring label(length, L'\u00e9');
        EXPECT_EQ(0U, m_manager->ZdSetVolumeLabel(label.c_str())) << length;
        EXPECT_EQ(label.substr(0, 127), Label()) << length;
        EXPECT_EQ(0x12345678U, m_information.serialNumber) << length;
    }
}

TEST_F(CVolumeInfoTest, LabelBelongsToTheObjectAndOutlivesItsConnection) {
    ASSERT_EQ(0U, m_manager->ZdSetVolumeLabel(L"mine"));
    IProtocolManager* const other = NewManager();
    VolumeInformation theirs{};
    EXPECT_EQ(0U, other->ZdQueryVolumeInfo(4, &theirs));
    EXPECT_STREQ(L"", theirs.label);
    ASSERT_EQ(0U, m_manager->ZdDisconnect());
    ASSERT_EQ(0U, Connect(L"other"));
    EXPECT_EQ(L"mine", Label());
}

TEST_F(CVolumeInfoTest, ChangesNoStoredData) {
    TakeModified();
    EXPECT_EQ(0U, m_manager->ZdSetVolumeLabel(L"mine"));
    EXPECT_EQ(0U, Query(7));
    EXPECT_FALSE(TakeModified());
}

}  // namespace
}  // namespace zd::test
