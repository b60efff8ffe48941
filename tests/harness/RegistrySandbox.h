// A private HKEY_LOCAL_MACHINE for one process.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zd::test {

// Key paths below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kProductKey[] = L"SOFTWARE\\Orvane\\Zendra";
inline constexpr wchar_t kPluginKey[] = L"SOFTWARE\\Orvane\\Zendra\\ZDVFS";
inline constexpr wchar_t kAgentKey[] = L"SOFTWARE\\Orvane\\Zendra\\Agent";
inline constexpr wchar_t kSpaListKey[] = L"SOFTWARE\\Orvane\\Zendra\\ZDVFS\\SpaList";
inline constexpr wchar_t kFormerProductKey[] = L"SOFTWARE\\Halvern\\Zendra";
inline constexpr wchar_t kFormerPluginKey[] = L"SOFTWARE\\Halvern\\Zendra\\ZDVFS";
inline constexpr wchar_t kFormerAgentKey[] = L"SOFTWARE\\Halvern\\Zendra\\Agent";
inline constexpr wchar_t kFormerSpaListKey[] = L"SOFTWARE\\Halvern\\Zendra\\ZDVFS\\SpaList";

struct RegistryValue {
    DWORD type = REG_NONE;
    std::vector<std::uint8_t> data;

    // The data as text without its terminator; empty for other types than REG_SZ and REG_EXPAND_SZ.
    std::wstring Text() const;
    std::optional<DWORD> Number() const;  // of a REG_DWORD
};

// While the object lives, HKEY_LOCAL_MACHINE of this process is an empty key that nobody else sees, so that test
// processes run side by side. The tree is removed at the end. Functions throw std::runtime_error where the registry
// refuses.
class CRegistrySandbox {
public:
    CRegistrySandbox();
    ~CRegistrySandbox();
    CRegistrySandbox(const CRegistrySandbox&) = delete;
    CRegistrySandbox& operator=(const CRegistrySandbox&) = delete;

    // Keys are made where they are missing.
    void CreateKey(const std::wstring& key);
    void DeleteKey(const std::wstring& key);  // with everything in it; a missing one is ignored
    bool KeyExists(const std::wstring& key);
    std::vector<std::wstring> SubKeys(const std::wstring& key);

    void SetDword(const std::wstring& key, const std::wstring& name, DWORD value);
    void SetText(const std::wstring& key, const std::wstring& name, const std::wstring& text, DWORD type = REG_SZ);
    // Any bytes under any type: unterminated text, odd lengths, short numbers.
    void SetRaw(const std::wstring& key, const std::wstring& name, DWORD type, const std::vector<std::uint8_t>& data);
    void DeleteValue(const std::wstring& key, const std::wstring& name);
    std::optional<RegistryValue> Get(const std::wstring& key, const std::wstring& name);

private:
    std::wstring m_path;  // below HKEY_CURRENT_USER
    HKEY m_root = nullptr;
};

}  // namespace zd::test
