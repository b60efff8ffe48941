#include "base/RegistryKey.h"

#include <algorithm>
#include <string_view>

#include "ZdvfsSettings.h"

namespace zd {
namespace {

constexpr DWORD kLongestText = 32767;

// Writes the path of a key below `root`.
template <std::size_t Size>
constexpr void SetPath(wchar_t (&path)[Size], std::wstring_view root, std::wstring_view below) {
    wchar_t* const end = std::ranges::copy(root, path).out;
    *end = L'\\';
    std::ranges::copy(below, end + 1);
}

constexpr CVendorTree TreeOf(std::wstring_view root) {
    namespace settings = zdvfs::settings;
    CVendorTree tree{};
    std::ranges::copy(root, tree.product);
    SetPath(tree.settings, root, settings::PlaceOf(settings::Key::Zdvfs).wide);
    SetPath(tree.agent, root, settings::PlaceOf(settings::Key::Agent).wide);
    SetPath(tree.spaList, root, settings::kPoolListKey);
    return tree;
}

constexpr CVendorTree kMaker = TreeOf(L"SOFTWARE\\Orvane\\Zendra");
constexpr CVendorTree kFormerMaker = TreeOf(L"SOFTWARE\\Halvern\\Zendra");

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
