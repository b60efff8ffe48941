// The optional rule for characters in names.
#include <gtest/gtest.h>

#include <string>

#include "config/ConfigState.h"
#include "harness/TextCompare.h"
#include "namespace/NameRule.h"

namespace zd::test {
namespace {

class NameRule : public ::testing::Test {
protected:
    // The state belongs to the library's entry point, of which this program has none.
    static void SetUpTestSuite() { g_configState.Create(); }
    static void TearDownTestSuite() { g_configState.Destroy(); }
    static bool Refused(std::uint16_t highest, const std::wstring& name) {
        ConfigState().m_highestValidNameChar.store(highest);
        return NameHasInvalidCharacters(name.c_str());
    }
};

TEST_F(NameRule, ZeroTurnsTheRuleOff) {
    for (const wchar_t* const name : {L"abc", L"\u00e9", L"a\tb", L"\uffff", L""}) {
        EXPECT_FALSE(Refused(0, name)) << Narrow(name);
    }
}

TEST_F(NameRule, RangeIsFromBlankToTheHighestInclusive) {
    static constexpr struct {
        std::uint16_t highest;
        const wchar_t* name;
        bool refused;
    } kRows[] = {
        {0x7F, L"abc", false},         {0x7F, L"", false},         {0x7F, L"\u00e9", true},
        {0x7F, L"a\tb", true},         {0x7F, L"\x7f", false},     {0x7F, L"\u0080", true},
        {0x7F, L" ", false},           {0x7F, L"\x1f", true},      {0x7F, L"abc\x01", true},
        {0x7F, L"<>:\"|?*\\/", false}, {0x7F, L"CON", false},      {0xFFFF, L"\uffff", false},
        {0xFFFF, L"\xd800", false},    {0xFFFF, L"a\x1f", true},   {0xE9, L"\u00e9", false},
        {0xE8, L"\u00e9", true},       {0x10, L"a", true},         {0x20, L" ", false},
        {0x8000, L"\x8001", true},     {0x8000, L"\x7fff", false},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(testing::Message() << row.highest << " " << Narrow(row.name));
        EXPECT_EQ(row.refused, Refused(row.highest, row.name));
    }
}

}  // namespace
}  // namespace zd::test
