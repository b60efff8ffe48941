// From a host's name to a storage path.
#include "namespace/PathTranslation.h"

#include <gtest/gtest.h>

#include <string>

#include "harness/TextCompare.h"

namespace zd::test {
namespace {

// The path, or "code N" where the translation fails.
std::string Translated(const std::wstring& prefix, const wchar_t* name) {
    try {
        return std::string(TranslatePath(CWideString(prefix), name).view());
    } catch (DWORD code) {
        return "code " + std::to_string(code);
    }
}

TEST(PathTranslation, PrefixAndNameStandTogetherAsTheyAre) {
    static constexpr struct {
        const wchar_t* prefix;
        const wchar_t* name;
        const char* path;
    } kRows[] = {
        {L"/share", L"\\dir\\file.txt", "/share/dir/file.txt"},
        {L"/", L"\\dir\\file.txt", "//dir/file.txt"},
        {L"pool", L"\\dir\\file.txt", "pool/dir/file.txt"},
        {L"pool", L"file.txt", "poolfile.txt"},
        {L"pool", L"/dir/file.txt", "pool/dir/file.txt"},
        {L"pool", L"\\dir/mixed\\x", "pool/dir/mixed/x"},
        {L"pool", L"\\\\dir\\\\x\\", "pool//dir//x/"},
        {L"pool", L"\\.\\..\\X", "pool/./../X"},
        {L"pool", L"", "pool"},
        {L"pool", nullptr, "pool"},
        {L"/", L"", "/"},
        {L"/", nullptr, "/"},
        {L"po\\ol", L"\\a", "po/ol/a"},
        {L"pool", L"\\\u00e4\u0416", "pool/\xc3\xa4\xd0\x96"},
        {L"pool", L"\\\u4e00", "pool/\xe4\xb8\x80"},
        {L"pool", L"\\\xd83d\xde00", "pool/\xf0\x9f\x98\x80"},
        {L"pool", L"\\\xd83d", "pool/\xef\xbf\xbd"},
        {L"pool", L"\\a\x01\n", "pool/a\x01\n"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(row.path, Translated(row.prefix, row.name));
    }
}

TEST(PathTranslation, NameThatNeedsMoreThanTwoBytesAUnitFailsWithTwo) {
    EXPECT_EQ("code 2", Translated(L"/", std::wstring(100, L'\u4e00').c_str()));
    EXPECT_EQ(101U, Translated(L"/", std::wstring(100, L'a').c_str()).size());
    EXPECT_EQ(201U, Translated(L"/", std::wstring(100, L'\u00e4').c_str()).size());
}

// Of n units, 2n bytes are there for text and terminator.
TEST(PathTranslation, BoundCountsTheTerminatorAndThePrefix) {
    EXPECT_EQ("code 2", Translated(L"", L""));
    EXPECT_EQ("code 2", Translated(L"", nullptr));
    EXPECT_EQ("code 2", Translated(L"", L"\u00e4"));
    EXPECT_EQ("a\xc3\xa4", Translated(L"", L"a\u00e4"));
    EXPECT_EQ("code 2", Translated(L"", L"\u4e00"));
    EXPECT_EQ("code 2", Translated(L"a", L"\u4e00"));
    EXPECT_EQ("ab\xe4\xb8\x80", Translated(L"ab", L"\u4e00"));
    EXPECT_EQ("code 2", Translated(L"ab", L"\u4e00\u4e00"));
}

TEST(PathTranslation, TrailingSeparatorsGoButALoneOneStays) {
    static constexpr struct {
        const wchar_t* name;
        const wchar_t* without;
    } kRows[] = {{L"", L""},   {L"\\", L"\\"}, {L"/", L"/"},         {L"\\\\", L"\\"},      {L"/\\/", L"/"},
                 {L"a", L"a"}, {L"a\\", L"a"}, {L"\\a/\\/", L"\\a"}, {L"\\a\\b", L"\\a\\b"}};
    for (const auto& row : kRows) {
        EXPECT_EQ(row.without, WithoutTrailingSeparators(row.name)) << Narrow(row.name);
    }
}

TEST(PathTranslation, LongNamesPass) {
    const std::wstring name(100000, L'n');
    EXPECT_EQ(100004U, Translated(L"pool", name.c_str()).size());
}

}  // namespace
}  // namespace zd::test
