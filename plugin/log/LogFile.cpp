#include "log/LogFile.h"

#include <share.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "base/Format.h"
#include "base/RegistryKey.h"
#include "base/Times.h"
#include "ZdvfsSettings.h"

namespace zd {
namespace settings = zdvfs::settings;

namespace {

constexpr std::size_t kPathSize = 1024;
constexpr std::size_t kValueSize = 1024;

enum class Value { kAbsent, kText, kTooLong };

// Reads a narrow text. The registry does not promise a terminator, so there is room for one of our own.
Value ReadNarrow(HKEY key, const char* name, char (&text)[kValueSize + 1]) noexcept {
    DWORD type = REG_NONE;
    DWORD size = kValueSize;
    const LSTATUS status = ::RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
    if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) return Value::kAbsent;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return Value::kAbsent;
    if (status == ERROR_MORE_DATA || size > kValueSize) return Value::kTooLong;
    text[size] = '\0';
    // An empty directory would put the file at the root of whatever drive the host stands on.
    return text[0] == '\0' ? Value::kAbsent : Value::kText;
}

bool IsSeparator(char c) noexcept {
    return c == '\\' || c == '/';
}

bool Fits(int length) noexcept {
    return length >= 0 && static_cast<std::size_t>(length) < kPathSize;
}

// False where the key names no directory, or one that is too long.
bool BuildPath(HKEY agent, const char* baseName, char (&path)[kPathSize]) noexcept {
    char directory[kValueSize + 1];
    switch (ReadNarrow(agent, settings::kLogPath.name.narrow, directory)) {
        case Value::kTooLong:
            return false;
        case Value::kText: {
            const std::size_t length = std::strlen(directory);
            if (length > settings::kLogPath.longest) return false;
            const char* separator = IsSeparator(directory[length - 1]) ? "" : "\\";
            return Fits(FormatBuffer(path, kPathSize, "%s%s%s.LOG", directory, separator, baseName));
        }
        case Value::kAbsent:
            break;
    }
    if (ReadNarrow(agent, settings::kAgentPath.name.narrow, directory) != Value::kText) return false;
    return Fits(FormatBuffer(path, kPathSize, "%slog\\%s.LOG", directory, baseName));
}

bool FindPath(bool formerMaker, const char* baseName, char (&path)[kPathSize]) noexcept {
    CRegistryKey agent;
    return agent.Open(VendorTree(formerMaker).agent, KEY_QUERY_VALUE) == ERROR_SUCCESS &&
           BuildPath(agent.Get(), baseName, path);
}

// Others may read the file, and other processes of the product may write to it too.
FILE* OpenShared(const char* path) noexcept {
    return ::_fsopen(path, "a+t", _SH_DENYNO);
}

FILE* OpenOrMakeDirectory(char (&path)[kPathSize]) noexcept {
    FILE* file = OpenShared(path);
    if (file != nullptr || errno != ENOENT || CreateDirectoryChain(path) != 0) return file;
    return OpenShared(path);
}

}  // namespace

int CreateDirectoryChain(char* path) noexcept {
    char* cut = path + std::strlen(path);
    while (cut != path && !IsSeparator(cut[-1])) --cut;
    if (cut == path) return -1;
    --cut;
    const char separator = std::exchange(*cut, '\0');
    int result = -1;
    if (::CreateDirectoryA(path, nullptr)) {
        result = 0;
    } else {
        const DWORD error = ::GetLastError();
        if (error == ERROR_ALREADY_EXISTS) {
            result = 0;
        } else if (error == ERROR_PATH_NOT_FOUND && CreateDirectoryChain(path) == 0) {
            result = ::CreateDirectoryA(path, nullptr) ? 0 : -1;
        }
    }
    *cut = separator;
    return result;
}

bool OpenLogFile(CLogger& logger) noexcept {
    const std::atomic_ref<bool> fileActive(logger.fileActive);
    fileActive.store(false, std::memory_order_relaxed);

    const time_t now = SecondsNow();
    tm local{};
    if (::_localtime64_s(&local, &now) != 0) return false;
    char baseName[64];
    FormatBuffer(baseName, sizeof baseName, "(ZDVFS)%04d-%02d-%02d-%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
                 local.tm_mday, local.tm_hour, local.tm_min);

    char path[kPathSize];
    if (!FindPath(logger.formerMakerKeys, baseName, path)) return true;
    ::OutputDebugStringA(path);
    FILE* const file = OpenOrMakeDirectory(path);
    std::atomic_ref<FILE*>(logger.file).store(file, std::memory_order_relaxed);
    fileActive.store(file != nullptr, std::memory_order_relaxed);
    return true;
}

}  // namespace zd
