// Which names look like a fragment of another.
#include <gtest/gtest.h>

#include "harness/TextCompare.h"
#include "namespace/FragmentName.h"

namespace zd::test {
namespace {

TEST(FragmentShape, OnlyWhatTheNumberingGivesIsAFragment) {
    static constexpr struct {
        const wchar_t* name;
        const wchar_t* base;  // empty: not of the shape
    } kRows[] = {
        {L"\\a;F1", L"\\a"},
        {L"\\a;F10", L"\\a"},
        {L"\\d\\a.vhd;F7", L"\\d\\a.vhd"},
        {L"\\a;F1;F2", L"\\a;F1"},
        {L"\\a;F2147483647", L"\\a"},
        {L"\\a;F1\\", L"\\a"},
        {L"\\a;F1/\\", L"\\a"},
        {L"\\a;F1\\.", L"\\a"},
        {L"\\a;F1/./", L"\\a"},
        {L"\\d\\.\\a;F1\\x\\..", L"\\d\\a"},
        {L"\\..\\d\\..\\a;F3", L"\\a"},
        {L"\\.d\\.\\a;F1", L"\\.d\\a"},
        {L"\\d.\\.\\a;F1", L"\\d.\\a"},
        {L"\\...\\.\\a;F1", L"\\...\\a"},
        {L"\\a;F1\\..", L""},
        {L"\\a;F1\\..\\b", L""},
        {L"\\d\\..", L""},
        {L"\\a;b;F3", L"\\a;b"},
        {L"", L""},
        {L"\\a", L""},
        {L"\\a;", L""},
        {L"\\a;F", L""},
        {L"\\a;F0", L""},
        {L"\\a;F01", L""},
        {L"\\a;F-1", L""},
        {L"\\a;F+1", L""},
        {L"\\a;F 1", L""},
        {L"\\a;F1 ", L""},
        {L"\\a;F1x", L""},
        {L"\\a;f1", L""},
        {L"\\a;F1;", L""},
        {L"\\a;F2147483648", L""},
        {L"\\a;F4294967297", L""},
        {L"\\a;F18446744073709551617", L""},
        {L"\\a;F\uff11", L""},
        {L"\\a;F1\\b", L""},
        {L"\\;", L""},
        {L"\\a;F99999999999999999999", L""},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(Narrow(row.name));
        EXPECT_EQ(Narrow(row.base), Narrow(std::wstring(BaseOfFragmentShape(CWideString(row.name)).view())));
    }
}

}  // namespace
}  // namespace zd::test
