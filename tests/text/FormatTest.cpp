// Formatting as the runtime does it.
#include "base/Format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace zd::test {
namespace {

TEST(Format, NumbersAndPointersAppearAsTheRuntimePrintsThem) {
    EXPECT_EQ("00000000DEADBEEF", FormatText("%p", reinterpret_cast<void*>(0xDEADBEEF)));
    EXPECT_EQ("0000000000000000", FormatText("%p", static_cast<void*>(nullptr)));
    EXPECT_EQ("-1 4294967295", FormatText("%ld %lu", -1L, 0xFFFFFFFFUL));
    EXPECT_EQ("-9223372036854775808", FormatText("%lld", -0x7FFFFFFFFFFFFFFFLL - 1));
    EXPECT_EQ("0x1f 0", FormatText("%#x %#x", 0x1fU, 0U));
    EXPECT_EQ("<00e9>", FormatText("<%04hx>", static_cast<unsigned short>(0xe9)));
    EXPECT_EQ("100%", FormatText("%d%%", 100));
}

TEST(Format, NullTextAppearsAsNull) {
    const char* null = nullptr;
    EXPECT_EQ("[(null)]", FormatText("[%s]", null));
}

TEST(Format, TextOfAnyLengthIsWhole) {
    for (const std::size_t length : {0U, 1U, 510U, 511U, 512U, 513U, 100000U}) {
        const std::string text(length, 'x');
        EXPECT_EQ("<" + text + ">", FormatText("<%s>", text.c_str())) << length;
        std::string line = "before ";
        AppendFormat(line, "%s", text.c_str());
        EXPECT_EQ("before " + text, line) << length;
    }
}

void IgnoreInvalidParameter(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, std::uintptr_t) {}

// The runtime refuses to store a count unless it was allowed to.
TEST(Format, AFormatThatTheRuntimeRefusesAppendsNothing) {
    const _invalid_parameter_handler before = ::_set_invalid_parameter_handler(&IgnoreInvalidParameter);
    int count = 7;
    std::string line = "before ";
    AppendFormat(line, "x%n", &count);
    EXPECT_EQ("before ", line);
    EXPECT_EQ("", FormatText("x%n", &count));
    char buffer[] = "????";
    EXPECT_GT(0, FormatBuffer(buffer, sizeof buffer, "x%n", &count));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(7, count);
    ::_set_invalid_parameter_handler(before);
}

TEST(Format, BufferIsCutAndAlwaysTerminated) {
    for (std::size_t size = 1; size <= 8; ++size) {
        char buffer[10];
        std::memset(buffer, '?', sizeof buffer);
        EXPECT_EQ(5, FormatBuffer(buffer, size, "%s", "hello"));
        EXPECT_EQ(std::string("hello").substr(0, size - 1), buffer) << size;
        EXPECT_EQ('?', buffer[size]) << size;
    }
}

TEST(Format, BufferOfNoSizeIsNotTouched) {
    char buffer[2] = {'?', '?'};
    EXPECT_EQ(5, FormatBuffer(buffer, 0, "%s", "hello"));
    EXPECT_EQ('?', buffer[0]);
}

}  // namespace
}  // namespace zd::test
