// Appends whose source and target are one handle: neither fragment may be closed for the other.
#include <algorithm>

#include "files/FilesFixture.h"

namespace zd::test {
namespace {

class CSelfAppendTest : public CFilesTest {};

TEST_F(CSelfAppendTest, CopiesInsideOneFragment) {
    ConnectWith();
    const Handle handle = OpenSized(20, "01234567");
    EXPECT_EQ(0U, m_manager->ZdAppendFile(handle, handle, 8, 2, 4));
    EXPECT_CALLS("ZdvfsLseek(10, 8, 0) = 8", "ZdvfsAppend(10, 4, 2, 10, 0) = 4");
    EXPECT_EQ("012345672345", StoredWhole());
    Close(handle);
}

TEST_F(CSelfAppendTest, SourceStaysOpenWhileTheTargetOpensWhereOneFragmentMayBeOpen) {
    ConnectWith(1);
    const Handle handle = OpenSized(10, "0123456789abcdefghij");
    EXPECT_EQ(0U, m_manager->ZdAppendFile(handle, handle, 20, 12, 3));
    EXPECT_CALLS("ZdvfsClose(10) = 0", "ZdvfsStat(\"pool/a;F1\") = 0", "ZdvfsOpen(\"pool/a;F1\", 0x102, 0x0) = 11",
                 "ZdvfsStat(\"pool/a;F2\") = -1", "ZdvfsOpen(\"pool/a;F2\", 0x102, 0x0) = 12",
                 "ZdvfsAppend(12, 3, 2, 11, 0) = 3");
    EXPECT_EQ("0123456789abcdefghijcde", StoredWhole());
    Close(handle);
}

TEST_F(CSelfAppendTest, FillingTheLastFragmentKeepsTheSourceOpenToo) {
    ConnectWith(1);
    const Handle handle = OpenSized(10, "0123456789abcd");
    EXPECT_EQ(0U, m_manager->ZdAppendFile(handle, handle, 20, 2, 3));
    EXPECT_THAT(Stored(), ::testing::ElementsAre("0123456789", "abcd" + std::string(6, '\0'), "234"));
    EXPECT_EQ(0, Double().BadDescriptorUses());
    Close(handle);
}

TEST_F(CSelfAppendTest, EachRangeCopiesUnderEachLimit) {
    const std::string content = Pattern(34);
    for (const DWORD limit : {1U, 2U, 3U, 0xFFFFFFFFU, 100U}) {
        ConnectWith(limit);
        for (std::size_t from = 0; from < 30; from += 3) {
            for (const std::size_t at : {std::size_t{34}, std::size_t{37}, std::size_t{40}, std::size_t{45}}) {
                const std::size_t length = 34 - from;
                SCOPED_TRACE(std::to_string(limit) + ", " + std::to_string(from) + ", " + std::to_string(at));
                const Handle handle = OpenSized(10, content);
                ASSERT_EQ(0U,
                          m_manager->ZdAppendFile(handle, handle, static_cast<std::int64_t>(at),
                                                  static_cast<std::int64_t>(from), static_cast<std::int64_t>(length)));
                std::string expected = content;
                expected.resize(at);
                expected += content.substr(from, length);
                ASSERT_EQ(expected, StoredWhole());
                ASSERT_EQ(expected, Read(handle, 0, 200).data);
                EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 1));
                EXPECT_EQ(0U, m_manager->ZdReleaseFile(handle));
            }
        }
    }
}

TEST_F(CSelfAppendTest, FailureLeavesTheHandleUsable) {
    ConnectWith(1);
    const Handle handle = OpenSized(10, "0123456789abcdefghij");
    Double().Add(OnCall("ZdvfsOpen").ForPath("pool/a;F2").Fails(EACCES));
    EXPECT_EQ(6U, m_manager->ZdAppendFile(handle, handle, 20, 12, 3));
    Double().ClearRules();
    ExpectUsableElsewhere(handle);
    EXPECT_EQ("0123456789abcdefghij", Read(handle, 0, 100).data);
    Close(handle);
}

}  // namespace
}  // namespace zd::test
