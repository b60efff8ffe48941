#include "base/RegistryKey.h"

#include <algorithm>

namespace zd {
namespace {

constexpr DWORD kLongestText = 32767;

constexpr CVendorTree kMaker = {
    L"SOFTWARE\\Orvane\\Zendra",
    L"SOFTWARE\\Orvane\\Zendra\\ZDVFS",
    L"SOFTWARE\\Orvane\\Zendra\\Agent",
    L"SOFTWARE\\Orvane\\Zendra\\ZDVFS\\SpaList",
};
constexpr CVendorTree kFormerMaker = {
    L"SOFTWARE\\Halvern\\Zendra",
    L"SOFTWARE\\Halvern\\Zendra\\ZDVFS",
    L"SOFTWARE\\Halvern\\Zendra\\Agent",
    L"SOFTWARE\\Halvern\\Zendra\\ZDVFS\\SpaList",
};

}  // namespace

LSTATUS CRegistryKey::Open(const wchar_t* path, REGSAM access) noexcept {
    return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, access, m_key.Receive());
}

LSTATUS CRegistryKey::Create(const wchar_t* path, REGSAM access) noexcept {
    return ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                             m_key.Receive(), nullptr);
}

LSTATUS CRegistryKey::SetText(const wchar_t* name, const std::wstring& text) const noexcept {
    const std::size_t units = std::min<std::size_t>(text.size(), kLongestText) + 1;
    return ::RegSetValueExW(m_key.Get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                            static_cast<DWORD>(units * sizeof(wchar_t)));
}

std::optional<DWORD> ReadDword(HKEY key, const wchar_t* name) noexcept {
    DWORD value = 0;
    DWORD type = REG_NONE;
    DWORD size = sizeof value;
    const LSTATUS status = ::RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size);
    if (status != ERROR_SUCCESS || type != REG_DWORD || size != sizeof value) return std::nullopt;
    return value;
}

LSTATUS CTextValue::Query(HKEY key, const wchar_t* name) noexcept {
    m_size = static_cast<DWORD>((m_buffer.size() - 1) * sizeof(wchar_t));
    return ::RegQueryValueExW(key, name, nullptr, &m_type, reinterpret_cast<BYTE*>(m_buffer.data() + 1), &m_size);
}

std::optional<std::wstring> ReadText(HKEY key, const wchar_t* name) {
    CTextValue value(kLongestText + 1);
    if (value.Query(key, name) != ERROR_SUCCESS || value.Type() != REG_SZ) return std::nullopt;
    const wchar_t* const end = value.Text() + value.Size() / sizeof(wchar_t);
    std::wstring text(value.Text(), std::find(value.Text(), end, L'\0'));
    if (text.empty()) return std::nullopt;
    return text;
}

bool OnlyFormerMakerTree() noexcept {
    CRegistryKey key;
    if (key.Open(kMaker.product) == ERROR_SUCCESS) return false;
    return key.Open(kFormerMaker.product) == ERROR_SUCCESS;
}

const CVendorTree& VendorTree(bool formerMaker) noexcept {
    return formerMaker ? kFormerMaker : kMaker;
}

}  // namespace zd
