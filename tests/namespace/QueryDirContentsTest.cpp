// Slot 11: what a listing holds, in which order, and what it asks of the storage.
#include <map>

#include "harness/RandomBits.h"
#include "NamespaceFixture.h"

namespace zd::test {
namespace {

using ::testing::ElementsAre;
using Names = std::vector<std::wstring>;

std::wstring Wide(const std::string& text) {
    wchar_t units[261] = {};
    ::MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, units, 261);
    return units;
}

class CQueryDirContentsTest : public CNamespaceTest {
protected:
    void SetUp() override {
        CNamespaceTest::SetUp();
        Double().MakeDirectory("pool/dir");
    }

    // The listing of pool/dir where a stream on it answers these names, each of which is a file of that size.
    Listing ListOf(const std::vector<std::pair<std::string, std::int64_t>>& files) {
        std::vector<std::string> names;
        for (const auto& [name, size] : files) {
            Double().MakeFile("pool/dir/" + name, std::string(), size);
            names.push_back(name);
        }
        Double().SetListing("pool/dir", names);
        return List(Open(L"\\dir", kOpenDirectory));
    }
    static std::vector<std::uint64_t> Sizes(const Listing& listing) {
        std::vector<std::uint64_t> sizes;
        for (const DirectoryEntry& entry : listing.entries) sizes.push_back(entry.size);
        return sizes;
    }
};

TEST_F(CQueryDirContentsTest, ReadsTheStreamToItsEndWithOneStatusPerEntry) {
    Double().MakeFile("pool/dir/b", "12345");
    Double().MakeDirectory("pool/dir/a");
    const Handle handle = Open(L"\\dir", kOpenDirectory);
    const Listing listing = List(handle);
    EXPECT_EQ(0U, listing.code);
    EXPECT_EQ((Names{L".", L"..", L"a", L"b"}), listing.names) << "no entry is skipped";
    EXPECT_CALLS("ZdvfsReaddir(dir2) = \".\"", "ZdvfsStat(\"pool/dir/.\") = 0",    //
                 "ZdvfsReaddir(dir2) = \"..\"", "ZdvfsStat(\"pool/dir/..\") = 0",  //
                 "ZdvfsReaddir(dir2) = \"b\"", "ZdvfsStat(\"pool/dir/b\") = 0",    //
                 "ZdvfsReaddir(dir2) = \"a\"", "ZdvfsStat(\"pool/dir/a\") = 0",    //
                 "ZdvfsReaddir(dir2) = null");
    EXPECT_LOG({6, "ZdQueryDirContents Enter\n"}, {6, "ZdQueryDirContents Exit\n"});
    EXPECT_EQ(0x4000U, listing.entries[2].mode & 0x4000);
    EXPECT_EQ(5U, listing.entries[3].size);
}

TEST_F(CQueryDirContentsTest, RootIsListedWithoutASecondSlash) {
    Double().MakeFile("pool/a");
    Double().SetListing("pool", {"a"});
    for (const wchar_t* const name : {L"\\", L"\\dir\\..\\"}) {
        const Handle handle = Open(name, kOpenDirectory);
        EXPECT_EQ(Names{L"a"}, List(handle).names);
        const std::vector<std::string> calls = TakeCalls();
        ASSERT_EQ(3U, calls.size());
        EXPECT_EQ(name == std::wstring(L"\\") ? "ZdvfsStat(\"pool/a\") = 0" : "ZdvfsStat(\"pool/dir/../a\") = 0",
                  calls[1]);
    }
}

TEST_F(CQueryDirContentsTest, NameWithASlashAtItsEndGetsNoSecondOne) {
    Double().MakeFile("pool/dir/a");
    Double().SetListing("pool/dir", {"a"});
    const Handle handle = Open(L"\\dir\\", kOpenDirectory);
    EXPECT_EQ(Names{L"a"}, List(handle).names);
    EXPECT_CALLS("ZdvfsReaddir(dir2) = \"a\"", "ZdvfsStat(\"pool/dir/a\") = 0", "ZdvfsReaddir(dir2) = null");
}

TEST_F(CQueryDirContentsTest, FieldsAreThoseOfTheStatusRecordAndTheChangeTimeIsTheCreationTime) {
    Double().MakeFile("pool/dir/a", "hello");
    NodeState state;
    state.attributes = 0xA5F7;
    state.mode = 0xFFFF81A4;
    state.creationTime = 1;
    state.accessTime = 0;
    state.modificationTime = 3000;
    ASSERT_TRUE(Double().SetState("pool/dir/a", state));
    Double().SetListing("pool/dir", {"a"});
    const Listing listing = List(Open(L"\\dir", kOpenDirectory));
    ASSERT_EQ(1U, listing.entries.size());
    const DirectoryEntry& entry = listing.entries[0];
    EXPECT_EQ(116444736010000000U, entry.creationTime);
    EXPECT_EQ(0U, entry.lastAccessTime);
    EXPECT_EQ(FileTime(3000), entry.lastWriteTime);
    EXPECT_EQ(116444736010000000U, entry.changeTime);
    EXPECT_EQ(0xA5F7U, entry.attributes);
    EXPECT_EQ(5U, entry.size);
    EXPECT_EQ(0xFFFF81A4U, entry.mode);
}

TEST_F(CQueryDirContentsTest, FragmentsAreFoldedIntoTheirFile) {
    const Listing listing = ListOf({{"small", 5}, {"big;F1", 100}, {"big", 100}});
    EXPECT_EQ((Names{L"big", L"small"}), listing.names);
    EXPECT_THAT(Sizes(listing), ElementsAre(200U, 5U));
}

TEST_F(CQueryDirContentsTest, FragmentsMayComeInAnyOrderAndCase) {
    const Listing listing = ListOf({{"a;F10", 1}, {"A;F2", 10}, {"a", 100}, {"a;F1", 1000}, {"b", 7}});
    EXPECT_EQ((Names{L"a", L"b"}), listing.names);
    EXPECT_THAT(Sizes(listing), ElementsAre(1111U, 7U));
}

TEST_F(CQueryDirContentsTest, OtherFieldsAreThoseOfTheFileNotOfItsFragments) {
    Double().MakeFile("pool/dir/a", "12");
    Double().MakeFile("pool/dir/a;F1", "345");
    SetTimes("pool/dir/a", 1, 2, 3);
    SetTimes("pool/dir/a;F1", 11, 12, 13);
    Double().SetListing("pool/dir", {"a;F1", "a"});
    const Listing listing = List(Open(L"\\dir", kOpenDirectory));
    ASSERT_EQ(1U, listing.entries.size());
    EXPECT_EQ(FileTime(1), listing.entries[0].creationTime);
    EXPECT_EQ(FileTime(2), listing.entries[0].lastAccessTime);
    EXPECT_EQ(FileTime(3), listing.entries[0].lastWriteTime);
    EXPECT_EQ(5U, listing.entries[0].size);
}

TEST_F(CQueryDirContentsTest, FragmentWithoutItsFileIsDropped) {
    const Listing listing = ListOf({{"orphan;F1", 100}, {"orphan;F2", 100}, {"other", 5}});
    EXPECT_EQ(Names{L"other"}, listing.names);
    EXPECT_THAT(Sizes(listing), ElementsAre(5U));
    const Listing none = ListOf({{"orphan;F1", 100}});
    EXPECT_EQ(0U, none.code);
    EXPECT_TRUE(none.entries.empty());
}

TEST_F(CQueryDirContentsTest, OnlyANumberAboveZeroMakesAFragment) {
    static constexpr struct {
        const char* name;
        const wchar_t* listed;  // null: a fragment of x
    } kRows[] = {{"x;F0", L"x;F0"},           {"x;Fa", L"x;Fa"},   {"x;F", L"x;F"},       {"x;F2a", L"x;F2a"},
                 {"x;f1", L"x;f1"},           {"x;1", L"x;1"},     {"x;", L"x;"},         {"x;F-1", L"x;F-1"},
                 {"x;F1 ", L"x;F1 "},         {"x;F1;", L"x;F1;"}, {"x;F0x1", L"x;F0x1"}, {"x;F1", nullptr},
                 {"x;F2147483647", nullptr},  {"x;F007", nullptr}, {"x;F+3", nullptr},    {"x;F 3", nullptr},
                 {"x;F99999999999", nullptr}, {"xF1", L"xF1"}};
    for (const auto& row : kRows) {
        const Listing listing = ListOf({{"x", 10}, {row.name, 3}});
        if (row.listed == nullptr) {
            EXPECT_EQ(Names{L"x"}, listing.names) << row.name;
            EXPECT_THAT(Sizes(listing), ElementsAre(13U)) << row.name;
        } else {
            EXPECT_EQ((Names{L"x", row.listed}), listing.names) << row.name;
            EXPECT_THAT(Sizes(listing), ElementsAre(10U, 3U)) << row.name;
        }
    }
}

TEST_F(CQueryDirContentsTest, LastSemicolonDecides) {
    const Listing listing = ListOf({{"x;F1", 1}, {"x;F1;F2", 10}, {"x;F2;a", 100}});
    EXPECT_EQ(Names{L"x;F2;a"}, listing.names) << "x;F1;F2 is a part of x;F1, which is no file of the listing";
    EXPECT_THAT(Sizes(listing), ElementsAre(100U));
    EXPECT_EQ((Names{L"x;y"}), ListOf({{"x;y;F1", 1}, {"x;y", 10}}).names);
}

TEST_F(CQueryDirContentsTest, NamesAreSortedWithoutRegardToCase) {
    EXPECT_EQ((Names{L"alpha", L"Beta", L"Gamma"}), ListOf({{"Beta", 1}, {"alpha", 1}, {"Gamma", 1}}).names);
    EXPECT_EQ((Names{L"a", L"a.b", L"A_", L"ab", L"Z"}),
              ListOf({{"Z", 1}, {"ab", 1}, {"A_", 1}, {"a.b", 1}, {"a", 1}}).names);
}

TEST_F(CQueryDirContentsTest, OfNamesThatDifferInCaseOnlyTheFirstIsListed) {
    const Listing listing = ListOf({{"File", 1}, {"file", 10}, {"FILE", 100}});
    EXPECT_EQ(Names{L"File"}, listing.names);
    EXPECT_THAT(Sizes(listing), ElementsAre(1U));
    EXPECT_EQ(Names{L"file"}, ListOf({{"file", 10}, {"File", 1}}).names);
}

TEST_F(CQueryDirContentsTest, NamesAreSortedByWhatComesAfterALongCommonBeginning) {
    const std::string same = "aBcDeFgHiJkLmNoPqRsTuVwXyZ0123456789";
    const std::string other = "AbCdEfGhIjKlMnOpQrStUvWxYz0123456789";
    const Listing listing = ListOf({{same + "1234567890123456z", 1},
                                    {other + "12345678901234567", 2},
                                    {same + "1234567890123456Y;F1", 4},
                                    {other, 8},
                                    {other + "1234567890123456y", 16},
                                    {same + "1234567890123456", 32},
                                    {other + "1234567890123456Y", 64}});
    EXPECT_EQ((Names{Wide(other), Wide(same + "1234567890123456"), Wide(other + "12345678901234567"),
                     Wide(other + "1234567890123456y"), Wide(same + "1234567890123456z")}),
              listing.names);
    EXPECT_THAT(Sizes(listing), ElementsAre(8U, 32U, 2U, 16U + 4U, 1U));
}

TEST_F(CQueryDirContentsTest, ManyNamesAreSortedBehindABeginningThatNotAllHave) {
    constexpr int kCount = 1500;
    std::vector<std::pair<std::string, std::int64_t>> files = {{"zebra", 1}};
    for (int i = kCount; i > 0; --i) files.emplace_back("a beginning of 24 letters" + std::to_string(10000 + i), i);
    const Listing listing = ListOf(files);
    ASSERT_EQ(kCount + 1U, listing.names.size());
    for (int i = 1; i <= kCount; ++i) {
        EXPECT_EQ(static_cast<std::uint64_t>(i), Sizes(listing)[static_cast<std::size_t>(i) - 1]);
    }
    EXPECT_EQ(L"zebra", listing.names.back());
}

// A plain map of what the entries come to, by folded name.
TEST_F(CQueryDirContentsTest, RandomNamesAreListedAsAMapWouldHoldThem) {
    static const std::vector<std::string> kPieces = {"a",       "A",        "b",        "Z",        "z",
                                                     "_",       "0",        "[",        "~",        ";",
                                                     "F1",      "\xc3\xa4", "\xc3\x84", "\xd0\xb6", "\xf0\x9f\x98\x80",
                                                     "abcdefgh"};
    std::uint64_t bits = 20261121;
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        // Of some rounds the names are ASCII only, and in some they begin alike.
        const std::size_t pieces = round % 2 == 0 ? kPieces.size() : 10;
        const std::string beginning = round % 3 == 0 ? "Common beginning " : "";
        std::vector<std::pair<std::string, std::int64_t>> files;
        struct CExpected {
            std::wstring name;
            std::uint64_t size;
            bool isListed;
        };
        std::map<std::wstring, CExpected> expected;
        std::map<std::string, bool> seen;
        // Many names are sorted in another way than a few.
        const std::size_t count = NextBits(bits) % 80 + (round % 10 == 0 || round % 10 == 3 ? 2500 : 1);
        while (files.size() < count) {
            std::string base = beginning;
            for (std::uint64_t left = NextBits(bits) % 5 + 1; left > 0; --left) {
                base += kPieces[NextBits(bits) % pieces];
            }
            const std::string name =
                NextBits(bits) % 3 == 0 ? base + ";F" + std::to_string(NextBits(bits) % 4 + 1) : base;
            if (!seen.emplace(name, true).second) continue;
            files.emplace_back(name, std::int64_t{1} << files.size() % 60);
            const std::size_t semicolon = name.rfind(";F");
            const std::string number = semicolon == std::string::npos ? "" : name.substr(semicolon + 2);
            const bool isFragment = number.find_first_not_of("0123456789") == std::string::npos &&
                                    number.find_first_not_of('0') != std::string::npos;
            const std::wstring shown = Wide(isFragment ? name.substr(0, semicolon) : name);
            if (shown.empty()) continue;
            std::wstring folded = shown;
            for (wchar_t& unit : folded) {
                if (unit >= L'A' && unit <= L'Z') unit = static_cast<wchar_t>(unit + 32);
            }
            CExpected& entry = expected.try_emplace(folded, CExpected{shown, 0, false}).first->second;
            const auto size = static_cast<std::uint64_t>(files.back().second);
            if (isFragment) {
                entry.size += size;
            } else if (!entry.isListed) {
                entry = CExpected{shown, entry.size + size, true};
            }
        }
        Names names;
        std::vector<std::uint64_t> sizes;
        for (const auto& [folded, entry] : expected) {
            if (!entry.isListed) continue;
            names.push_back(entry.name);
            sizes.push_back(entry.size);
        }
        const Listing listing = ListOf(files);
        EXPECT_EQ(names, listing.names);
        EXPECT_EQ(sizes, Sizes(listing));
    }
}

TEST_F(CQueryDirContentsTest, NamesAreShownInUtf16) {
    const Listing listing = ListOf({{"\xc3\xa4\xe4\xb8\x80\xf0\x9f\x98\x80", 1}});
    EXPECT_EQ(Names{L"\u00e4\u4e00\xd83d\xde00"}, listing.names);
    EXPECT_EQ(Names{L"\u00e4"}, ListOf({{"\xc3\xa4;F1", 1}, {"\xc3\xa4", 1}}).names);
}

TEST_F(CQueryDirContentsTest, EmptyStreamGivesANullBlock) {
    const Handle handle = Open(L"\\dir", kOpenDirectory);
    Double().Add(OnCall("ZdvfsReaddir").Answers(0));
    DirectoryEntry* entries = reinterpret_cast<DirectoryEntry*>(&entries);
    DWORD count = kUntouched;
    EXPECT_EQ(0U, m_manager->ZdQueryDirContents(handle, &entries, &count));
    EXPECT_EQ(nullptr, entries);
    EXPECT_EQ(0U, count);
    EXPECT_CALLS("ZdvfsReaddir(dir2) = null");
}

TEST_F(CQueryDirContentsTest, StreamIsNotRewound) {
    Double().MakeFile("pool/dir/a");
    const Handle handle = Open(L"\\dir", kOpenDirectory);
    EXPECT_EQ(3U, List(handle).entries.size());
    const Listing second = List(handle);
    EXPECT_EQ(0U, second.code);
    EXPECT_TRUE(second.entries.empty());
    EXPECT_EQ(3U, List(Open(L"\\dir", kOpenDirectory)).entries.size());
}

TEST_F(CQueryDirContentsTest, ThousandsOfEntriesAreOneExactBlock) {
    constexpr int kFiles = 3000;
    std::vector<std::string> names;
    for (int i = kFiles; i > 0; --i) {
        names.push_back("f" + std::to_string(100000 + i));
        Double().MakeFile("pool/dir/" + names.back(), "x");
    }
    Double().SetListing("pool/dir", names);
    const Handle handle = Open(L"\\dir", kOpenDirectory);
    DirectoryEntry* entries = nullptr;
    DWORD count = 0;
    ASSERT_EQ(0U, m_manager->ZdQueryDirContents(handle, &entries, &count));
    ASSERT_EQ(DWORD{kFiles}, count);
    EXPECT_EQ(std::size_t{kFiles} * 576, ::HeapSize(::GetProcessHeap(), 0, entries));
    EXPECT_STREQ(L"f100001", entries[0].name);
    EXPECT_STREQ(L"f103000", entries[kFiles - 1].name);
    EXPECT_TRUE(::HeapFree(::GetProcessHeap(), 0, entries));
}

TEST_F(CQueryDirContentsTest, ChangesNothing) {
    Double().MakeFile("pool/dir/a");
    const Handle handle = Open(L"\\dir", kOpenDirectory);
    TakeModified();
    EXPECT_EQ(3U, List(handle).entries.size());
    EXPECT_FALSE(TakeModified());
}

}  // namespace
}  // namespace zd::test
