// The text conversion of hul.dll.
#include <gtest/gtest.h>

#include <string>

#include "hul.h"

namespace zd::test {
namespace {

TEST(Utf8, ConvertsEachTextAsTheTableSays) {
    static const struct {
        std::wstring wide;
        const char* narrow;
    } kRows[] = {
        {L"", ""},
        {L"plain", "plain"},
        {L"\u00e9\u20ac", "\xC3\xA9\xE2\x82\xAC"},
        {L"\xD83D\xDE00", "\xF0\x9F\x98\x80"},
        {L"a\xD83D"
         L"b",
         "a\xEF\xBF\xBD"
         "b"},
        {L"\xDE00", "\xEF\xBF\xBD"},
        {L"\xD83D", "\xEF\xBF\xBD"},
        {L"\xDE00\xD83D", "\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto& row : kRows) {
        char* made = wcstoutf8_malloced(row.wide.c_str());
        ASSERT_NE(nullptr, made);
        EXPECT_STREQ(row.narrow, made);
        _HulFree(made);
        char buffer[32];
        const int size = static_cast<int>(strlen(row.narrow)) + 1;
        EXPECT_EQ(size, wcstoutf8_buf(row.wide.c_str(), buffer, 32));
        EXPECT_STREQ(row.narrow, buffer);
        EXPECT_EQ(size, wcstoutf8_buf(row.wide.c_str(), buffer, size));
        EXPECT_EQ(0, wcstoutf8_buf(row.wide.c_str(), buffer, size - 1));
    }
}

TEST(Utf8, NullArgumentsAreSafe) {
    char buffer[4] = "abc";
    EXPECT_EQ(nullptr, wcstoutf8_malloced(nullptr));
    EXPECT_EQ(0, wcstoutf8_buf(nullptr, buffer, 4));
    EXPECT_EQ(0, wcstoutf8_buf(L"x", nullptr, 4));
    EXPECT_EQ(0, wcstoutf8_buf(L"x", buffer, 0));
    EXPECT_EQ(0, wcstoutf8_buf(L"x", buffer, -1));
    EXPECT_STREQ("abc", buffer);
    _HulFree(nullptr);
}

TEST(Utf8, LongTextsConvertWhole) {
    const std::wstring wide(100000, L'\u20ac');
    char* made = wcstoutf8_malloced(wide.c_str());
    ASSERT_NE(nullptr, made);
    EXPECT_EQ(300000u, strlen(made));
    _HulFree(made);
}

}  // namespace
}  // namespace zd::test
