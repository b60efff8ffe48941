// The reference-counted strings.
#include "base/SharedString.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace zd::test {
namespace {

static_assert(std::is_nothrow_default_constructible_v<CWideString> && std::is_copy_constructible_v<CWideString>);

TEST(SharedString, NullAndNothingAreEmptyAndTerminated) {
    const wchar_t* const null = nullptr;
    for (const CWideString& empty : {CWideString(), CWideString(null), CWideString(L""), CWideString(std::wstring()),
                                     CWideString(std::wstring_view(), std::wstring_view())}) {
        EXPECT_TRUE(empty.empty());
        EXPECT_EQ(0U, empty.size());
        EXPECT_STREQ(L"", empty.c_str());
        EXPECT_TRUE(empty.view().empty());
    }
}

TEST(SharedString, KeepsTextLengthAndTerminator) {
    const CUtf8String text("hello");
    EXPECT_EQ(5U, text.size());
    EXPECT_EQ("hello", text.view());
    EXPECT_EQ('\0', text.c_str()[5]);
    EXPECT_FALSE(text.empty());
}

TEST(SharedString, TakesAStringOver) {
    std::string text(1000, 'x');
    const char* const where = text.data();
    const CUtf8String taken(std::move(text));
    EXPECT_EQ(where, taken.c_str());
}

TEST(SharedString, PutsTwoTextsTogetherAsTheyStand) {
    EXPECT_EQ(L"pool\\a", CWideString(L"pool", L"\\a").view());
    EXPECT_EQ(L"a", CWideString(L"", L"a").view());
    EXPECT_EQ(L"a", CWideString(L"a", L"").view());
    EXPECT_EQ(std::wstring_view(L"a\0b", 3), CWideString(std::wstring_view(L"a\0", 2), L"b").view());
}

TEST(SharedString, CopiesShareTheTextAndOutliveTheOriginal) {
    CUtf8String copy;
    const char* where = nullptr;
    {
        const CUtf8String original(std::string(1000, 'x'));
        where = original.c_str();
        copy = original;
        EXPECT_EQ(original.c_str(), copy.c_str());
    }
    EXPECT_EQ(where, copy.c_str());
    EXPECT_EQ(std::string(1000, 'x'), copy.view());
}

TEST(SharedString, CopiesTheTextItIsGiven) {
    char text[] = "hello";
    const CUtf8String copy(text);
    text[0] = 'j';
    EXPECT_EQ("hello", copy.view());
}

TEST(SharedString, LengthBeyondTheSignedRangeIsAnInvalidArgument) {
    const std::string_view tooLong("x", std::size_t{0x80000000});  // never read
    const std::string_view half("x", std::size_t{0x40000000});
    for (const auto& make : {+[](std::string_view a, std::string_view) { return CUtf8String(a); },
                             +[](std::string_view a, std::string_view) { return CUtf8String("x", a); },
                             +[](std::string_view, std::string_view b) { return CUtf8String(b, b); }}) {
        try {
            static_cast<void>(make(tooLong, half));
            ADD_FAILURE() << "no failure";
        } catch (const CStringFailure& failure) {
            EXPECT_EQ(static_cast<HRESULT>(0x80070057), failure.Code());
        }
    }
}

TEST(SharedString, CopiesMayBeMadeAndDroppedByManyThreads) {
    const CUtf8String shared(std::string(100, 'x'));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&shared] {
            for (int n = 0; n < 20000; ++n) {
                const CUtf8String copy = shared;
                const CUtf8String again = copy;
                if (again.c_str() != shared.c_str()) ADD_FAILURE() << "another text";
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::string(100, 'x'), shared.view());
}

}  // namespace
}  // namespace zd::test
