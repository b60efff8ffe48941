#include "config/RegistrySettings.h"

#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "text/Failure.h"
#include "ZdvfsLoader.h"

namespace zd::host {

namespace {

constexpr const wchar_t* kPoolValues[] = {settings::kPoolConfigFile.name.wide, settings::kTopLevelDirectory.name.wide};

std::wstring PathOf(SettingsTree tree, const std::wstring& below) {
    return below.empty() ? RootOf(tree) : RootOf(tree) + (L"\\" + below);
}

class CKey {
public:
    CKey() = default;
    CKey(CKey&& other) noexcept : m_key(std::exchange(other.m_key, nullptr)) {}
    CKey(const CKey&) = delete;
    CKey& operator=(const CKey&) = delete;
    CKey& operator=(CKey&&) = delete;
    ~CKey() {
        if (m_key != nullptr) ::RegCloseKey(m_key);
    }

    static CKey Create(const std::wstring& path) {
        CKey key;
        const LSTATUS status = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE,
                                                 nullptr, &key.m_key, nullptr);
        CheckCode("RegCreateKeyEx", static_cast<DWORD>(status), L"HKEY_LOCAL_MACHINE\\" + path);
        return key;
    }

    // Empty where there is no such key.
    static CKey Open(const std::wstring& path, REGSAM access) {
        CKey key;
        const LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, access, &key.m_key);
        if (status != ERROR_FILE_NOT_FOUND) {
            CheckCode("RegOpenKeyEx", static_cast<DWORD>(status), L"HKEY_LOCAL_MACHINE\\" + path);
        }
        return key;
    }

    explicit operator bool() const { return m_key != nullptr; }
    HKEY Get() const { return m_key; }

    void Store(const wchar_t* name, DWORD type, const void* data, std::size_t size) const {
        const LSTATUS status =
            ::RegSetValueExW(m_key, name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size));
        CheckCode("RegSetValueEx", static_cast<DWORD>(status), name);
    }

    void StoreString(const wchar_t* name, const std::wstring& text) const {
        Store(name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }

    void Remove(const wchar_t* name) const {
        const LSTATUS status = ::RegDeleteValueW(m_key, name);
        if (status != ERROR_FILE_NOT_FOUND) CheckCode("RegDeleteValue", static_cast<DWORD>(status), name);
    }

    std::vector<std::wstring> Subkeys() const {
        std::vector<std::wstring> names;
        wchar_t name[260];
        for (DWORD i = 0;; ++i) {
            DWORD length = 260;
            if (::RegEnumKeyExW(m_key, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
            names.emplace_back(name, length);
        }
        return names;
    }

    std::vector<std::wstring> Values() const {
        std::vector<std::wstring> names;
        std::vector<wchar_t> name(16384);
        for (DWORD i = 0;; ++i) {
            auto length = static_cast<DWORD>(name.size());
            if (::RegEnumValueW(m_key, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
                return names;
            }
            names.emplace_back(name.data(), length);
        }
    }

    std::optional<StoredValue> Stored(const wchar_t* name) const {
        StoredValue value;
        DWORD size = 0;
        if (::RegQueryValueExW(m_key, name, nullptr, nullptr, nullptr, &size) != ERROR_SUCCESS) return std::nullopt;
        value.data.resize(size + 1);
        if (::RegQueryValueExW(m_key, name, nullptr, &value.type, value.data.data(), &size) != ERROR_SUCCESS) {
            return std::nullopt;
        }
        value.data.resize(size);
        return value;
    }

    // "DebugLevel = 6"; nothing where the value is not set.
    std::optional<std::wstring> Shown(const wchar_t* name) const {
        const auto value = Stored(name);
        if (!value) return std::nullopt;
        const std::wstring start = std::wstring(name) + L" = ";
        if (const auto number = value->Number()) return start + std::to_wstring(*number);
        if (const auto text = value->Text()) return start + L"\"" + *text + L"\"";
        return start + L"(" + std::to_wstring(value->data.size()) + L" bytes of type " + std::to_wstring(value->type) +
               L")";
    }

private:
    HKEY m_key = nullptr;
};

// A key that still holds something stays.
void RemoveIfEmpty(SettingsTree tree, const std::wstring& below) {
    const std::wstring path = PathOf(tree, below);
    DWORD values = 0;
    DWORD subkeys = 0;
    {
        const CKey key = CKey::Open(path, KEY_READ);
        if (!key) return;
        if (::RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr,
                               nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            return;
        }
    }
    if (values != 0 || subkeys != 0) return;
    const LSTATUS status = ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, path.c_str());
    CheckCode("RegDeleteKey", static_cast<DWORD>(status), L"HKEY_LOCAL_MACHINE\\" + path);
}

}  // namespace

const wchar_t* RootOf(SettingsTree tree) {
    return tree == SettingsTree::Present ? zdvfs::kProductTree : zdvfs::kFormerProductTree;
}

bool TreeExists(SettingsTree tree) {
    HKEY key = nullptr;
    const LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, RootOf(tree), 0, KEY_READ | KEY_WRITE, &key);
    if (status == ERROR_SUCCESS) ::RegCloseKey(key);
    return status == ERROR_SUCCESS;
}

bool FormerTreeInUse() {
    return !TreeExists(SettingsTree::Present) && TreeExists(SettingsTree::Former);
}

std::optional<std::uint32_t> StoredValue::Number() const {
    std::uint32_t number = 0;
    if (type != REG_DWORD || data.size() != sizeof(number)) return std::nullopt;
    std::memcpy(&number, data.data(), sizeof(number));
    return number;
}

std::optional<std::wstring> StoredValue::Text() const {
    if (type != REG_SZ && type != REG_EXPAND_SZ) return std::nullopt;
    std::wstring text(data.size() / sizeof(wchar_t) + 1, L'\0');
    std::memcpy(text.data(), data.data(), data.size() / sizeof(wchar_t) * sizeof(wchar_t));
    text.resize(text.find(L'\0'));
    return text;
}

std::string StoredValue::TypeName() const {
    static constexpr const char* kNames[] = {"REG_NONE",   "REG_SZ",      "REG_EXPAND_SZ",
                                             "REG_BINARY", "REG_DWORD",   "REG_DWORD_BIG_ENDIAN",
                                             "REG_LINK",   "REG_MULTI_SZ"};
    if (type < std::size(kNames)) return kNames[type];
    return type == REG_QWORD ? "REG_QWORD" : "type " + std::to_string(type);
}

std::optional<StoredValue> ReadValue(SettingsTree tree, const std::wstring& below, const wchar_t* name) {
    const CKey key = CKey::Open(PathOf(tree, below), KEY_READ);
    return key ? key.Stored(name) : std::nullopt;
}

std::vector<std::wstring> ValueNames(SettingsTree tree, const std::wstring& below) {
    const CKey key = CKey::Open(PathOf(tree, below), KEY_READ);
    return key ? key.Values() : std::vector<std::wstring>();
}

void StoreNumber(SettingsTree tree, const Setting& setting, std::uint32_t number) {
    CKey::Create(PathOf(tree, PlaceOf(setting.key).wide)).Store(setting.name.wide, REG_DWORD, &number, sizeof(number));
}

void StoreText(SettingsTree tree, const Setting& setting, const std::wstring& text) {
    CKey::Create(PathOf(tree, PlaceOf(setting.key).wide)).StoreString(setting.name.wide, text);
}

void StorePoolFile(SettingsTree tree, const std::wstring& pool, const std::wstring& file) {
    CKey::Create(PathOf(tree, std::wstring(settings::kPoolListKey) + L"\\" + pool))
        .StoreString(settings::kPoolConfigFile.name.wide, file);
}

void ClearSettings(SettingsTree tree) {
    for (const SettingOption& option : SettingOptions()) {
        const CKey key = CKey::Open(PathOf(tree, PlaceOf(option.setting.key).wide), KEY_READ | KEY_WRITE);
        if (key) key.Remove(option.setting.name.wide);
    }
    std::vector<std::wstring> pools;
    {
        const CKey list = CKey::Open(PathOf(tree, settings::kPoolListKey), KEY_READ);
        if (list) pools = list.Subkeys();
    }
    for (const std::wstring& pool : pools) {
        const std::wstring below = std::wstring(settings::kPoolListKey) + L"\\" + pool;
        {
            const CKey key = CKey::Open(PathOf(tree, below), KEY_READ | KEY_WRITE);
            if (!key) continue;
            for (const wchar_t* name : kPoolValues) key.Remove(name);
        }
        RemoveIfEmpty(tree, below);
    }
    for (const wchar_t* below :
         {settings::kPoolListKey, PlaceOf(settings::Key::Zdvfs).wide, PlaceOf(settings::Key::Agent).wide, L""}) {
        RemoveIfEmpty(tree, below);
    }
}

bool ShowSettings(SettingsTree tree, const std::function<void(const std::wstring&)>& line) {
    if (!CKey::Open(RootOf(tree), KEY_READ)) return false;
    for (const SettingOption& option : SettingOptions()) {
        const std::wstring below = PlaceOf(option.setting.key).wide;
        const CKey key = CKey::Open(PathOf(tree, below), KEY_READ);
        if (!key) continue;
        const auto shown = key.Shown(option.setting.name.wide);
        if (shown) line(below + L"\\" + *shown);
    }
    const CKey list = CKey::Open(PathOf(tree, settings::kPoolListKey), KEY_READ);
    if (!list) return true;
    for (const std::wstring& pool : list.Subkeys()) {
        const std::wstring below = std::wstring(settings::kPoolListKey) + L"\\" + pool;
        const CKey key = CKey::Open(PathOf(tree, below), KEY_READ);
        if (!key) continue;
        for (const wchar_t* name : kPoolValues) {
            const auto shown = key.Shown(name);
            line(below + L"\\" + (shown ? *shown : name + std::wstring(L" is not set")));
        }
    }
    return true;
}

}  // namespace zd::host
