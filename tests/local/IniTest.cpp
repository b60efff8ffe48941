// The ini reader of hul.dll.
#include <gtest/gtest.h>
#include <windows.h>

#include <climits>
#include <string>

#include "hul.h"

namespace zd::test {
namespace {

class Ini : public testing::Test {
protected:
    Ini() {
        char folder[MAX_PATH + 1];
        char name[MAX_PATH + 1];
        ::GetTempPathA(MAX_PATH + 1, folder);
        ::GetTempFileNameA(folder, "ini", 0, name);
        m_file = name;
    }
    ~Ini() override {
        InifileReleaseA(m_file.c_str());
        ::DeleteFileA(m_file.c_str());
    }
    void Write(const std::string& text) {
        const HANDLE file =
            ::CreateFileA(m_file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
        DWORD moved = 0;
        EXPECT_TRUE(::WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &moved, nullptr));
        ::CloseHandle(file);
        InifileReleaseA(m_file.c_str());
    }
    std::string Value(const char* section, const char* key, const char* fallback = "(default)") const {
        char buffer[8192];
        const int length =
            InifileGetValueA(m_file.c_str(), section, key, fallback, buffer, static_cast<int>(sizeof buffer));
        EXPECT_EQ(static_cast<int>(strlen(buffer)), length);
        return buffer;
    }
    int Integer(const char* key, int fallback = -77) const {
        return InifileGetIntegerA(m_file.c_str(), "s", key, fallback);
    }
    std::string m_file;
};

TEST_F(Ini, ReadsEachLineAsTheTableSays) {
    static constexpr struct {
        const char* line;
        const char* value;
    } kRows[] = {
        {"k=v", "v"},
        {"  k \t=\t v w  ", "v w"},
        {"K=v", "v"},
        {"k=\"quoted value \"", "quoted value "},
        {"k='single'", "single"},
        {"k=\"a\" ; rest", "a"},
        {"k='it''s'", "it''s"},
        {"k=\"open", "\"open"},
        {"k=\"", "\""},
        {"k=\"\"", ""},
        {"k=", ""},
        {"k==v", "=v"},
        {"k=a;b#c", "a;b#c"},
        {"k=edb:1024,vhd:64", "edb:1024,vhd:64"},
        {"; k=v", "(default)"},
        {"  # k=v", "(default)"},
        {"k", "(default)"},
        {"=v", "(default)"},
        {"kk=v", "(default)"},
    };
    for (const auto& row : kRows) {
        for (const char* end : {"", "\n", "\r\n", "\r"}) {
            Write(std::string("[s]\n") + row.line + end);
            EXPECT_EQ(row.value, Value("s", "k")) << row.line;
        }
    }
}

TEST_F(Ini, SectionsAreFoundWithoutCase) {
    Write("k=loose\r\n[ One ]\r\nk=1\r\n[two] ; second\r\nk=2\r\n[broken\r\nx=y\r\n[]\r\nk=none\r\n");
    EXPECT_EQ("loose", Value("__dummy__section__", "k"));
    EXPECT_EQ("loose", Value("__DUMMY__section__", "K"));
    EXPECT_EQ("1", Value("ONE", "k"));
    EXPECT_EQ("2", Value("Two", "k"));
    EXPECT_EQ("y", Value("two", "x"));
    EXPECT_EQ("none", Value("", "k"));
    EXPECT_EQ("(default)", Value("three", "k"));
}

TEST_F(Ini, FirstOfTwoEqualKeysCounts) {
    Write("[s]\nk=1\nk=2\n[t]\nk=3\n[S]\nk=4\nl=5\n");
    EXPECT_EQ("1", Value("s", "k"));
    EXPECT_EQ("5", Value("s", "l"));
}

TEST_F(Ini, ByteOrderMarkDoesNotCount) {
    Write("\xEF\xBB\xBFk=v\n");
    EXPECT_EQ("v", Value("__dummy__section__", "k"));
    Write("\xEF\xBB\xBF[s]\nk=\xC3\xA9\n");
    EXPECT_EQ("\xC3\xA9", Value("s", "k"));
}

TEST_F(Ini, LongLinesAreReadWhole) {
    const std::string value(70000, 'v');
    const std::string key(5000, 'k');
    Write("[s]\n" + key + "=" + value + "\nafter=1");
    std::string buffer(80000, '\0');
    EXPECT_EQ(70000, InifileGetValueA(m_file.c_str(), "s", key.c_str(), "", buffer.data(), 80000));
    EXPECT_EQ(value, buffer.c_str());
    EXPECT_EQ("1", Value("s", "after"));
}

TEST_F(Ini, ValuesAreCutToTheBuffer) {
    Write("[s]\nk=abcdef\n");
    char buffer[8] = "*******";
    EXPECT_EQ(3, InifileGetValueA(m_file.c_str(), "s", "k", "", buffer, 4));
    EXPECT_STREQ("abc", buffer);
    EXPECT_EQ('*', buffer[4]);
    EXPECT_EQ(0, InifileGetValueA(m_file.c_str(), "s", "k", "", buffer, 1));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(2, InifileGetValueA(m_file.c_str(), "s", "none", "default", buffer, 3));
    EXPECT_STREQ("de", buffer);
}

TEST_F(Ini, IntegersAreReadAsTheTableSays) {
    static constexpr struct {
        const char* value;
        int expected;
    } kRows[] = {{"0", 0},
                 {"12", 12},
                 {" +12 ", 12},
                 {"-12", -12},
                 {"012", 12},
                 {"0x1F", 31},
                 {"0Xff", 255},
                 {"-0x10", -16},
                 {"'42'", 42},
                 {"42 ; answer", 42},
                 {"2147483647", INT_MAX},
                 {"-2147483648", INT_MIN},
                 {"4294967295", -1},
                 {"0xFFFFFFFF", -1},
                 {"4294967296", -77},
                 {"-2147483649", -77},
                 {"99999999999999999999999", -77},
                 {"", -77},
                 {"-", -77},
                 {"0x", -77},
                 {"12a", -77},
                 {"a", -77},
                 {"1 2", -77},
                 {"1.5", -77}};
    for (const auto& row : kRows) {
        Write(std::string("[s]\nk=") + row.value + "\n");
        EXPECT_EQ(row.expected, Integer("k")) << row.value;
    }
    EXPECT_EQ(5, Integer("none", 5));
}

TEST_F(Ini, MissingFileAndNullArgumentsGiveTheDefault) {
    char buffer[16];
    EXPECT_EQ(7, InifileGetValueA("Z:\\no\\such\\file.ini", "s", "k", "default", buffer, 16));
    EXPECT_STREQ("default", buffer);
    EXPECT_EQ(9, InifileGetIntegerA("Z:\\no\\such\\file.ini", "s", "k", 9));
    Write("[s]\nk=1\n");
    const char* file = m_file.c_str();
    EXPECT_EQ(1, InifileGetValueA(nullptr, "s", "k", "d", buffer, 16));
    EXPECT_EQ(1, InifileGetValueA(file, nullptr, "k", "d", buffer, 16));
    EXPECT_EQ(1, InifileGetValueA(file, "s", nullptr, "d", buffer, 16));
    EXPECT_STREQ("d", buffer);
    EXPECT_EQ(0, InifileGetValueA(file, "s", "none", nullptr, buffer, 16));
    EXPECT_STREQ("", buffer);
    EXPECT_EQ(0, InifileGetValueA(file, "s", "k", "d", nullptr, 16));
    EXPECT_EQ(0, InifileGetValueA(file, "s", "k", "d", buffer, 0));
    EXPECT_EQ(0, InifileGetValueA(file, "s", "k", "d", buffer, -1));
    EXPECT_EQ(3, InifileGetIntegerA(nullptr, "s", "k", 3));
    EXPECT_EQ(3, InifileGetIntegerA(file, nullptr, "k", 3));
    EXPECT_EQ(3, InifileGetIntegerA(file, "s", nullptr, 3));
    InifileReleaseA(nullptr);
    InifileReleaseA("never read");
}

TEST_F(Ini, CopyIsKeptUntilTheStampChangesOrItIsReleased) {
    Write("[s]\nk=1\n");
    EXPECT_EQ(1, Integer("k"));
    // Another text of the same size and time cannot be told from the copy.
    const HANDLE file =
        ::CreateFileA(m_file.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    FILETIME written;
    ASSERT_TRUE(::GetFileTime(file, nullptr, nullptr, &written));
    DWORD moved = 0;
    ASSERT_TRUE(::WriteFile(file, "[s]\nk=2\n", 8, &moved, nullptr));
    ASSERT_TRUE(::SetFileTime(file, nullptr, nullptr, &written));
    ::CloseHandle(file);
    EXPECT_EQ(1, Integer("k"));
    InifileReleaseA(m_file.c_str());
    EXPECT_EQ(2, Integer("k"));
    const HANDLE longer = ::CreateFileA(m_file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_TRUE(::WriteFile(longer, "[s]\nk=333\n", 10, &moved, nullptr));
    ::CloseHandle(longer);
    EXPECT_EQ(333, Integer("k"));
    ::DeleteFileA(m_file.c_str());
    EXPECT_EQ(-77, Integer("k"));
}

}  // namespace
}  // namespace zd::test
