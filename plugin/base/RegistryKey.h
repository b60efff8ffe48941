// Typed access to one registry key.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "base/UniqueHandle.h"

namespace zd {

struct CRegistryTraits {
    using Raw = HKEY;
    static Raw Empty() noexcept { return nullptr; }
    static bool IsValid(Raw raw) noexcept { return raw != nullptr; }
    static void Close(Raw raw) noexcept { ::RegCloseKey(raw); }
};

constexpr REGSAM kReadWriteKey = KEY_READ | KEY_WRITE;  // 0x2001F

class CRegistryKey {
public:
    // Opens a subkey of HKEY_LOCAL_MACHINE. Answers the registry's code.
    LSTATUS Open(const wchar_t* path, REGSAM access = kReadWriteKey) noexcept;

    // Opens the subkey or creates it.
    LSTATUS Create(const wchar_t* path, REGSAM access = kReadWriteKey) noexcept;

    HKEY Get() const noexcept { return m_key.Get(); }
    explicit operator bool() const noexcept { return static_cast<bool>(m_key); }
    [[nodiscard]] HKEY Release() noexcept { return m_key.Release(); }

    // Writes a REG_SZ value. Answers the registry's code.
    LSTATUS SetText(const wchar_t* name, const std::wstring& text) const noexcept;

private:
    CUniqueHandle<CRegistryTraits> m_key;
};

// A REG_DWORD value; a value of another type or size counts as absent.
std::optional<DWORD> ReadDword(HKEY key, const wchar_t* name) noexcept;

// Room for a value that should be a text, and what was read into it.
class CTextValue {
public:
    explicit CTextValue(DWORD units) : m_buffer(std::size_t{units} + 1) {}

    LSTATUS Query(HKEY key, const wchar_t* name) noexcept;

    DWORD Type() const noexcept { return m_type; }
    DWORD Size() const noexcept { return m_size; }  // bytes
    const wchar_t* Text() const noexcept { return m_buffer.data() + 1; }

private:
    // Systems have been seen to look for a terminator in the last two bytes of a text, however short it is: the first
    // unit stands in front of the value.
    std::vector<wchar_t> m_buffer;
    DWORD m_type = REG_NONE;
    DWORD m_size = 0;
};

// A REG_SZ value of at most 32,767 characters; an unterminated one is taken to its end, an empty one counts as absent.
std::optional<std::wstring> ReadText(HKEY key, const wchar_t* name);

// The keys of the product, below HKEY_LOCAL_MACHINE, in the tree of the maker or of the former maker.
struct CVendorTree {
    wchar_t product[48];
    wchar_t settings[48];
    wchar_t agent[48];
    wchar_t spaList[48];
};

// Whether only the former maker's tree exists.
bool OnlyFormerMakerTree() noexcept;

const CVendorTree& VendorTree(bool formerMaker) noexcept;

}  // namespace zd
