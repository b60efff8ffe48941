// Renaming.
#include "LocalFixture.h"

namespace zd::test {
namespace {

class Rename : public LocalEngine {};

TEST_F(Rename, KeepsDataDescriptorAndAttributes) {
    WriteText("pool/a", "data");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/a", "O:BA"));
    ASSERT_EQ(0, ZdvfsChmod("pool/a", 0x26));
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    ASSERT_EQ(0, ZdvfsRename("pool/a", "pool/d/B"));
    EXPECT_FALSE(Exists("pool/a"));
    EXPECT_FALSE(DiskHas(OnDisk(L"%m.a")));
    EXPECT_EQ("data", ReadText("pool/d/B"));
    EXPECT_EQ("O:BA", DescriptorOf("pool/d/B"));
    EXPECT_EQ(0x26, StatOf("pool/d/B").attributes);
}

TEST_F(Rename, OfADirectoryTakesWhatIsInItAlong) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 2));
    ASSERT_EQ(0, ZdvfsMkdir("pool/d/e", 0));
    WriteText("pool/d/e/f", "deep");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/d", "O:BA"));
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/d/e/f", "O:SY"));
    ASSERT_EQ(0, ZdvfsRename("pool/d", "pool/D"));
    EXPECT_FALSE(Exists("pool/d"));
    EXPECT_EQ("deep", ReadText("pool/D/e/f"));
    EXPECT_EQ("O:BA", DescriptorOf("pool/D"));
    EXPECT_EQ("O:SY", DescriptorOf("pool/D/e/f"));
    EXPECT_EQ(0x12, StatOf("pool/D").attributes);
}

TEST_F(Rename, ReplacesNothing) {
    WriteText("pool/a", "a");
    WriteText("pool/b", "b");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/b", "O:BA"));
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    for (const char* target : {"pool/b", "pool/d", "pool", "/"}) {
        EXPECT_EQ(kExists, FailureOf([&] { return ZdvfsRename("pool/a", target); })) << target;
    }
    EXPECT_EQ(kExists, FailureOf([] { return ZdvfsRename("pool/d", "pool/b"); }));
    EXPECT_EQ("b", ReadText("pool/b"));
    EXPECT_EQ("O:BA", DescriptorOf("pool/b"));
    EXPECT_EQ("a", ReadText("pool/a"));
}

TEST_F(Rename, FailsAsTheTableSays) {
    WriteText("pool/a", "a");
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    static constexpr struct {
        const char* from;
        const char* to;
        Failure expected;
    } kRows[] = {
        {"pool/none", "pool/x", kMissing},
        {"pool/none", "pool/none", kMissing},
        {"pool/a", "pool/none/x", kMissingParent},
        {"pool/a", "pool/a/x", kInvalid},
        {"pool/d", "pool/d/x", kInvalid},
        {"pool/d", "pool/d/x/y", kInvalid},
        {"pool/d", "pool/a/x", kNoDirectory},
        {"pool", "pool2", kMissing},
        {"pool", "pool/x", kBusy},
        {"pool/a", nullptr, kInvalid},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(row.expected, FailureOf([&] { return ZdvfsRename(row.from, row.to); }))
            << row.from << " to " << (row.to ? row.to : "(null)");
    }
    EXPECT_EQ((std::vector<std::string>{"a", "d"}), NamesOf("pool"));
}

TEST_F(Rename, ToItsOwnNameSucceeds) {
    WriteText("pool/a", "a");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/a", "O:BA"));
    EXPECT_EQ(0, ZdvfsRename("pool/a", "/pool//./a"));
    EXPECT_EQ("a", ReadText("pool/a"));
    EXPECT_EQ("O:BA", DescriptorOf("pool/a"));
}

TEST_F(Rename, ChangesCaseOnly) {
    WriteText("pool/a", "a");
    EXPECT_EQ(0, ZdvfsRename("pool/a", "pool/A"));
    EXPECT_EQ(std::vector<std::string>{"A"}, NamesOf("pool"));
}

TEST_F(Rename, ToAndFromALongName) {
    const std::string longName = "pool/" + std::string(1000, 'L');
    WriteText("pool/a", "a");
    ASSERT_EQ(0, ZdvfsSetNTAclStr("pool/a", "O:BA"));
    ASSERT_EQ(0, ZdvfsRename("pool/a", longName.c_str()));
    EXPECT_EQ("a", ReadText(longName.c_str()));
    EXPECT_EQ(std::vector<std::string>{longName.substr(5)}, NamesOf("pool"));
    ASSERT_EQ(0, ZdvfsRename(longName.c_str(), "pool/b"));
    EXPECT_EQ("O:BA", DescriptorOf("pool/b"));
    EXPECT_EQ(std::vector<std::string>{"b"}, NamesOf("pool"));
}

TEST_F(Rename, IsFollowedByOpenDescriptors) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    WriteText("pool/d/a", "a");
    const int file = ZdvfsOpen("pool/d/a", kZdvfsReadWrite, 0);
    ASSERT_EQ(0, ZdvfsRename("pool/d/a", "pool/d/b"));
    EXPECT_EQ(0, ZdvfsFsetNTAclStr(file, "O:BA"));
    EXPECT_EQ("O:BA", DescriptorOf("pool/d/b"));
    EXPECT_EQ(1, ZdvfsPwrite(file, "B", 1, 0));
    EXPECT_EQ("B", ReadText("pool/d/b"));
    EXPECT_EQ(0, ZdvfsClose(file));
}

TEST_F(Rename, BetweenPoolsIsRefused) {
    MountRequest other("other");
    ASSERT_EQ(0, other.Mount());
    WriteText("pool/a", "a");
    EXPECT_EQ((Failure{EXDEV, ERROR_NOT_SAME_DEVICE}), FailureOf([] { return ZdvfsRename("pool/a", "other/a"); }));
    EXPECT_EQ("a", ReadText("pool/a"));
    EXPECT_EQ(0, ZdvfsUmount("other"));
}

}  // namespace
}  // namespace zd::test
