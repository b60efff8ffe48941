#include <cstdlib>
#include <cstring>
#include <map>
#include <new>

#include "namespace/FileInformation.h"
#include "protocol/OperationFrame.h"
#include "protocol/ProtocolManager.h"
#include "text/Conversion.h"

namespace zd {
namespace {

using CEntries = std::map<std::wstring, DirectoryEntry, CNameLess>;

// The length of the name without a fragment's suffix, the whole length where it has none.
std::size_t BaseLength(const char* name) noexcept {
    const char* const semicolon = std::strrchr(name, ';');
    if (semicolon == nullptr || semicolon[1] != 'F') return std::strlen(name);
    char* end = nullptr;
    const long number = std::strtol(semicolon + 2, &end, 10);
    const bool isFragment = number > 0 && *end == '\0';
    return isFragment ? static_cast<std::size_t>(semicolon - name) : std::strlen(name);
}

bool ConvertName(std::string_view name, DirectoryEntry& entry) noexcept {
    constexpr int kLongest = 260;
    if (name.empty()) return true;
    if (::MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(name.size()), entry.name, kLongest) > 0) {
        return true;
    }
    std::memset(entry.name, 0, sizeof entry.name);
    LogText(kLogError, "ERROR!:  Failed to convert ANSI file name to Unicode in ZdQueryDirContents\n");
    return false;
}

// One listing on its way: the entries by name, and the sums of the fragments by the name of their file.
class CListing {
public:
    explicit CListing(const CUtf8String& directory) : m_path(directory.view()) {
        if (m_path.empty() || m_path.back() != '/') m_path += '/';
        m_directoryLength = m_path.size();
    }

    void Add(const char* name) {
        m_path += name;
        ZdvfsStatRecord status{};
        CheckZdvfs(::ZdvfsStat(m_path.c_str(), &status));
        m_path.resize(m_directoryLength);
        DirectoryEntry entry{};
        FillFromStatus(entry, status);
        entry.changeTime = entry.creationTime;
        const std::size_t whole = std::strlen(name);
        const std::size_t base = BaseLength(name);
        const bool isConverted = ConvertName(std::string_view(name, base), entry);
        if (base == whole) {
            m_entries.try_emplace(entry.name, entry);
        } else if (isConverted && base > 0) {
            // The empty name stands for names that did not convert: none of these is the fragment's file.
            const auto [total, isNew] = m_fragments.try_emplace(entry.name, entry);
            if (!isNew) total->second.size += entry.size;
        }
    }

    // Hands the entries over as one block of the process heap, null for none.
    void HandOver(DirectoryEntry** entries, DWORD* count) {
        for (const auto& [name, fragments] : m_fragments) {
            const auto file = m_entries.find(name);
            if (file != m_entries.end()) file->second.size += fragments.size;
        }
        DirectoryEntry* block = nullptr;
        if (!m_entries.empty()) {
            block = static_cast<DirectoryEntry*>(
                ::HeapAlloc(::GetProcessHeap(), 0, m_entries.size() * sizeof(DirectoryEntry)));
            if (block == nullptr) {
                LogText(kLogError, "ZdQueryDirContents:    ERROR:  pvBuffer returned null \n");
                throw std::bad_alloc();
            }
        }
        DirectoryEntry* next = block;
        for (const auto& [name, entry] : m_entries) {
            // An assignment need not touch the bytes behind the last field, which are the host's to see.
            std::memset(next, 0, sizeof *next);
            *next++ = entry;
        }
        *entries = block;
        *count = static_cast<DWORD>(m_entries.size());
    }

private:
    std::string m_path;
    std::size_t m_directoryLength = 0;
    CEntries m_entries;
    CEntries m_fragments;
};

}  // namespace

DWORD CProtocolManager::ZdQueryDirContents(Handle handle, DirectoryEntry** entries, DWORD* count) {
    return RunOperation(kQueryDirContentsText, [&] {
        if (handle == 0) return;
        if (entries == nullptr || count == nullptr) ThrowWin32(ERROR_INVALID_PARAMETER);
        const CWordRef word = FindWord(handle);
        const CAutoCriticalSection held(word->Lock());
        if (!word->m_isDir) ThrowWin32(ERROR_DIRECTORY);
        if (word->m_DirPtr == nullptr) ThrowWin32(ERROR_INVALID_HANDLE);
        CListing listing(TranslateFragment(*word, 0));
        for (;;) {
            errno = 0;
            const ZdvfsDirectoryRecord* const entry = ::ZdvfsReaddir(word->m_DirPtr);
            if (entry == nullptr) {
                const int error = errno;
                if (error != 0) ThrowWin32(ZdvfsErrnoToWin32(error));
                break;
            }
            listing.Add(entry->name);
        }
        listing.HandOver(entries, count);
    });
}

}  // namespace zd
