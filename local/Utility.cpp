// hul.dll: ini files and text conversion.
#include <windows.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "hul.h"
#include "IniText.h"

using zd::engine::CIniText;

namespace {

// What tells that a file has changed since it was read.
struct FileStamp {
    FILETIME written;
    DWORD sizeHigh;
    DWORD sizeLow;

    bool operator==(const FileStamp& other) const {
        return ::CompareFileTime(&written, &other.written) == 0 && sizeHigh == other.sizeHigh &&
               sizeLow == other.sizeLow;
    }
};

// The ini files read so far. A copy serves until it is dropped or the file's stamp differs.
class CIniCache {
public:
    // Null where the file cannot be read.
    std::shared_ptr<const CIniText> Get(const char* file);
    void Drop(const char* file);

private:
    struct Entry {
        FileStamp stamp;
        std::shared_ptr<const CIniText> text;
    };

    std::mutex m_lock;  // guards m_entries
    std::map<std::string, Entry> m_entries;
};

// An ini file beyond this size is taken for something else.
constexpr DWORD kMaximumFile = 64u << 20;

bool ReadFileText(const char* path, std::string& text) {
    const HANDLE file = ::CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const std::unique_ptr<void, BOOL(WINAPI*)(HANDLE)> owner(file, ::CloseHandle);
    char buffer[16384];
    for (DWORD got = 0;; text.append(buffer, got)) {
        if (!::ReadFile(file, buffer, sizeof buffer, &got, nullptr) || text.size() > kMaximumFile) return false;
        if (got == 0) return true;
    }
}

std::shared_ptr<const CIniText> CIniCache::Get(const char* file) {
    const std::lock_guard lock(m_lock);
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!::GetFileAttributesExA(file, GetFileExInfoStandard, &data)) {
        m_entries.erase(file);
        return nullptr;
    }
    const FileStamp stamp{data.ftLastWriteTime, data.nFileSizeHigh, data.nFileSizeLow};
    const auto found = m_entries.find(file);
    if (found != m_entries.end() && found->second.stamp == stamp) return found->second.text;
    std::string text;
    if (!ReadFileText(file, text)) return nullptr;
    Entry entry{stamp, std::make_shared<const CIniText>(text)};
    return m_entries.insert_or_assign(file, std::move(entry)).first->second.text;
}

void CIniCache::Drop(const char* file) {
    const std::lock_guard lock(m_lock);
    m_entries.erase(file);
}

CIniCache& Cache() {
    static CIniCache cache;
    return cache;
}

int CopyCut(std::string_view value, char* buffer, int size) {
    if (!buffer || size <= 0) return 0;
    const std::size_t length = std::min(value.size(), static_cast<std::size_t>(size) - 1);
    std::memcpy(buffer, value.data(), length);
    buffer[length] = '\0';
    return static_cast<int>(length);
}

// Bytes of the UTF-8 form with the terminator, 0 on failure. An unpaired surrogate counts as U+FFFD.
int Convert(const wchar_t* text, char* buffer, int size) {
    return ::WideCharToMultiByte(CP_UTF8, 0, text, -1, buffer, size, nullptr, nullptr);
}

}  // namespace

int InifileGetValueA(const char* file, const char* section, const char* key, const char* defaultValue, char* buffer,
                     int size) {
    try {
        if (file && section && key) {
            const auto text = Cache().Get(file);
            const std::string* value = text ? text->Find(section, key) : nullptr;
            if (value) return CopyCut(*value, buffer, size);
        }
    } catch (...) {
        // A file that memory does not suffice for counts as missing.
    }
    return CopyCut(defaultValue ? defaultValue : "", buffer, size);
}

int InifileGetIntegerA(const char* file, const char* section, const char* key, int defaultValue) {
    try {
        if (!file || !section || !key) return defaultValue;
        const auto text = Cache().Get(file);
        return text ? text->FindInteger(section, key).value_or(defaultValue) : defaultValue;
    } catch (...) {
        return defaultValue;
    }
}

void InifileReleaseA(const char* file) {
    try {
        if (file) Cache().Drop(file);
    } catch (...) {
        // Nothing is dropped that was never kept.
    }
}

char* wcstoutf8_malloced(const wchar_t* text) {
    if (!text) return nullptr;
    const int size = Convert(text, nullptr, 0);
    if (size <= 0) return nullptr;
    auto* block = static_cast<char*>(std::malloc(static_cast<std::size_t>(size)));
    if (block) Convert(text, block, size);
    return block;
}

int wcstoutf8_buf(const wchar_t* text, char* buffer, int size) {
    if (!text || !buffer || size <= 0) return 0;
    const int written = Convert(text, buffer, size);
    // What did not fit is not left behind half written.
    if (written == 0) buffer[0] = '\0';
    return written;
}

void _HulFree(void* memory) {
    std::free(memory);
}
