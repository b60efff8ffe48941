// Descriptors as text.
#include "LocalFixture.h"

namespace zd::test {
namespace {

class Security : public LocalEngine {
protected:
    Security() { WriteText("pool/f", "data"); }
};

constexpr char kText[] = "O:BAG:BAD:(A;;GA;;;BA)(A;;GA;;;SY)";

TEST_F(Security, TextSurvivesAMount) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    for (const char* path : {"pool/f", "pool/d", "pool"}) {
        EXPECT_EQ("", DescriptorOf(path)) << path;
        EXPECT_EQ(0, ZdvfsSetNTAclStr(path, kText)) << path;
    }
    Remount();
    for (const char* path : {"pool/f", "pool/d", "pool"}) EXPECT_EQ(kText, DescriptorOf(path)) << path;
}

TEST_F(Security, ByDescriptorIsTheSameText) {
    const int file = ZdvfsOpen("pool/f", kZdvfsReadOnly, 0);
    char buffer[256] = "unset";
    EXPECT_EQ(0, ZdvfsFgetNTAclStr(file, buffer, sizeof buffer));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(0, ZdvfsFsetNTAclStr(file, kText));
    EXPECT_EQ(kText, DescriptorOf("pool/f"));
    EXPECT_EQ(0, ZdvfsFgetNTAclStr(file, buffer, sizeof buffer));
    EXPECT_STREQ(kText, buffer);
    EXPECT_EQ(0, ZdvfsClose(file));
    const int root = ZdvfsOpen("pool", 0, 0);
    EXPECT_EQ(0, ZdvfsFsetNTAclStr(root, "O:SY"));
    EXPECT_EQ("O:SY", DescriptorOf("pool"));
    EXPECT_EQ(0, ZdvfsClose(root));
}

TEST_F(Security, DsidQueriesTellWhetherTheDefaultApplies) {
    const int file = ZdvfsOpen("pool/f", kZdvfsReadOnly, 0);
    char buffer[256] = "unset";
    int flag = 1;
    EXPECT_EQ(0, ZdvfsGetDsidNTAclStr("pool/f", buffer, sizeof buffer, &flag));
    EXPECT_EQ(1, flag);
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(0, ZdvfsSetNTAclStr("pool/f", kText));
    EXPECT_EQ(0, ZdvfsGetDsidNTAclStr("pool/f", buffer, sizeof buffer, &flag));
    EXPECT_EQ(0, flag);
    EXPECT_STREQ(kText, buffer);
    flag = 1;
    EXPECT_EQ(0, ZdvfsFgetDsidNTAclStr(file, buffer, sizeof buffer, &flag));
    EXPECT_EQ(0, flag);
    EXPECT_EQ(0, ZdvfsFgetDsidNTAclStr(file, buffer, sizeof buffer, nullptr));
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Security, NullAndEmptyTextClear) {
    for (const char* text : {static_cast<const char*>(nullptr), ""}) {
        ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/f", kText));
        ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/f", text));
        EXPECT_EQ("", DescriptorOf("pool/f"));
    }
}

TEST_F(Security, BufferMustHoldTextAndTerminator) {
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/f", "O:BA"));
    char buffer[5] = "****";
    EXPECT_EQ((Failure{ERANGE, ERROR_INSUFFICIENT_BUFFER}),
              FailureOf([&] { return ZdvfsGetNTAclStr("pool/f", buffer, 4); }));
    EXPECT_STREQ("****", buffer);
    EXPECT_EQ(0, ZdvfsGetNTAclStr("pool/f", buffer, 5));
    EXPECT_STREQ("O:BA", buffer);
    for (const int size : {0, -1, INT_MIN}) {
        EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsGetNTAclStr("pool/f", buffer, size); })) << size;
    }
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsGetNTAclStr("pool/f", nullptr, 5); }));
}

TEST_F(Security, LongTextsAreKeptWhole) {
    const std::string text = "D:" + std::string(200000, 'x');
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/f", text.c_str()));
    std::string buffer(300000, '\0');
    ASSERT_EQ(0, ZdvfsGetNTAclStr("pool/f", buffer.data(), static_cast<int>(buffer.size())));
    EXPECT_EQ(text, buffer.c_str());
    const std::string tooLong(2u << 20, 'x');
    EXPECT_EQ(kInvalid, FailureOf([&] { return ZdvfsSetNTAclStr("pool/f", tooLong.c_str()); }));
}

TEST_F(Security, OddBytesInTheTextComeBack) {
    const char* text = "D:\n%41\r\tend\n\xC3\xA9\xFF";
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/f", text));
    EXPECT_EQ(text, DescriptorOf("pool/f"));
}

TEST_F(Security, DamagedMetadataIsNeverTakenForNone) {
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/f", kText));
    WriteDiskFile(OnDisk(L"%m.f"), "zdvfs metadata 1\nattributes=00");
    const Failure damaged{EIO, ERROR_FILE_CORRUPT};
    char buffer[256];
    int flag = 1;
    EXPECT_EQ(damaged, FailureOf([&] { return ZdvfsGetNTAclStr("pool/f", buffer, sizeof buffer); }));
    EXPECT_EQ(damaged, FailureOf([&] { return ZdvfsGetDsidNTAclStr("pool/f", buffer, sizeof buffer, &flag); }));
    EXPECT_EQ(damaged, FailureOf([&] { return ZdvfsChmod("pool/f", 1); }));
    EXPECT_EQ("data", ReadText("pool/f"));
    EXPECT_EQ(4, StatOf("pool/f").size);
    ASSERT_EQ(0, ZdvfsRename("pool/f", "pool/g"));
    EXPECT_EQ(damaged, FailureOf([&] { return ZdvfsGetNTAclStr("pool/g", buffer, sizeof buffer); }));
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/g", kText));
    EXPECT_EQ(kText, DescriptorOf("pool/g"));
}

}  // namespace
}  // namespace zd::test
