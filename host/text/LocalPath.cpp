#include "text/LocalPath.h"

#include <windows.h>

#include "text/Failure.h"

namespace zd::host {

namespace {

constexpr wchar_t kLongForm[] = L"\\\\?\\";

}  // namespace

std::wstring AbsolutePath(const std::wstring& path) {
    if (path.empty()) throw CUsageError("an empty local path");
    if (path.starts_with(kLongForm)) return path;
    const DWORD needed = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed == 0) ThrowFailure("GetFullPathName", ::GetLastError(), path);
    std::wstring full(needed, L'\0');
    const DWORD length = ::GetFullPathNameW(path.c_str(), needed, full.data(), nullptr);
    if (length == 0 || length >= needed) ThrowFailure("GetFullPathName", ::GetLastError(), path);
    full.resize(length);
    const bool needsLongForm = full.size() >= MAX_PATH - 12 && full.compare(0, 2, L"\\\\") != 0;
    return needsLongForm ? kLongForm + full : full;
}

std::wstring LongPath(const std::wstring& path) {
    std::wstring full = AbsolutePath(path);
    if (full.starts_with(kLongForm)) return full;
    if (full.starts_with(L"\\\\")) return std::wstring(kLongForm) + L"UNC" + full.substr(1);
    return kLongForm + full;
}

}  // namespace zd::host
