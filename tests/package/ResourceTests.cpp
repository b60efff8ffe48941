// The resources of the binaries that ship: versions and the texts of events.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "EventText.h"

namespace zd {
namespace {

// A binary of the build that this program belongs to, from its folder "bin" on.
std::wstring BinaryPath(const std::wstring& name) {
    wchar_t path[MAX_PATH];
    const DWORD length = ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring folder(path, length);
    for (int i = 0; i < 2; ++i) folder.resize(folder.rfind(L'\\'));
    return folder + L"\\" + name;
}

class CVersionTest : public ::testing::TestWithParam<const wchar_t*> {
protected:
    void SetUp() override {
        const std::wstring path = BinaryPath(GetParam());
        DWORD unused = 0;
        m_block.resize(::GetFileVersionInfoSizeW(path.c_str(), &unused));
        ASSERT_FALSE(m_block.empty()) << "no version resource, error " << ::GetLastError();
        ASSERT_TRUE(::GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(m_block.size()), m_block.data()));
    }

    std::wstring Text(const std::wstring& name) const {
        void* value = nullptr;
        UINT length = 0;
        const std::wstring path = L"\\StringFileInfo\\040904b0\\" + name;
        if (!::VerQueryValueW(m_block.data(), path.c_str(), &value, &length) || length == 0) return L"";
        return static_cast<const wchar_t*>(value);
    }

    const VS_FIXEDFILEINFO& Numbers() const {
        void* value = nullptr;
        UINT length = 0;
        EXPECT_TRUE(::VerQueryValueW(m_block.data(), L"\\", &value, &length));
        return *static_cast<const VS_FIXEDFILEINFO*>(value);
    }

    std::vector<BYTE> m_block;
};

TEST_P(CVersionTest, IsTheProjects) {
    const DWORD high = ZD_VERSION_MAJOR << 16 | ZD_VERSION_MINOR;
    const DWORD low = ZD_VERSION_PATCH << 16;
    const VS_FIXEDFILEINFO& numbers = Numbers();
    EXPECT_EQ(numbers.dwSignature, 0xFEEF04BDU);
    EXPECT_EQ(numbers.dwFileVersionMS, high);
    EXPECT_EQ(numbers.dwFileVersionLS, low);
    EXPECT_EQ(numbers.dwProductVersionMS, high);
    EXPECT_EQ(numbers.dwProductVersionLS, low);
    EXPECT_EQ(Text(L"FileVersion"), ZD_VERSION);
    EXPECT_EQ(Text(L"ProductVersion"), ZD_VERSION);
}

TEST_P(CVersionTest, NamesTheFileAndItsMaker) {
    EXPECT_EQ(Text(L"OriginalFilename"), GetParam());
    EXPECT_EQ(Text(L"CompanyName"), L"Orvane");
    EXPECT_EQ(Text(L"ProductName"), L"Zendra ZDVFS");
    EXPECT_NE(Text(L"FileDescription"), L"");
    EXPECT_EQ(Numbers().dwFileOS, VOS_NT_WINDOWS32);
    const std::wstring name = GetParam();
    EXPECT_EQ(Numbers().dwFileType, name.ends_with(L".exe") ? VFT_APP : VFT_DLL);
}

INSTANTIATE_TEST_SUITE_P(EachBinary, CVersionTest,
                         ::testing::Values(L"ZdvfsProtocol.dll", L"ZdvfsMessages.dll", L"zdvfs.dll", L"hul.dll",
                                           L"zdhost.exe"));

struct EventRow {
    DWORD id;
    const wchar_t* line;
};

class CEventTextTest : public ::testing::TestWithParam<EventRow> {};

TEST_P(CEventTextTest, IsTheLineAsItWasReported) {
    const auto& [id, line] = GetParam();
    EXPECT_EQ(EventText(BinaryPath(L"ZdvfsMessages.dll"), id, line), line);
}

INSTANTIATE_TEST_SUITE_P(EachEvent, CEventTextTest,
                         ::testing::Values(EventRow{0xCC00C350, L"ZdCreateFile failed: 5\n"},
                                           EventRow{0xCC00C350, L"100% of %1 and %2!s! \\n \x00e9"},
                                           EventRow{0x8C00C351, L"ZdSetFileSize Warning - ignored\n"}));

TEST(CEventTextTest, OtherNumbersHaveNoText) {
    for (const DWORD id : {0xCC00C351UL, 0x8C00C350UL, 0xCC00C34FUL, 0UL}) {
        EXPECT_THROW(EventText(BinaryPath(L"ZdvfsMessages.dll"), id, L"text"), std::runtime_error) << std::hex << id;
    }
}

TEST(CMessageFileTest, HoldsNoCodeToStart) {
    // Loading it to run would call an entry point; there is none, so it loads that way too.
    const HMODULE module = ::LoadLibraryW(BinaryPath(L"ZdvfsMessages.dll").c_str());
    ASSERT_NE(module, nullptr) << ::GetLastError();
    const auto* const base = reinterpret_cast<const BYTE*>(module);
    const auto* const header =
        reinterpret_cast<const IMAGE_NT_HEADERS*>(base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    EXPECT_EQ(header->OptionalHeader.AddressOfEntryPoint, 0U);
    ::FreeLibrary(module);
}

}  // namespace
}  // namespace zd
