#include "Names.h"

#include <algorithm>

namespace zd::test {

const std::vector<std::wstring>& ModelNames() {
    static const std::vector<std::wstring> names = [] {
        std::vector<std::wstring> all = {L"\\", L"\\Dir", L"\\Dir\\inner", L"\\Ordner \u00fc"};
        for (const wchar_t* leaf : {L"a", L"Beta.TXT", L"gamma;Fx", L"x;F0", L" blanks and dots. ", L"con.bin",
                                    L"mail.edb", L"Gr\u00f6\u65e5\u00dfe\U0001F600.bin", L"z%41~1"}) {
            all.push_back(std::wstring(L"\\") + leaf);
        }
        all.push_back(L"\\" + std::wstring(150, L'N'));
        for (std::size_t i = 1; i < kDirectoryNames; ++i) {
            for (const wchar_t* leaf : {L"\\a", L"\\Deep"}) all.push_back(all[i] + leaf);
        }
        return all;
    }();
    return names;
}

std::wstring ParentOf(const std::wstring& name) {
    return name.substr(0, std::max<std::size_t>(1, name.rfind(L'\\')));
}

std::wstring LeafOf(const std::wstring& name) {
    return name.substr(name.rfind(L'\\') + 1);
}

const std::vector<std::string>& ModelDescriptors() {
    static const std::vector<std::string> descriptors = {
        "",
        "O:BAG:BAD:(A;;0x1f01ff;;;WD)",
        "O:SYG:SYD:(A;;0x120089;;;BU)(A;;0x1f01ff;;;BA)",
        "O:BAG:SYD:(D;;0x10000;;;WD)(A;;0x1f01ff;;;WD)",
    };
    return descriptors;
}

bool NameOrder::operator()(const std::wstring& first, const std::wstring& second) const {
    const auto folded = [](wchar_t unit) {
        return unit >= L'A' && unit <= L'Z' ? static_cast<wchar_t>(unit + 32) : unit;
    };
    return std::lexicographical_compare(first.begin(), first.end(), second.begin(), second.end(),
                                        [&](wchar_t a, wchar_t b) { return folded(a) < folded(b); });
}

}  // namespace zd::test
