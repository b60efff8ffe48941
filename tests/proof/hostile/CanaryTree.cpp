#include "CanaryTree.h"

#include <windows.h>

#include <algorithm>

#include "harness/Environment.h"
#include "harness/Pattern.h"

namespace zd::test {

namespace {

std::wstring Long(const std::wstring& path) {
    return path.starts_with(L"\\\\?\\") ? path : L"\\\\?\\" + path;
}

void Walk(const std::wstring& folder, const std::wstring& below, const std::vector<std::wstring>& without, Tree& tree) {
    WIN32_FIND_DATAW entry;
    const HANDLE find = ::FindFirstFileW(Long(folder + below + L"*").c_str(), &entry);
    if (find == INVALID_HANDLE_VALUE) return;
    do {
        const std::wstring name = entry.cFileName;
        const std::wstring path = below + name;
        if (name == L"." || name == L".." || std::find(without.begin(), without.end(), path) != without.end()) continue;
        std::string& state = tree[path];
        state = std::to_string(entry.dwFileAttributes);
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            Walk(folder, path + L"\\", without, tree);
            continue;
        }
        const FILETIME& time = entry.ftLastWriteTime;
        for (const DWORD part : {time.dwHighDateTime, time.dwLowDateTime})
            state.append(1, ' ').append(std::to_string(part));
        state.append(1, ' ').append(FileContent(Long(folder + path)));
    } while (::FindNextFileW(find, &entry));
    ::FindClose(find);
}

}  // namespace

Tree TreeOf(const std::wstring& folder, const std::vector<std::wstring>& without) {
    Tree tree;
    Walk(folder, L"", without, tree);
    return tree;
}

void MakeCanaries(const std::wstring& folder, int count) {
    ::CreateDirectoryW(folder.c_str(), nullptr);
    ::CreateDirectoryW((folder + L"dir").c_str(), nullptr);
    for (int i = 0; i < count; ++i) {
        const std::wstring name = i == 0 ? std::wstring(L"secret.txt") : std::to_wstring(i);
        const std::string content = Pattern(1000 + static_cast<std::size_t>(i), static_cast<std::uint32_t>(i));
        WriteFileContent(folder + name, content);
        WriteFileContent(folder + L"dir\\" + name, content);
    }
}

}  // namespace zd::test
