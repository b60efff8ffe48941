// Names: what they may hold, how they stand on disk, and what paths mean.
#include <algorithm>

#include "LocalFixture.h"
#include "NameCodec.h"

namespace zd::test {
namespace {

using engine::NameFromDisk;
using engine::NameOnDisk;

TEST(NameCodec, WritesEachNameAsTheTableSays) {
    static const struct {
        std::string name;
        const char* onDisk;
    } kRows[] = {
        {"report.dat", "report.dat"},
        {"report.dat;F1", "report.dat;%461"},
        {"A", "%41"},
        {"a b", "a b"},
        {" a", "%20a"},
        {"a ", "a%20"},
        {"a.", "a%2e"},
        {"...", "..%2e"},
        {".refresh", ".refresh"},
        {"con", "%63on"},
        {"con.txt", "%63on.txt"},
        {"con .txt", "%63on .txt"},
        {"console", "console"},
        {"com1", "%63om1"},
        {"com10", "com10"},
        {"lpt9.a.b", "%6cpt9.a.b"},
        {"a:b", "a%3ab"},
        {"a\\b", "a%5cb"},
        {"<>\"|?*", "%3c%3e%22%7c%3f%2a"},
        {"100%", "100%25"},
        {"longna~1.txt", "longna%7e1.txt"},
        {"\x01\x7f", "%01%7f"},
        {"\xC3\xA9", "%c3%a9"},
        {"\xFF", "%ff"},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(row.onDisk, NameOnDisk(row.name));
        EXPECT_EQ(row.name, NameFromDisk(row.onDisk).value_or("(none)"));
    }
}

TEST(NameCodec, RefusesEveryOtherSpelling) {
    for (const char* onDisk : {"", "A", "%61", "%4", "%4G", "%4A", "con", "a.", "a ", "%00", "a%2fb", "%2e", ".%2e",
                               "%m.a", "%pool", "%h", "caf\xC3\xA9"}) {
        EXPECT_FALSE(NameFromDisk(onDisk).has_value()) << onDisk;
    }
}

TEST(NameCodec, EveryNameOfOneOrTwoBytesHasItsOwnCaselessName) {
    std::vector<std::string> seen;
    for (int first = 1; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            if (first == '/' || second == '/') continue;
            std::string name(1, static_cast<char>(first));
            if (second != 0) name += static_cast<char>(second);
            if (name == "." || name == "..") continue;
            const std::string onDisk = NameOnDisk(name);
            ASSERT_EQ(name, NameFromDisk(onDisk).value_or("(none)"));
            for (const char c : onDisk) ASSERT_FALSE(c >= 'A' && c <= 'Z') << onDisk;
        }
    }
}

TEST(NameCodec, LongNamesStayWithinAComponentAndDiffer) {
    const std::string a(1023, 'A');
    std::string b = a;
    b.back() = 'B';
    EXPECT_LE(NameOnDisk(a).size() + std::strlen(engine::kSidecarPrefix), 255u);
    EXPECT_NE(NameOnDisk(a), NameOnDisk(b));
    EXPECT_TRUE(engine::IsHashedName(NameOnDisk(a)));
    EXPECT_FALSE(engine::IsHashedName(NameOnDisk(std::string(80, 'A'))));
}

class Names : public LocalEngine {};

TEST_F(Names, DifferingOnlyInCaseAreDifferentObjects) {
    WriteText("pool/readme", "small");
    WriteText("pool/README", "big");
    WriteText("pool/ReadMe", "mixed");
    EXPECT_EQ("small", ReadText("pool/readme"));
    EXPECT_EQ("big", ReadText("pool/README"));
    EXPECT_EQ("mixed", ReadText("pool/ReadMe"));
    EXPECT_FALSE(Exists("pool/Readme"));
    EXPECT_EQ((std::vector<std::string>{"README", "ReadMe", "readme"}), NamesOf("pool"));
    EXPECT_EQ(0, ZdvfsUnlink("pool/README"));
    EXPECT_EQ("small", ReadText("pool/readme"));
}

TEST_F(Names, OddOnesComeBackAsTheyWere) {
    std::vector<std::string> names = {"con",
                                      "nul.txt",
                                      "aux",
                                      "a:b",
                                      "trailing.",
                                      "trailing ",
                                      " leading",
                                      "...",
                                      "back\\slash",
                                      "<>\"|?*",
                                      "per%cent",
                                      "%m.a",
                                      "%pool",
                                      "line\nbreak",
                                      "tilde~1",
                                      "\xF0\x9F\x98\x80",
                                      "not\xFFutf8",
                                      "x;F2",
                                      std::string(1000, 'n'),
                                      std::string(1000, 'N'),
                                      std::string(1023, '\x01')};
    for (const std::string& name : names) WriteText(("pool/" + name).c_str(), "data of " + name);
    Remount();
    for (const std::string& name : names) EXPECT_EQ("data of " + name, ReadText(("pool/" + name).c_str())) << name;
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, NamesOf("pool"));
    for (const std::string& name : names) EXPECT_EQ(0, ZdvfsUnlink(("pool/" + name).c_str())) << name;
    EXPECT_TRUE(NamesOf("pool").empty());
}

TEST_F(Names, OddOnesServeAsDirectoriesToo) {
    for (const std::string& name : {std::string("CON"), std::string("dots.."), std::string(900, 'D')}) {
        const std::string directory = "pool/" + name;
        ASSERT_EQ(0, ZdvfsMkdir(directory.c_str(), 0)) << name;
        WriteText((directory + "/inner").c_str(), "inside");
        EXPECT_EQ("inside", ReadText((directory + "/inner").c_str()));
        EXPECT_EQ(std::vector<std::string>{"inner"}, NamesOf(directory.c_str()));
    }
}

TEST_F(Names, FragmentsAreFoundOnDiskByTheirReadableNames) {
    WriteText("pool/big.vhd", "0");
    WriteText("pool/big.vhd;F1", "1");
    EXPECT_TRUE(DiskHas(OnDisk(L"big.vhd")));
    EXPECT_TRUE(DiskHas(OnDisk(L"big.vhd;%461")));
}

TEST_F(Names, OfMoreThan1023BytesAreTooLong) {
    const Failure tooLong{ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE};
    const std::string path = "pool/" + std::string(1024, 'a');
    ZdvfsStatRecord record;
    EXPECT_EQ(tooLong, FailureOf([&] { return ZdvfsStat(path.c_str(), &record); }));
    EXPECT_EQ(tooLong, FailureOf([&] { return ZdvfsOpen(path.c_str(), kZdvfsReadWrite | kZdvfsCreate, 0); }));
    EXPECT_EQ(38, ENAMETOOLONG);
}

TEST_F(Names, SlashesBeforeAndBetweenDoNotCount) {
    ASSERT_EQ(0, ZdvfsMkdir("pool/d", 0));
    WriteText("pool/d/x", "here");
    for (const char* path : {"/pool/d/x", "//pool/d/x", "///pool//d///x", "pool/./d/./x", "pool/d/x/"}) {
        EXPECT_EQ("here", ReadText(path)) << path;
    }
}

TEST_F(Names, DotDotNeverLeavesThePool) {
    WriteText("pool/x", "inside");
    WriteDiskFile(Root() + L"\\outside", "outside");
    for (const char* path : {"pool/../x", "pool/../../../x", "../pool/x", "/../../pool/x", "pool/d/../x"}) {
        EXPECT_EQ("inside", ReadText(path)) << path;
    }
    EXPECT_EQ(std::nullopt, ReadText("pool/../outside"));
    EXPECT_EQ(std::nullopt, ReadText("pool/..\\outside"));
    EXPECT_EQ(StatOf("pool").creationTime, StatOf("pool/..").creationTime);
    EXPECT_EQ(std::vector<std::string>{"x"}, NamesOf("pool/../.."));
}

TEST_F(Names, ThePlaceOfThePoolsCanBeLookedAt) {
    for (const char* path : {"/", "", "//", "."}) {
        EXPECT_EQ(kZdvfsModeDirectory, StatOf(path).mode & kZdvfsModeTypeMask) << path;
        EXPECT_EQ(std::vector<std::string>{"pool"}, NamesOf(path)) << path;
    }
}

TEST_F(Names, DeepTreesPassTheLimitOfOldPaths) {
    std::string path = "pool";
    for (int level = 0; level < 12; ++level) {
        path += "/level" + std::to_string(level) + std::string(50, 'x');
        ASSERT_EQ(0, ZdvfsMkdir(path.c_str(), 0)) << path.size();
    }
    ASSERT_GT(path.size(), 600u);
    WriteText((path + "/leaf").c_str(), "deep");
    ASSERT_EQ(0, ZdvfsSetNTAclStr((path + "/leaf").c_str(), "O:BA"));
    EXPECT_EQ("deep", ReadText((path + "/leaf").c_str()));
    EXPECT_EQ("O:BA", DescriptorOf((path + "/leaf").c_str()));
    EXPECT_EQ(0, ZdvfsUnlink((path + "/leaf").c_str()));
}

}  // namespace
}  // namespace zd::test
