// Slot 8: attributes and times.
#include <cstdio>

#include "NamespaceFixture.h"

namespace zd::test {
namespace {

constexpr std::int64_t kOneSecond = 10000000;

std::string Entry(DWORD attributes) {
    return "ZdSetFileBasicInfo Enter " + std::to_string(static_cast<std::int32_t>(attributes)) + "\n";
}
std::string Refused(const std::string& path, DWORD attributes) {
    return "ZdSetFileBasicInfo: FileName:   " + path + "  ERROR:  Invalid Parameter:      dwFileAttributes value = " +
           std::to_string(static_cast<std::int32_t>(attributes)) + " \n";
}
std::string Ignored(const std::string& path, DWORD attributes) {
    return "ZdSetFileBasicInfo: FileName:   " + path +
           "  ERROR:  ignored file attributes:        dwFileAttributes value = " +
           std::to_string(static_cast<std::int32_t>(attributes)) + " \n";
}
constexpr char kExit[] = "ZdSetFileBasicInfo Exit\n";

class CSetFileBasicInfoTest : public CNamespaceTest {
protected:
    void SetUp() override {
        CNamespaceTest::SetUp();
        Double().MakeFile("pool/dir/a", "hello");
        m_handle = Open(L"\\dir\\a");
        TakeModified();
        ClearLogs();
    }

    DWORD SetAttributes(DWORD attributes) { return m_manager->ZdSetFileBasicInfo(m_handle, 0, 0, 0, 0, attributes); }
    DWORD SetAccessAndWrite(std::int64_t access, std::int64_t write) {
        return m_manager->ZdSetFileBasicInfo(m_handle, 0, access, write, 0, 0);
    }

    Handle m_handle = 0;
};

TEST_F(CSetFileBasicInfoTest, AttributesZeroAndBothTimesZeroChangeNothing) {
    EXPECT_EQ(0U, m_manager->ZdSetFileBasicInfo(m_handle, 0, 0, 0, 0, 0));
    EXPECT_CALLS();
    EXPECT_LOG({6, Entry(0)}, {6, kExit});
    EXPECT_FALSE(TakeModified());
}

TEST_F(CSetFileBasicInfoTest, CreationAndChangeTimesAreIgnored) {
    const std::int64_t time = static_cast<std::int64_t>(kEpoch);
    EXPECT_EQ(0U, m_manager->ZdSetFileBasicInfo(m_handle, time, 0, 0, time, 0));
    EXPECT_CALLS();
    EXPECT_FALSE(TakeModified());
}

TEST_F(CSetFileBasicInfoTest, AcceptedAttributesGoToTheStorageWithoutAWarning) {
    for (const DWORD attributes : {0x1U, 0x2U, 0x4U, 0x10U, 0x20U, 0x80U, 0x100U, 0x2000U, 0x21B7U}) {
        ClearLogs();
        EXPECT_EQ(0U, SetAttributes(attributes)) << attributes;
        char call[64];
        std::snprintf(call, sizeof call, "ZdvfsChmod(\"pool/dir/a\", 0x%lx) = 0", attributes);
        EXPECT_CALLS(call);
        EXPECT_LOG({6, Entry(attributes)}, {6, kExit});
        EXPECT_EQ(attributes, Double().State("pool/dir/a").attributes);
        EXPECT_TRUE(TakeModified()) << attributes;
    }
}

TEST_F(CSetFileBasicInfoTest, OtherAttributesAreLoggedAsIgnoredAndStillPassed) {
    for (const DWORD attributes :
         {0x10000U, 0x8U, 0x40U, 0x200U, 0x800U, 0x1000U, 0x4000U, 0x8000U, 0x80000020U, 0xFFFFFBFFU}) {
        ClearLogs();
        EXPECT_EQ(0U, SetAttributes(attributes)) << attributes;
        char call[64];
        std::snprintf(call, sizeof call, "ZdvfsChmod(\"pool/dir/a\", 0x%lx) = 0", attributes);
        EXPECT_CALLS(call);
        EXPECT_LOG({6, Entry(attributes)}, {2, Ignored("pool/dir/a", attributes)}, {6, kExit});
    }
}

TEST_F(CSetFileBasicInfoTest, ReparsePointIsRefusedAndNothingIsChanged) {
    for (const DWORD attributes : {0x400U, 0x421U, 0xFFFFFFFFU}) {
        ClearLogs();
        const std::int64_t time = static_cast<std::int64_t>(kEpoch) + kOneSecond;
        EXPECT_EQ(DWORD{ERROR_INVALID_PARAMETER},
                  m_manager->ZdSetFileBasicInfo(m_handle, time, time, time, time, attributes));
        EXPECT_CALLS();
        EXPECT_LOG({6, Entry(attributes)}, {1, Refused("pool/dir/a", attributes)}, {6, kExit});
    }
    EXPECT_EQ(0x20U, Double().State("pool/dir/a").attributes);
    EXPECT_FALSE(TakeModified());
    ExpectUsableElsewhere(m_handle);
}

TEST_F(CSetFileBasicInfoTest, TimesConvertEachByItself) {
    static constexpr struct {
        std::int64_t fileTime;
        std::int64_t seconds;
    } kRows[] = {{116444736000000000, 0},
                 {116444736009999999, 0},
                 {116444736010000000, 1},
                 {116444736019999999, 1},
                 {116444735999999999, -1},
                 {133444736000000000, 1700000000},
                 {1, -11644473600},
                 {-1, -11644473600},
                 {-10000001, -11644473601},
                 {0x7FFFFFFFFFFFFFFF, 910692730085},
                 {-0x7FFFFFFFFFFFFFFF - 1, -933981677285}};
    for (const auto& row : kRows) {
        ClearLogs();
        EXPECT_EQ(0U, SetAccessAndWrite(row.fileTime, 116444736020000000)) << row.fileTime;
        EXPECT_CALLS("ZdvfsUtime(\"pool/dir/a\", " + std::to_string(row.seconds) + ", 2) = 0");
        EXPECT_EQ(0U, SetAccessAndWrite(116444736020000000, row.fileTime)) << row.fileTime;
        EXPECT_CALLS("ZdvfsUtime(\"pool/dir/a\", 2, " + std::to_string(row.seconds) + ") = 0");
        EXPECT_LOG({6, Entry(0)}, {6, kExit}, {6, Entry(0)}, {6, kExit});
    }
    EXPECT_TRUE(TakeModified());
}

TEST_F(CSetFileBasicInfoTest, ZeroTimeBesideAnotherIsSetToTheEpoch) {
    EXPECT_EQ(0U, SetAccessAndWrite(116444736010000000, 0));
    EXPECT_CALLS("ZdvfsUtime(\"pool/dir/a\", 1, 0) = 0");
    EXPECT_EQ(0, Double().State("pool/dir/a").modificationTime);
    EXPECT_EQ(0U, SetAccessAndWrite(0, 116444736010000000));
    EXPECT_CALLS("ZdvfsUtime(\"pool/dir/a\", 0, 1) = 0");
    EXPECT_EQ(0, Double().State("pool/dir/a").accessTime);
    EXPECT_EQ(1, Double().State("pool/dir/a").modificationTime);
}

TEST_F(CSetFileBasicInfoTest, TimesAreSetAfterTheAttributes) {
    EXPECT_EQ(0U, m_manager->ZdSetFileBasicInfo(m_handle, 1, 116444736010000000, 116444736020000000, 2, 0x21));
    EXPECT_CALLS("ZdvfsChmod(\"pool/dir/a\", 0x21) = 0", "ZdvfsUtime(\"pool/dir/a\", 1, 2) = 0");
    EXPECT_LOG({6, Entry(0x21)}, {6, kExit});
}

TEST_F(CSetFileBasicInfoTest, FailedAttributeChangeLeavesTheTimes) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{ENOENT, 2}, {EPERM, 5}, {EBUSY, 170}, {ENOSPC, 39}, {EIO, 1117}};
    for (const auto& row : kRows) {
        Double().Add(OnCall("ZdvfsChmod").OnNth(1).Fails(row.error, 1234));
        ClearLogs();
        EXPECT_EQ(row.code, m_manager->ZdSetFileBasicInfo(m_handle, 0, 116444736010000000, 0, 0, 0x21)) << row.error;
        EXPECT_CALLS("ZdvfsChmod(\"pool/dir/a\", 0x21) = -1");
        EXPECT_LOG({6, Entry(0x21)}, {6, kExit});
    }
    EXPECT_FALSE(TakeModified());
    EXPECT_EQ(1700000000, Double().State("pool/dir/a").accessTime);
    ExpectUsableElsewhere(m_handle);
}

TEST_F(CSetFileBasicInfoTest, FailedTimesAreTranslatedAndTheAttributesStay) {
    static constexpr struct {
        int error;
        DWORD code;
    } kRows[] = {{ENOENT, 2}, {EACCES, 5}, {EINVAL, 13}, {EIO, 1117}};
    for (const auto& row : kRows) {
        Double().Add(OnCall("ZdvfsUtime").OnNth(1).Fails(row.error, 1234));
        ClearLogs();
        EXPECT_EQ(row.code, SetAccessAndWrite(116444736010000000, 0)) << row.error;
        EXPECT_CALLS("ZdvfsUtime(\"pool/dir/a\", 1, 0) = -1");
        EXPECT_LOG({6, Entry(0)}, {6, kExit});
    }
    EXPECT_FALSE(TakeModified());
    Double().Add(OnCall("ZdvfsUtime").Fails(EIO));
    EXPECT_EQ(DWORD{ERROR_IO_DEVICE}, m_manager->ZdSetFileBasicInfo(m_handle, 0, 1, 0, 0, 0x21));
    EXPECT_EQ(0x21U, Double().State("pool/dir/a").attributes);
    EXPECT_TRUE(TakeModified()) << "the attributes were changed";
    ExpectUsableElsewhere(m_handle);
}

TEST_F(CSetFileBasicInfoTest, PositiveResultsAreNoFailures) {
    Double().Add(OnCall("ZdvfsChmod").Answers(1));
    Double().Add(OnCall("ZdvfsUtime").Answers(1));
    EXPECT_EQ(0U, m_manager->ZdSetFileBasicInfo(m_handle, 0, 1, 1, 0, 0x21));
    EXPECT_TRUE(TakeModified());
}

TEST_F(CSetFileBasicInfoTest, OnlyTheFileItselfIsChangedNotItsFragments) {
    MakeFragments("big", {10, 10});
    m_handle = Open(L"\\big");
    EXPECT_EQ(0U, m_manager->ZdSetFileBasicInfo(m_handle, 0, 116444736010000000, 0, 0, 0x21));
    EXPECT_CALLS("ZdvfsChmod(\"pool/big\", 0x21) = 0", "ZdvfsUtime(\"pool/big\", 1, 0) = 0");
}

TEST_F(CSetFileBasicInfoTest, DirectoriesAndClosedHandlesAreChangedByTheirPath) {
    ASSERT_EQ(0U, m_manager->ZdCloseFile(m_handle, 0));
    ClearLogs();
    EXPECT_EQ(0U, SetAttributes(0x21));
    EXPECT_CALLS("ZdvfsChmod(\"pool/dir/a\", 0x21) = 0");
    m_handle = Open(L"\\dir", kOpenDirectory);
    EXPECT_EQ(0U, m_manager->ZdSetFileBasicInfo(m_handle, 0, 0, 116444736010000000, 0, 0x12));
    EXPECT_CALLS("ZdvfsChmod(\"pool/dir\", 0x12) = 0", "ZdvfsUtime(\"pool/dir\", 0, 1) = 0");
}

TEST_F(CSetFileBasicInfoTest, NamesInLinesAreThoseOfTheStorageAndCannotForgeLines) {
    Double().MakeFile("pool/a\nb");
    m_handle = Open(L"\\a\nb");
    EXPECT_EQ(0U, SetAttributes(0x10000));
    EXPECT_LOG({6, Entry(0x10000)}, {2, Ignored("pool/a<000a>b", 0x10000)}, {6, kExit});
}

TEST_F(CSetFileBasicInfoTest, UnknownHandlesHaveNoEntryLineAndMakeNoStorageCall) {
    for (const Handle unknown : {Handle{0}, Handle{1}, m_handle + 1}) {
        EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, m_manager->ZdSetFileBasicInfo(unknown, 1, 1, 1, 1, 0x21)) << unknown;
        EXPECT_LOG({6, kExit});
    }
    EXPECT_CALLS();
    EXPECT_FALSE(TakeModified());
}

TEST_F(CSetFileBasicInfoTest, ExceptionsOfTheStorageAreReported) {
    Double().Add(OnCall("ZdvfsChmod").OnNth(1).Throws(EThrow::kBadAlloc));
    EXPECT_EQ(DWORD{ERROR_NOT_ENOUGH_MEMORY}, SetAttributes(0x21));
    EXPECT_LOG({6, Entry(0x21)}, {1, "ZdSetFileBasicInfo:    ERROR:  Not Enough Memory, dwError Code:    8\n"},
               {6, kExit});
    Double().Add(OnCall("ZdvfsUtime").OnNth(1).Throws(EThrow::kRuntimeError).WithLastError(31));
    EXPECT_EQ(31U, SetAccessAndWrite(1, 1));
    EXPECT_LOG({6, Entry(0)}, {1, "ZdSetFileBasicInfo:    ERROR:  Unhandled exception caught, dwError Code:   31\n"},
               {6, kExit});
    EXPECT_FALSE(TakeModified());
    ExpectUsableElsewhere(m_handle);
}

// ---- Slot 9 ----

TEST_F(CSetFileBasicInfoTest, DeleteAnswersSuccessAndLeavesTheFileInPlace) {
    int request = 4711;
    for (void* const argument :
         {static_cast<void*>(nullptr), static_cast<void*>(&request), reinterpret_cast<void*>(std::uintptr_t{1})}) {
        ClearLogs();
        EXPECT_EQ(0U, m_manager->ZdDeleteFile(argument));
        EXPECT_CALLS();
        EXPECT_LOG({6, "ZdDeleteFile Enter\n"}, {6, "ZdDeleteFile Exit\n"});
    }
    EXPECT_EQ(4711, request);
    EXPECT_TRUE(Double().Exists("pool/dir/a"));
    EXPECT_FALSE(TakeModified());
}

}  // namespace
}  // namespace zd::test
