#include "Traces.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "harness/Environment.h"
#include "harness/TextCompare.h"

namespace zd::test {

namespace {

// Names in a folder that fit a pattern of the system's.
std::vector<std::wstring> NamesLike(const std::wstring& pattern) {
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found;
    const HANDLE search = ::FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    do {
        const std::wstring name = found.cFileName;
        if (name != L"." && name != L"..") names.push_back(name);
    } while (::FindNextFileW(search, &found) != FALSE);
    ::FindClose(search);
    return names;
}

void RemoveTree(const std::wstring& path) {
    const std::wstring folder = path + L"\\";
    for (const std::wstring& name : NamesLike(folder + L"*")) RemoveTree(std::wstring(folder).append(name));
    if (::DeleteFileW(path.c_str()) == FALSE) ::RemoveDirectoryW(path.c_str());
}

}  // namespace

void RemoveTracesOf(DWORD process) {
    std::array<wchar_t, MAX_PATH + 1> temporary{};
    ::GetTempPathW(static_cast<DWORD>(temporary.size()), temporary.data());
    const std::wstring folder = temporary.data();
    for (const std::wstring& name : NamesLike(folder + L"zdtests-" + std::to_wstring(process) + L"-*")) {
        RemoveTree(folder + name);
    }
    constexpr wchar_t kKeys[] = L"Software\\ZdTests";
    const std::wstring start = std::to_wstring(process) + L"-";
    HKEY keys = nullptr;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, kKeys, 0, KEY_ALL_ACCESS, &keys) != ERROR_SUCCESS) return;
    std::array<wchar_t, 256> name{};
    for (DWORD i = 0;;) {
        auto length = static_cast<DWORD>(name.size());
        if (::RegEnumKeyExW(keys, i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
        const bool isIts = std::wstring(name.data()).starts_with(start);
        if (!isIts || ::RegDeleteTreeW(keys, name.data()) != ERROR_SUCCESS) ++i;
    }
    ::RegCloseKey(keys);
}

std::int64_t NumberFromEnvironment(const wchar_t* variable, std::int64_t otherwise) {
    const wchar_t* const text = ::_wgetenv(variable);
    if (text == nullptr) return otherwise;
    wchar_t* end = nullptr;
    const std::int64_t number = std::wcstoll(text, &end, 10);
    return end == text || *end != L'\0' ? otherwise : number;
}

std::int64_t ProofSeed() {
    return NumberFromEnvironment(L"ZD_PROOF_SEED", 1);
}

std::int64_t ProofBudget() {
    return std::max<std::int64_t>(1, NumberFromEnvironment(L"ZD_PROOF_BUDGET", 1));
}

CKeptScript::CKeptScript(const std::string& title, const std::string& text) {
    const wchar_t* const folder = ::_wgetenv(L"ZD_PROOF_SCRIPTS");
    if (folder == nullptr) return;
    std::string name = title;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == ' ' || c == '/' || c == '\\' || c == ':'; }, '-');
    m_path = std::wstring(folder) + L"\\" + Widen(name) + L".script";
    WriteFileContent(m_path, text);
}

CKeptScript::~CKeptScript() {
    if (!m_path.empty() && !m_kept) ::DeleteFileW(m_path.c_str());
}

}  // namespace zd::test
