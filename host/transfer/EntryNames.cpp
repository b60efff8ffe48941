#include "transfer/EntryNames.h"

#include <windows.h>

#include <algorithm>
#include <string_view>

namespace zd::host {

namespace {

bool SameText(std::wstring_view left, std::wstring_view right) {
    return ::CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                                  static_cast<int>(right.size()), /*bIgnoreCase=*/TRUE) == CSTR_EQUAL;
}

// Names that the system takes for a device in every directory, whatever follows their first dot.
bool IsDevice(std::wstring_view name) {
    std::wstring_view stem = name.substr(0, name.find(L'.'));
    while (!stem.empty() && stem.back() == L' ') stem.remove_suffix(1);
    for (const std::wstring_view device : {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"}) {
        if (SameText(stem, device)) return true;
    }
    constexpr std::wstring_view kDigits = L"0123456789\u00B9\u00B2\u00B3";
    if (stem.size() != 4 || kDigits.find(stem.back()) == std::wstring_view::npos) return false;
    return SameText(stem.substr(0, 3), L"COM") || SameText(stem.substr(0, 3), L"LPT");
}

bool HasHalfCharacter(const std::wstring& name) {
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] < 0xD800 || name[i] > 0xDFFF) continue;
        const bool pair = name[i] < 0xDC00 && i + 1 < name.size() && name[i + 1] >= 0xDC00 && name[i + 1] <= 0xDFFF;
        if (!pair) return true;
        ++i;
    }
    return false;
}

// "x;F1": under such names the pool keeps the parts of a large x.
bool HasFragmentShape(const std::wstring& name) {
    const std::size_t at = name.rfind(L";F");
    if (at == std::wstring::npos || at + 2 == name.size()) return false;
    return std::all_of(name.begin() + static_cast<std::ptrdiff_t>(at) + 2, name.end(),
                       [](wchar_t c) { return c >= L'0' && c <= L'9'; });
}

}  // namespace

std::string WhyNotLocal(const std::wstring& name) {
    if (name.empty()) return "the entry's name could not be told";
    if (name == L"." || name == L"..") return "the name is no name of its own";
    for (const wchar_t c : name) {
        if (c < L' ' || std::wstring_view(L"<>:\"/\\|?*").find(c) != std::wstring_view::npos) {
            return "the name holds a character that a local one cannot hold";
        }
    }
    if (HasHalfCharacter(name)) return "the name holds half a character";
    if (name.back() == L'.' || name.back() == L' ') return "a local name cannot end in a dot or a blank";
    if (IsDevice(name)) return "the name is that of a device";
    return "";
}

std::string WhyNotRemote(const std::wstring& name) {
    if (name.find_first_of(L"/\\") != std::wstring::npos) return "the name holds a separator";
    if (HasHalfCharacter(name)) return "the name holds half a character";
    if (HasFragmentShape(name)) return "the pool keeps the parts of large files under such names";
    return "";
}

}  // namespace zd::host
