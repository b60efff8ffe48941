// The last step of a connect: compression and encryption of the storage file system.
#include "ProtocolFixture.h"

using namespace zd::test;

namespace {

constexpr char kCompressionOff[] = "CProtocolManager::ZdConnect: Compression is not enabled";
constexpr char kCompressionOn[] = "CProtocolManager::ZdConnect: Compression is enabled";
constexpr char kEncryptionOff[] = "CProtocolManager::ZdConnect: Encryption is not enabled";
constexpr char kEncryptionOn[] = "CProtocolManager::ZdConnect: Encryption is enabled";

class CCompressionTest : public CProtocolTest {
protected:
    // Connects, which never fails here, and takes the lines between the agent's type and the end.
    void ConnectWith(const std::string& compression, const std::string& encryption) {
        SetAgentValue("IFS_COMPRESSION", compression);
        SetAgentValue("ENCRYPTION", encryption);
        if (m_manager == nullptr) m_manager = NewManager();
        ASSERT_EQ(0U, m_manager->ZdDisconnect());
        ClearLogs();
        ASSERT_EQ(0U, Connect());
        m_lines = TakeLog();
        ASSERT_GE(m_lines.size(), 3U);
        EXPECT_TRUE(LogFits({{6, "ZdConnect Exit\n"}}, {m_lines.back()}));
        m_lines = {m_lines.begin() + 2, m_lines.end() - 1};
        m_calls.clear();
        const std::vector<std::string> calls = TakeCalls();
        const auto open = std::find_if(calls.begin(), calls.end(),
                                       [](const std::string& line) { return line.starts_with("ZdvfsOpen("); });
        m_calls.assign(open, calls.end());
    }

    std::vector<LogLine> m_lines;
    std::vector<std::string> m_calls;
};

TEST_F(CCompressionTest, ZeroIsTheDefaultAndReadsAsNotEnabled) {
    m_manager = NewManager();
    ClearLogs();
    EXPECT_EQ(0U, Connect());
    const std::vector<LogLine> lines = TakeLog();
    EXPECT_TRUE(Logged(lines, 6, kCompressionOff));
    EXPECT_TRUE(Logged(lines, 6, kEncryptionOff));
}

TEST_F(CCompressionTest, ValuesAreSetAndLogged) {
    static constexpr struct {
        const char* compression;
        const char* encryption;
        const char* compressionLine;
        const char* encryptionLine;
    } kRows[] = {{"0", "0", kCompressionOff, kEncryptionOff},
                 {"1", "0", kCompressionOn, kEncryptionOff},
                 {"0", "1", kCompressionOff, kEncryptionOn},
                 {"9", "256", kCompressionOn, kEncryptionOn},
                 {"-1", "-2147483647", kCompressionOn, kEncryptionOn}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.compression);
        ConnectWith(row.compression, row.encryption);
        EXPECT_TRUE(LinesFit(
            {"ZdvfsOpen(\"pool\", 0x0, 0x0) = *", std::string("ZdvfsIoctl(*, 10, ") + row.compression + ", 4) = 0",
             std::string("ZdvfsIoctl(*, 9, ") + row.encryption + ", 4) = 0", "ZdvfsClose(*) = 0"},
            m_calls));
        EXPECT_TRUE(LogFits({{6, row.compressionLine}, {6, row.encryptionLine}}, m_lines));
    }
}

TEST_F(CCompressionTest, RootThatCannotBeOpenedIsLoggedAndHarmsNothing) {
    Double().Add(OnCall("ZdvfsOpen").Fails(EACCES, 4711));
    ConnectWith("1", "1");
    EXPECT_TRUE(LinesFit({"ZdvfsOpen(\"pool\", 0x0, 0x0) = -1"}, m_calls));
    EXPECT_TRUE(LogFits({{2, "CProtocolManager::ZdConnect: Error 13 setting compression and encryption"}}, m_lines));
}

TEST_F(CCompressionTest, RefusedCompressionIsLoggedAndEncryptionFollows) {
    Double().Add(OnCall("ZdvfsIoctl").OnNth(1).Fails(ENOTSUP, 4711));
    ConnectWith("3", "1");
    EXPECT_TRUE(LinesFit({"ZdvfsOpen(\"pool\", 0x0, 0x0) = *", "ZdvfsIoctl(*, 10, 3, 4) = -1",
                          "ZdvfsIoctl(*, 9, 1, 4) = 0", "ZdvfsClose(*) = 0"},
                         m_calls));
    EXPECT_TRUE(LogFits({{2, "CProtocolManager::ZdConnect: Error 129 setting compression value 3"}, {6, kEncryptionOn}},
                        m_lines));
}

TEST_F(CCompressionTest, RefusedEncryptionIsLoggedAndTheRootIsClosed) {
    Double().Add(OnCall("ZdvfsIoctl").OnNth(2).Fails(EPERM));
    ConnectWith("1", "-5");
    EXPECT_TRUE(Fits("ZdvfsClose(*) = 0", m_calls.back()));
    EXPECT_TRUE(LogFits({{6, kCompressionOn}, {2, "CProtocolManager::ZdConnect: Error 1 setting encryption value -5"}},
                        m_lines));
}

TEST_F(CCompressionTest, RefusedZeroIsAnErrorToo) {
    Double().Add(OnCall("ZdvfsIoctl").Fails(EINVAL));
    ConnectWith("0", "0");
    EXPECT_TRUE(LogFits({{2, "CProtocolManager::ZdConnect: Error 22 setting compression value 0"},
                         {2, "CProtocolManager::ZdConnect: Error 22 setting encryption value 0"}},
                        m_lines));
}

// A result above 0 is no success either; what it leaves in errno is its own.
TEST_F(CCompressionTest, PositiveResultIsAnErrorAlsoWhereItEqualsTheValue) {
    Double().Add(OnCall("ZdvfsIoctl").Answers(1));
    ConnectWith("1", "1");
    EXPECT_TRUE(LogFits({{2, "CProtocolManager::ZdConnect: Error 0 setting compression value 1"},
                         {2, "CProtocolManager::ZdConnect: Error 0 setting encryption value 1"}},
                        m_lines));
}

TEST_F(CCompressionTest, ClosingTheRootMayFail) {
    Double().Add(OnCall("ZdvfsClose").Fails(EIO));
    ConnectWith("1", "1");
    EXPECT_EQ(4U, m_calls.size());
    EXPECT_TRUE(LogFits({{6, kCompressionOn}, {6, kEncryptionOn}}, m_lines));
}

}  // namespace
