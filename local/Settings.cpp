#include "Settings.h"

#include <algorithm>
#include <optional>

#include "ErrorTable.h"
#include "IniText.h"
#include "WinFile.h"

namespace zd::engine {
namespace {

constexpr int kDefaultOpenFiles = 16384;

std::optional<std::wstring> Variable(const wchar_t* name) {
    std::wstring value(256, L'\0');
    for (;;) {
        const DWORD length = ::GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
        if (length == 0) return std::nullopt;
        const bool fits = length < value.size();
        value.resize(length);
        if (fits) return value;
    }
}

std::wstring LongPath(const std::wstring& path) {
    const DWORD size = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (size == 0) FailLast();
    std::wstring full(size, L'\0');
    const DWORD length = ::GetFullPathNameW(path.c_str(), size, full.data(), nullptr);
    if (length == 0 || length >= size) FailLast();
    full.resize(length);
    while (!full.empty() && full.back() == L'\\') full.pop_back();
    if (full.starts_with(L"\\\\?\\")) return full;
    if (full.starts_with(L"\\\\")) return L"\\\\?\\UNC" + full.substr(1);
    return L"\\\\?\\" + full;
}

}  // namespace

std::wstring PoolsRoot() {
    if (const auto root = Variable(L"ZDVFS_LOCAL_ROOT")) return LongPath(*root);
    const auto local = Variable(L"LOCALAPPDATA");
    if (!local) Fail(ERROR_PATH_NOT_FOUND);
    return LongPath(*local + L"\\Zdvfs\\pools");
}

Settings ReadSettings(const std::wstring& root) {
    const CIniText file(ReadWholeFile(root + L"\\engine.ini").value_or(""));
    const auto integer = [&](const char* key) { return file.FindInteger(CIniText::kLooseSection, key); };
    Settings settings;
    settings.createPools = integer("create_pools").value_or(0) != 0;
    settings.durableMetadata = integer("durable_metadata").value_or(1) != 0;
    settings.maximumOpenFiles = std::max(1, integer("max_open_files").value_or(kDefaultOpenFiles));
    if (const std::string* name = file.Find(CIniText::kLooseSection, "top_level")) settings.topLevel = *name;
    if (const auto create = Variable(L"ZDVFS_LOCAL_CREATE")) {
        settings.createPools = ParseIniInteger(Narrow(*create)).value_or(0) != 0;
    }
    if (const auto name = Variable(L"ZDVFS_LOCAL_TOP_LEVEL")) settings.topLevel = Narrow(*name);
    return settings;
}

}  // namespace zd::engine
