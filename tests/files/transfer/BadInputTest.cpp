// Arguments that cannot be served: the code, no storage call, no change, no lock left held.
#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CBadInputTest : public CConnectedFilesTest {
protected:
    void SetUp() override {
        CConnectedFilesTest::SetUp();
        m_handle = Open({"0123456789", "abcde"});
        m_other = Open({"other"}, "other");
    }

    void TearDown() override {
        EXPECT_THAT(Stored(), ::testing::ElementsAre("0123456789", "abcde"));
        EXPECT_EQ("other", StoredWhole("other"));
        Close(m_handle);
        Close(m_other);
        CConnectedFilesTest::TearDown();
    }

    void Expect87(const char* what, DWORD code) {
        SCOPED_TRACE(what);
        EXPECT_EQ(87U, code);
        EXPECT_CALLS();
        ExpectUsableElsewhere(m_handle);
        ExpectUsableElsewhere(m_other);
        for (const LogLine& line : TakeLog()) EXPECT_EQ(6U, line.level) << line.text;
        ClearLogs();
    }

    Handle m_handle = 0;
    Handle m_other = 0;
    char m_buffer[64] = {};
    DWORD m_count = kUntouched;
};

TEST_F(CBadInputTest, NullPointers) {
    Expect87("read, buffer", m_manager->ZdReadFile(m_handle, 0, 5, nullptr, &m_count));
    Expect87("read, count", m_manager->ZdReadFile(m_handle, 0, 5, m_buffer, nullptr));
    Expect87("read, count, no bytes", m_manager->ZdReadFile(m_handle, 0, 0, m_buffer, nullptr));
    Expect87("write, buffer", m_manager->ZdWriteFile(m_handle, 0, 5, nullptr, &m_count));
    Expect87("write, buffer, all bytes", m_manager->ZdWriteFile(m_handle, 0, 0xFFFFFFFF, nullptr, &m_count));
    Expect87("write, count", m_manager->ZdWriteFile(m_handle, 0, 5, m_buffer, nullptr));
    Expect87("write, count, no bytes", m_manager->ZdWriteFile(m_handle, 0, 0, m_buffer, nullptr));
    EXPECT_EQ(kUntouched, m_count);
}

TEST_F(CBadInputTest, NegativeOffsetsSizesAndLengths) {
    for (const std::int64_t negative : {std::int64_t{-1}, std::int64_t{-10}, std::int64_t{INT32_MIN}, INT64_MIN}) {
        SCOPED_TRACE(negative);
        Expect87("read", m_manager->ZdReadFile(m_handle, negative, 5, m_buffer, &m_count));
        Expect87("read, no bytes", m_manager->ZdReadFile(m_handle, negative, 0, m_buffer, &m_count));
        Expect87("write", m_manager->ZdWriteFile(m_handle, negative, 5, m_buffer, &m_count));
        Expect87("set size", m_manager->ZdSetFileSize(m_handle, negative));
        Expect87("append at", m_manager->ZdAppendFile(m_handle, m_other, negative, 0, 1));
        Expect87("append from", m_manager->ZdAppendFile(m_handle, m_other, 0, negative, 1));
        Expect87("append length", m_manager->ZdAppendFile(m_handle, m_other, 0, 0, negative));
    }
    EXPECT_EQ(kUntouched, m_count);
}

TEST_F(CBadInputTest, SumsBeyondTheSignedRange) {
    Expect87("write", m_manager->ZdWriteFile(m_handle, INT64_MAX, 1, m_buffer, &m_count));
    Expect87("write", m_manager->ZdWriteFile(m_handle, INT64_MAX - 4, 5, m_buffer, &m_count));
    Expect87("append at", m_manager->ZdAppendFile(m_handle, m_other, INT64_MAX, 0, 1));
    Expect87("append from", m_manager->ZdAppendFile(m_handle, m_other, 0, INT64_MAX, 1));
    Expect87("append from", m_manager->ZdAppendFile(m_handle, m_other, 0, 5, INT64_MAX));
    Expect87("append at", m_manager->ZdAppendFile(m_handle, m_other, 5, 0, INT64_MAX));
    EXPECT_EQ(kUntouched, m_count);
}

TEST_F(CBadInputTest, IndexesBeyondThirtyOneBits) {
    for (const std::int64_t index :
         {std::int64_t{1} << 31, std::int64_t{1} << 32, (std::int64_t{1} << 32) + 1, std::int64_t{1} << 40}) {
        SCOPED_TRACE(index);
        Expect87("write", m_manager->ZdWriteFile(m_handle, index * 10, 5, m_buffer, &m_count));
        Expect87("set size", m_manager->ZdSetFileSize(m_handle, index * 10 + 1));
        Expect87("append at", m_manager->ZdAppendFile(m_handle, m_other, index * 10, 0, 1));
        Expect87("append from", m_manager->ZdAppendFile(m_other, m_handle, 0, index * 10, 1));
    }
    EXPECT_EQ(kUntouched, m_count);
    Expect87("set size", m_manager->ZdSetFileSize(m_handle, INT64_MAX));
}

TEST_F(CBadInputTest, LengthsAreShownAsTheyPrint) {
    EXPECT_EQ(87U, m_manager->ZdReadFile(m_handle, -5, 0xFFFFFFFF, nullptr, &m_count));
    EXPECT_LOG({6, "ZdReadFile Enter - handle: " + Pointer(m_handle) + ", offset: -5, len: -1\n"},
               {6, "ZdReadFile Exit\n"});
    EXPECT_EQ(87U, m_manager->ZdWriteFile(m_handle, INT64_MIN, 0x80000000, nullptr, &m_count));
    EXPECT_LOG(
        {6, "ZdWriteFile Enter - handle: " + Pointer(m_handle) + ", offset: -9223372036854775808, len: -2147483648\n"},
        {6, "ZdWriteFile Exit! dwError: 0x57(87)\n"});
    EXPECT_EQ(87U, m_manager->ZdAppendFile(m_handle, m_other, -1, -2, -3));
    EXPECT_LOG({6, "ZdAppendFile Enter - hFileHandle: " + Pointer(m_handle) + ", hSrcFileHandle: " + Pointer(m_other) +
                       ", byteOffset : -1, srcByteOffset : -2, len: -3\n"},
               {6, "ZdAppendFile Exit - 0x57(87)\n"});
    EXPECT_EQ(87U, m_manager->ZdSetFileSize(m_handle, -1));
    EXPECT_LOG({6, "ZdSetFileSize Enter\n"}, {6, "ZdSetFileSize Exit\n"});
}

}  // namespace
}  // namespace zd::test
