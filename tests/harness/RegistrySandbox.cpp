#include "RegistrySandbox.h"

#include <array>
#include <cstring>
#include <stdexcept>

namespace zd::test {

namespace {

void Check(LSTATUS status, const char* what) {
    if (status != ERROR_SUCCESS) throw std::runtime_error(std::string(what) + " failed: " + std::to_string(status));
}

class CKey {
public:
    static CKey Create(const std::wstring& path) {
        CKey key;
        Check(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key.m_key,
                                nullptr),
              "RegCreateKeyExW");
        return key;
    }

    static CKey Open(const std::wstring& path) {
        CKey key;
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key.m_key) != ERROR_SUCCESS) {
            key.m_key = nullptr;
        }
        return key;
    }

    CKey(CKey&& other) noexcept : m_key(other.m_key) { other.m_key = nullptr; }
    ~CKey() {
        if (m_key != nullptr) ::RegCloseKey(m_key);
    }
    CKey(const CKey&) = delete;
    CKey& operator=(const CKey&) = delete;
    CKey& operator=(CKey&&) = delete;

    HKEY Raw() const { return m_key; }

private:
    CKey() = default;
    HKEY m_key = nullptr;
};

}  // namespace

std::wstring RegistryValue::Text() const {
    if (type != REG_SZ && type != REG_EXPAND_SZ) return std::wstring();
    std::wstring text(data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), data.data(), text.size() * sizeof(wchar_t));
    while (!text.empty() && text.back() == L'\0') text.pop_back();
    return text;
}

std::optional<DWORD> RegistryValue::Number() const {
    if (type != REG_DWORD || data.size() != sizeof(DWORD)) return std::nullopt;
    DWORD number = 0;
    std::memcpy(&number, data.data(), sizeof(number));
    return number;
}

CRegistrySandbox::CRegistrySandbox()
    : m_path(L"Software\\ZdTests\\" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
             std::to_wstring(::GetTickCount64())) {
    Check(
        ::RegCreateKeyExW(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_root, nullptr),
        "RegCreateKeyExW");
    Check(::RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_root), "RegOverridePredefKey");
}

CRegistrySandbox::~CRegistrySandbox() {
    ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    ::RegCloseKey(m_root);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());
}

void CRegistrySandbox::CreateKey(const std::wstring& key) {
    CKey::Create(key);
}

void CRegistrySandbox::DeleteKey(const std::wstring& key) {
    const LSTATUS status = ::RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str());
    if (status != ERROR_FILE_NOT_FOUND) Check(status, "RegDeleteTreeW");
}

bool CRegistrySandbox::KeyExists(const std::wstring& key) {
    return CKey::Open(key).Raw() != nullptr;
}

std::vector<std::wstring> CRegistrySandbox::SubKeys(const std::wstring& key) {
    std::vector<std::wstring> names;
    const CKey open = CKey::Open(key);
    if (open.Raw() == nullptr) return names;
    for (DWORD index = 0;; ++index) {
        std::array<wchar_t, 512> name{};
        auto length = static_cast<DWORD>(name.size());
        const LSTATUS status =
            ::RegEnumKeyExW(open.Raw(), index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (status == ERROR_NO_MORE_ITEMS) return names;
        Check(status, "RegEnumKeyExW");
        names.emplace_back(name.data(), length);
    }
}

void CRegistrySandbox::SetDword(const std::wstring& key, const std::wstring& name, DWORD value) {
    std::vector<std::uint8_t> data(sizeof(value));
    std::memcpy(data.data(), &value, sizeof(value));
    SetRaw(key, name, REG_DWORD, data);
}

void CRegistrySandbox::SetText(const std::wstring& key, const std::wstring& name, const std::wstring& text,
                               DWORD type) {
    std::vector<std::uint8_t> data((text.size() + 1) * sizeof(wchar_t));
    std::memcpy(data.data(), text.c_str(), data.size());
    SetRaw(key, name, type, data);
}

void CRegistrySandbox::SetRaw(const std::wstring& key, const std::wstring& name, DWORD type,
                              const std::vector<std::uint8_t>& data) {
    const CKey open = CKey::Create(key);
    Check(::RegSetValueExW(open.Raw(), name.c_str(), 0, type, data.data(), static_cast<DWORD>(data.size())),
          "RegSetValueExW");
}

void CRegistrySandbox::DeleteValue(const std::wstring& key, const std::wstring& name) {
    const CKey open = CKey::Create(key);
    const LSTATUS status = ::RegDeleteValueW(open.Raw(), name.c_str());
    if (status != ERROR_FILE_NOT_FOUND) Check(status, "RegDeleteValueW");
}

std::optional<RegistryValue> CRegistrySandbox::Get(const std::wstring& key, const std::wstring& name) {
    const CKey open = CKey::Open(key);
    RegistryValue value;
    DWORD size = 0;
    if (open.Raw() == nullptr ||
        ::RegQueryValueExW(open.Raw(), name.c_str(), nullptr, &value.type, nullptr, &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    value.data.resize(size);
    Check(::RegQueryValueExW(open.Raw(), name.c_str(), nullptr, &value.type, value.data.data(), &size),
          "RegQueryValueExW");
    return value;
}

}  // namespace zd::test
