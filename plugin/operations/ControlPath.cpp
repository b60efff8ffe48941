#include <algorithm>
#include <cwchar>
#include <string>
#include <string_view>

#include "base/StorageOwners.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr std::wstring_view kControlPrefix = L"\\\\.zdvfs\\";
constexpr DWORD kNotRefreshed = 0;
constexpr DWORD kRefreshed = 1;

bool HasMarker(const std::string& path) {
    ZdvfsStatRecord status{};
    return ::ZdvfsStat(path.c_str(), &status) >= 0;
}

// The path up to and including the slash behind its second component, empty where it has no such slash.
std::string FirstLevel(const std::string& path) {
    if (path.size() < 2) return {};
    const std::size_t first = path.find('/', 1);
    if (first == std::string::npos || first + 1 == path.size()) return {};
    const std::size_t second = path.find('/', first + 1);
    return second == std::string::npos ? std::string() : path.substr(0, second + 1);
}

// Refreshes each level that carries a marker. Answers whether all of them did.
bool WalkLevels(const std::string& path, std::size_t lastSlash) {
    std::string level = FirstLevel(path);
    if (level.empty()) return true;
    std::size_t position = level.size();
    for (;;) {
        if (!HasMarker(level + ".refresh")) return false;
        // Not left to an owner, which would keep an exception from the operation's handler.
        if (ZdvfsDirectory* const listed = ::ZdvfsOpendirForList(level.c_str(), 1)) ::ZdvfsClosedir(listed);
        if (lastSlash <= level.size()) return true;
        const std::size_t begin = path.find_first_not_of('/', position);
        if (begin == std::string::npos) return true;
        position = std::min(path.find('/', begin), path.size());
        level.append(path, begin, position - begin).push_back('/');
    }
}

// The storage path that the host wrote behind the prefix, empty where it does not convert.
std::string StoragePath(const wchar_t* path) {
    CUniqueHulText utf8(::wcstoutf8_malloced(path + kControlPrefix.size() - 1));
    if (!utf8) return {};
    std::string converted(utf8.Get());
    std::replace(converted.begin(), converted.end(), '\\', '/');
    ::_HulFree(utf8.Release());
    return converted;
}

}  // namespace

DWORD CProtocolManager::ZdControlPath(const wchar_t* path) {
    if (path == nullptr || std::wcsncmp(path, kControlPrefix.data(), kControlPrefix.size()) != 0) return kNotRefreshed;
    try {
        const std::string storagePath = StoragePath(path);
        const std::size_t lastSlash = storagePath.rfind('/');
        if (lastSlash == std::string::npos) return kNotRefreshed;
        const DWORD result = WalkLevels(storagePath, lastSlash) ? kRefreshed : kNotRefreshed;
        // The probe is what the storage waits for; what it finds is its own affair.
        HasMarker(storagePath.substr(0, lastSlash + 1) + ".refresh_all");
        return result;
    } catch (...) {
        return kNotRefreshed;
    }
}

}  // namespace zd
