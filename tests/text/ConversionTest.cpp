// UTF-16 and UTF-8, names in log lines, comparison of names.
#include "base/Conversion.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <clocale>
#include <map>

#include "harness/ImportPatch.h"

namespace zd::test {
namespace {

struct PairRow {
    const char* name;
    std::wstring wide;
    std::string utf8;
};

const PairRow kPairs[] = {
    {"empty", L"", ""},
    {"ASCII", L"abc", "abc"},
    {"two bytes, first and last", L"\u0080\u07ff", "\xc2\x80\xdf\xbf"},
    {"three bytes, first and last", L"\u0800\uffff", "\xe0\xa0\x80\xef\xbf\xbf"},
    {"four bytes, first and last", L"\xd800\xdc00\xdbff\xdfff", "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"},
    {"a zero inside", std::wstring(L"a\0b", 3), std::string("a\0b", 3)},
    {"control characters", L"\x01\n\x7f", "\x01\n\x7f"},
};

TEST(Conversion, GoesBothWays) {
    for (const PairRow& row : kPairs) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.utf8, WideToUtf8(row.wide));
        EXPECT_TRUE(row.wide == Utf8ToWide(row.utf8));
    }
}

TEST(Conversion, UnpairedSurrogatesBecomeTheReplacementCharacter) {
    const std::string replaced = "\xef\xbf\xbd";
    EXPECT_EQ(replaced, WideToUtf8(L"\xd800"));
    EXPECT_EQ(replaced, WideToUtf8(L"\xdc00"));
    EXPECT_EQ("a" + replaced + "b", WideToUtf8(L"a\xdbff"
                                               L"b"));
    EXPECT_EQ(replaced + replaced, WideToUtf8(L"\xdc00\xd800"));
}

TEST(Conversion, MalformedUtf8BecomesTheReplacementCharacter) {
    for (const char* const text : {"\xff", "\xc3", "a\x80", "\xed\xa0\x80", "\xc0\xaf", "\xf5\x80\x80\x80"}) {
        const std::wstring wide = Utf8ToWide(text);
        EXPECT_NE(std::wstring::npos, wide.find(L'\ufffd')) << text;
        EXPECT_EQ(std::wstring::npos, wide.find(L'/')) << text;
    }
}

TEST(Conversion, LongTextsAreWhole) {
    EXPECT_EQ(std::string(1000000, 'x'), WideToUtf8(std::wstring(1000000, L'x')));
    EXPECT_EQ(3000000U, WideToUtf8(std::wstring(1000000, L'\u4e00')).size());
    EXPECT_EQ(1000000U, Utf8ToWide(std::string(1000000, 'x')).size());
}

// The length that is answered when it is asked for; the conversion itself is refused.
int g_lengthAnswered;

int WINAPI RefuseToNarrow(UINT, DWORD, const wchar_t*, int, char*, int size, const char*, BOOL*) {
    return size == 0 ? g_lengthAnswered : 0;
}

int WINAPI RefuseToWiden(UINT, DWORD, const char*, int, wchar_t*, int size) {
    return size == 0 ? g_lengthAnswered : 0;
}

TEST(Conversion, WhatTheSystemDoesNotConvertBecomesEmpty) {
    const HMODULE program = ::GetModuleHandleW(nullptr);
    const CImportPatch narrow(program, "WideCharToMultiByte", &RefuseToNarrow);
    const CImportPatch widen(program, "MultiByteToWideChar", &RefuseToWiden);
    for (const int length : {0, 3}) {
        g_lengthAnswered = length;
        EXPECT_EQ(0U, WideToUtf8(L"abc").size()) << length;
        EXPECT_EQ(0U, Utf8ToWide("abc").size()) << length;
    }
}

TEST(NameForLog, EachControlCharacterShowsByItsCode) {
    for (wchar_t unit = 1; unit < 0x200; ++unit) {
        const bool isControl = unit < 0x20 || unit == 0x7f;
        char code[16];
        std::snprintf(code, sizeof code, "<%04x>", static_cast<unsigned>(unit));
        const std::wstring name{L'a', unit, L'b'};
        const std::string expected = isControl ? "a" + std::string(code) + "b" : WideToUtf8(name);
        EXPECT_EQ(expected, NameForLog(name.c_str()));
        EXPECT_EQ(expected, NameForLog(WideToUtf8(name).c_str()));
    }
}

TEST(NameForLog, NullAndEmptyAndZerosInside) {
    EXPECT_EQ("(null)", NameForLog(static_cast<const wchar_t*>(nullptr)));
    EXPECT_EQ("(null)", NameForLog(static_cast<const char*>(nullptr)));
    EXPECT_EQ("", NameForLog(L""));
    EXPECT_EQ("", NameForLog(""));
    EXPECT_EQ("a<0000>b", NameForLog(std::string_view("a\0b", 3)));
    EXPECT_EQ("a<0000>b", NameForLog(std::wstring_view(L"a\0b", 3)));
}

TEST(NameForLog, FormatsInNamesAreText) {
    EXPECT_EQ("%s%n%d", NameForLog(L"%s%n%d"));
}

TEST(CutAtCharacter, CutsBetweenCharacters) {
    const std::string text = "a\xc3\xa4\xe4\xb8\x80\xf0\x9f\x98\x80";  // 1, 2, 3 and 4 bytes
    const std::size_t expected[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 10};
    for (std::size_t bytes = 0; bytes < std::size(expected); ++bytes) {
        EXPECT_EQ(text.substr(0, expected[bytes]), CutAtCharacter(text, bytes)) << bytes;
    }
    EXPECT_EQ("", CutAtCharacter("", 5));
}

int Sign(int value) {
    return value < 0 ? -1 : value > 0 ? 1 : 0;
}

TEST(CompareNoCase, FollowsTheCLocale) {
    static constexpr struct {
        const wchar_t* first;
        const wchar_t* second;
        int sign;
    } kRows[] = {{L"", L"", 0},
                 {L"A.TXT", L"a.txt", 0},
                 {L"a", L"B", -1},
                 {L"B", L"a", 1},
                 {L"a", L"ab", -1},
                 {L"ab", L"a", 1},
                 {L"_", L"A", -1},
                 {L"[", L"a", -1},
                 {L"\u00c4", L"\u00e4", -1},
                 {L"\u0416", L"\u0436", -1},
                 {L"\u0130", L"i", 1},
                 {L"\xd800", L"\uffff", -1}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(testing::Message() << WideToUtf8(row.first) << " and " << WideToUtf8(row.second));
        EXPECT_EQ(row.sign, Sign(CompareNoCase(row.first, row.second)));
        EXPECT_EQ(-row.sign, Sign(CompareNoCase(row.second, row.first)));
    }
}

TEST(CompareNoCase, AgreesWithTheRuntimeForEveryUnit) {
    const _locale_t locale = ::_create_locale(LC_ALL, "C");
    ASSERT_NE(nullptr, locale);
    for (const wchar_t other : {L'A', L'Z', L'a', L'z', L'[', L'\u00c4', L'\u017f', L'\u212a', L'\uffff'}) {
        for (unsigned unit = 1; unit < 0x10000; ++unit) {
            const wchar_t first[] = {static_cast<wchar_t>(unit), L'\0'};
            const wchar_t second[] = {other, L'\0'};
            ASSERT_EQ(Sign(::_wcsicmp_l(first, second, locale)), Sign(CompareNoCase(first, second)))
                << unit << " and " << static_cast<unsigned>(other);
        }
    }
    ::_free_locale(locale);
}

TEST(CompareNoCase, DoesNotFollowALocaleThatTheHostSets) {
    const int before = Sign(CompareNoCase(L"\u00c4", L"\u00e4"));
    ASSERT_NE(nullptr, std::setlocale(LC_ALL, "German_Germany.1252"));
    EXPECT_EQ(before, Sign(CompareNoCase(L"\u00c4", L"\u00e4")));
    std::setlocale(LC_ALL, "C");
}

TEST(NameLess, OrdersMapsAndFindsByPlainText) {
    std::map<std::wstring, int, CNameLess> names;
    names[L"A.TXT"] = 1;
    names[L"b"] = 2;
    EXPECT_EQ(1U, names.count(L"a.txt"));
    EXPECT_EQ(2, names.find(L"B")->second);
    names[L"a.Txt"] = 3;
    EXPECT_EQ(2U, names.size());
    EXPECT_EQ(3, names.begin()->second);
    EXPECT_TRUE(names.find(L"c") == names.end());
}

}  // namespace
}  // namespace zd::test
