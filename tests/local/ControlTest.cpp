// Control requests and what the pool remembers of them.
#include <cstdarg>

#include "LocalFixture.h"
#include "RequestLog.h"

namespace zd::test {
namespace {

constexpr int kQueryRequests = 0x5A440001;

int PassOn(int descriptor, int request, ...) {
    va_list arguments;
    va_start(arguments, request);
    const int result = ZdvfsVIoctl(descriptor, request, arguments);
    va_end(arguments);
    return result;
}

class Control : public LocalEngine {
protected:
    Control() {
        WriteText("pool/f", "x");
        m_root = ZdvfsOpen("pool", 0, 0);
        m_file = ZdvfsOpen("pool/f", kZdvfsReadWrite, 0);
        EXPECT_GE(m_root, 0);
    }
    ~Control() override {
        EXPECT_EQ(0, ZdvfsClose(m_file));
        EXPECT_EQ(0, ZdvfsClose(m_root));
    }
    std::string Query() const {
        char buffer[4096] = "unset";
        EXPECT_EQ(0, ZdvfsIoctl(m_root, kQueryRequests, buffer, static_cast<int>(sizeof buffer)));
        return buffer;
    }
    int m_root = -1;
    int m_file = -1;
};

TEST_F(Control, KnownRequestsAreRememberedWithTheirValues) {
    EXPECT_EQ("", Query());
    EXPECT_EQ(0, ZdvfsIoctl(m_root, kZdvfsIoctlSetCompression, 0, 4));
    EXPECT_EQ(0, ZdvfsIoctl(m_root, kZdvfsIoctlSetCompression, 1, 4));
    EXPECT_EQ(0, PassOn(m_root, kZdvfsIoctlSetEncryption, -1, 4));
    EXPECT_EQ(0, ZdvfsIoctl(m_file, kZdvfsIoctlSetSegmentSize, 1048576, 4));
    EXPECT_EQ(0, ZdvfsIoctl(m_file, kZdvfsIoctlSetStreamSegmentSize, 65536, 4));
    EXPECT_EQ(0, ZdvfsIoctl(m_root, kZdvfsIoctlTaskTime, 600, 4));
    EXPECT_EQ(0, ZdvfsIoctl(m_root, kZdvfsIoctlSyncFileCount, 1000, 4));
    EXPECT_EQ(0, ZdvfsIoctl(m_file, kZdvfsIoctlSetStorageLocality, nullptr, 0, "vm 1", 0, 32));
    EXPECT_EQ(
        "2 1048576 1 /pool/f\n9 -1 1 /pool\n10 1 2 /pool\n14 600 1 /pool\n16 1000 1 /pool\n23 65536 1 /pool/f\n"
        "46 vm%201 1 /pool/f\n",
        Query());
}

TEST_F(Control, UnknownRequestsSucceedAndAreCounted) {
    for (const int request : {0, -1, 1, 999, INT_MIN, INT_MAX}) EXPECT_EQ(0, ZdvfsIoctl(m_root, request)) << request;
    EXPECT_EQ(0, ZdvfsIoctl(m_root, 999));
    EXPECT_NE(std::string::npos, Query().find("999 - 2 /pool\n"));
    EXPECT_NE(std::string::npos, Query().find("-2147483648 - 1 /pool\n"));
}

TEST_F(Control, MemoryOutlivesTheMount) {
    EXPECT_EQ(0, ZdvfsIoctl(m_root, 9, 1, 4));
    Remount();
    EXPECT_EQ(0, ZdvfsIoctl(m_root, 9, 2, 4));
    EXPECT_EQ("9 2 2 /pool\n", Query());
}

TEST_F(Control, BadArgumentListsDoNoHarm) {
    for (const int request : {2, 9, 46, 12345}) {
        EXPECT_EQ(0, ZdvfsVIoctl(m_root, request, nullptr)) << request;
        EXPECT_EQ(0, ZdvfsVIoctl(m_root, request, reinterpret_cast<va_list>(0x1234))) << request;
    }
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsVIoctl(m_root, kQueryRequests, nullptr); }));
    EXPECT_EQ(0, ZdvfsIoctl(m_root, 46, nullptr, 0, reinterpret_cast<const char*>(0x1234), 0, 32));
    EXPECT_EQ(0, ZdvfsIoctl(m_root, 46, nullptr, 0, nullptr, 0, 32));
    const std::string unterminated(32, 'x');
    EXPECT_EQ(0, ZdvfsIoctl(m_root, 46, nullptr, 0, unterminated.data(), 0, 32));
    EXPECT_NE(std::string::npos, Query().find("46 " + unterminated + " "));
}

TEST_F(Control, QueryNeedsAFittingBuffer) {
    EXPECT_EQ(0, ZdvfsIoctl(m_root, 9, 1, 4));
    char buffer[64] = "*";
    EXPECT_EQ((Failure{ERANGE, ERROR_INSUFFICIENT_BUFFER}),
              FailureOf([&] { return ZdvfsIoctl(m_root, kQueryRequests, buffer, 12); }));
    EXPECT_STREQ("*", buffer);
    EXPECT_EQ(0, ZdvfsIoctl(m_root, kQueryRequests, buffer, 13));
    EXPECT_STREQ("9 1 1 /pool\n", buffer);
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsIoctl(m_root, kQueryRequests, nullptr, 64); }));
}

TEST_F(Control, DescriptorOfTheRootServesNoData) {
    char byte = 0;
    EXPECT_EQ(kIsDirectory, FailureOf([&] { return ZdvfsPread(m_root, &byte, 1, 0); }));
    EXPECT_EQ(kIsDirectory, FailureOf([&] { return ZdvfsPwrite(m_root, &byte, 1, 0); }));
    EXPECT_EQ(kIsDirectory, FailureOf([&] { return ZdvfsLseek(m_root, 0, 0); }));
    EXPECT_EQ(kIsDirectory, FailureOf([&] { return ZdvfsAppend(m_root, 1, 0, m_file, 0); }));
    ZdvfsStatRecord record = {};
    EXPECT_EQ(0, ZdvfsFstat(m_root, &record));
    EXPECT_EQ(kZdvfsModeDirectory, record.mode & kZdvfsModeTypeMask);
}

TEST(RequestLog, ReadsWhatItWroteAndPassesOverTheRest) {
    engine::CRequestLog log;
    log.Note(46, "a b\nc", "/pool/x y\nz", 100);
    log.Note(9, "", "/pool", 200);
    const engine::CRequestLog back(log.Format() + "garbage\n7 8\n");
    EXPECT_EQ(log.Format(), back.Format());
    EXPECT_EQ("9 - 1 /pool\n46 a%20b%0ac 1 /pool/x y%0az\n", back.FormatForQuery());
}

}  // namespace
}  // namespace zd::test
