// The storage locality of a name.
#include <gtest/gtest.h>

#include <string>

#include "harness/TextCompare.h"
#include "namespace/Locality.h"

namespace zd::test {
namespace {

std::string Locality(const std::wstring& name) {
    return std::string(LocalityOf(name.c_str()).view());
}

TEST(Locality, IsTheFirstDirectory) {
    static constexpr struct {
        const wchar_t* name;
        const char* locality;
    } kRows[] = {
        {L"\\vm1\\disks\\a.vhd", "vm1"},
        {L"/vm1/disks/a.vhd", "vm1"},
        {L"\\vm1/a.vhd", "vm1"},
        {L"/vm1\\a", "vm1"},
        {L"vm1\\a", "vm1"},
        {L"\\a.vhd", ""},
        {L"a.vhd", ""},
        {L"\\", ""},
        {L"/", ""},
        {L"", ""},
        {L"\\\u00e4\\a", "\xc3\xa4"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(Narrow(row.name));
        EXPECT_EQ(row.locality, Locality(row.name));
    }
}

TEST(Locality, FitsThirtyOneBytesCutBetweenCharacters) {
    for (std::size_t plain = 20; plain <= 32; ++plain) {
        SCOPED_TRACE(plain);
        const std::string begin(plain, 'x');
        // Two, three and four bytes of UTF-8.
        for (const std::wstring& character :
             {std::wstring(L"\u00e4"), std::wstring(L"\u4e00"), std::wstring(L"\xd83d\xde00")}) {
            std::string expected = begin.substr(0, 31);
            const std::string bytes = Narrow(character);
            for (int i = 0; i < 4 && expected.size() + bytes.size() <= 31 && plain <= 31; ++i) expected += bytes;
            EXPECT_EQ(expected,
                      Locality(L"\\" + Widen(begin) + character + character + character + character + L"\\a"));
        }
    }
}

}  // namespace
}  // namespace zd::test
