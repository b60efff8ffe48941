#include "transfer/RemoteName.h"

#include <windows.h>

#include <algorithm>
#include <vector>

#include "text/Failure.h"
#include "text/Text.h"

namespace zd::host {

namespace {

std::wstring Simplified(const std::wstring& name) {
    std::vector<std::wstring> components;
    for (std::size_t begin = 0; begin < name.size();) {
        const std::size_t end = std::min(name.find(L'\\', begin), name.size());
        std::wstring component = name.substr(begin, end - begin);
        begin = end + 1;
        if (component == L"..") {
            if (!components.empty()) components.pop_back();
        } else if (!component.empty() && component != L".") {
            components.push_back(std::move(component));
        }
    }
    std::wstring result;
    for (const std::wstring& component : components) result += L"\\" + component;
    return result;
}

}  // namespace

std::wstring RemoteName(std::string_view text, const std::wstring& directory) {
    std::wstring name = ToWide(text);
    if (name.empty()) throw CUsageError("an empty remote name");
    std::replace(name.begin(), name.end(), L'/', L'\\');
    if (!directory.empty()) {
        if (name.front() != L'\\') name = Below(directory, name);
        name = Simplified(name);
        return name.empty() ? L"\\" : name;
    }
    if (name.front() != L'\\') name.insert(name.begin(), L'\\');
    while (name.size() > 1 && name.back() == L'\\') name.pop_back();
    return name;
}

std::wstring Below(const std::wstring& directory, const std::wstring& name) {
    return directory.back() == L'\\' ? directory + name : directory + L"\\" + name;
}

bool SameRemoteName(const std::wstring& left, const std::wstring& right) {
    const std::wstring a = Simplified(left);
    const std::wstring b = Simplified(right);
    return ::CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, /*bIgnoreCase=*/TRUE) == CSTR_EQUAL;
}

}  // namespace zd::host
