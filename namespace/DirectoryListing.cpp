#include "namespace/DirectoryListing.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "log/Log.h"
#include "namespace/FileInformation.h"
#include "protocol/Errors.h"
#include "text/Conversion.h"

namespace zd {
namespace {

constexpr std::size_t kLongestName = 260;  // units, without the terminator
constexpr std::size_t kFirstBlockWords = 512;
constexpr std::size_t kLargestBlockWords = 128 * 1024;

// The length of the name without a fragment's suffix, the whole length where it has none.
std::size_t BaseLength(const char* name, std::size_t length) noexcept {
    const char* const semicolon = std::strrchr(name, ';');
    if (semicolon == nullptr || semicolon[1] != 'F') return length;
    char* end = nullptr;
    const long number = std::strtol(semicolon + 2, &end, 10);
    const bool isFragment = number > 0 && *end == '\0';
    return isFragment ? static_cast<std::size_t>(semicolon - name) : length;
}

// The units of the name in UTF-16, 0 for none. False where it does not convert.
bool ConvertName(std::string_view name, wchar_t (&units)[kLongestName], std::size_t& count) noexcept {
    count = 0;
    while (count < name.size() && count < kLongestName && static_cast<unsigned char>(name[count]) < 0x80) {
        units[count] = static_cast<wchar_t>(name[count]);
        ++count;
    }
    if (count == name.size()) return true;
    count = static_cast<std::size_t>(::MultiByteToWideChar(CP_UTF8, 0, name.data(), static_cast<int>(name.size()),
                                                           units, static_cast<int>(kLongestName)));
    if (count > 0) return true;
    LogText(kLogError, "ERROR!:  Failed to convert ANSI file name to Unicode in ZdQueryDirContents\n");
    return false;
}

}  // namespace

CDirectoryListing::CDirectoryListing(const CUtf8String& directory) : m_path(directory.view()) {
    if (m_path.empty() || m_path.back() != '/') m_path += '/';
    m_directoryLength = m_path.size();
}

void* CDirectoryListing::Take(std::size_t bytes) {
    const std::size_t words = (bytes + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t);
    if (words > m_freeWords) {
        const std::size_t blockWords =
            std::min(kFirstBlockWords << std::min<std::size_t>(m_blocks.size(), 16), kLargestBlockWords);
        m_blocks.push_back(std::make_unique_for_overwrite<std::uint64_t[]>(blockWords));
        m_free = m_blocks.back().get();
        m_freeWords = blockWords;
    }
    void* const taken = m_free;
    m_free += words;
    m_freeWords -= words;
    return taken;
}

void CDirectoryListing::Add(const char* name) {
    const std::size_t length = std::strlen(name);
    m_path.append(name, length);
    ZdvfsStatRecord status{};
    CheckZdvfs(::ZdvfsStat(m_path.c_str(), &status));
    m_path.resize(m_directoryLength);
    const std::size_t base = BaseLength(name, length);
    const bool isFragment = base != length;
    wchar_t units[kLongestName];
    std::size_t count = 0;
    const bool isConverted = ConvertName(std::string_view(name, base), units, count);
    // The empty name stands for names that did not convert: none of these is the fragment's file.
    if (isFragment && (!isConverted || count == 0)) return;
    auto* const entry = new (Take(sizeof(CListed) + count * sizeof(wchar_t))) CListed;
    FillFromStatus(*entry, status);
    entry->length = static_cast<std::uint32_t>(count);
    std::copy_n(units, count, entry->Name());
    Narrow(*entry);
    m_keys.push_back(CKey{0, 0, entry, static_cast<std::uint32_t>(m_keys.size()), isFragment});
}

// Takes the name into account for what the keys may leave out.
void CDirectoryListing::Narrow(const CListed& entry) noexcept {
    for (std::size_t i = 0; i < entry.length; ++i) m_allUnits = static_cast<wchar_t>(m_allUnits | entry.Name()[i]);
    if (m_keys.empty()) m_common = entry.length;
    const CListed& first = m_keys.empty() ? entry : *m_keys.front().entry;
    const std::size_t most = std::min<std::size_t>(m_common, entry.length);
    std::size_t same = 0;
    while (same < most && FoldCase(entry.Name()[same]) == FoldCase(first.Name()[same])) ++same;
    m_common = same;
}

// The units that follow, one byte each where that is enough for all names, two otherwise; 0 behind the end.
void CDirectoryListing::MakeKey(CKey& key) const noexcept {
    const std::size_t bits = m_allUnits < 0x100 ? 8 : 16;
    const std::size_t perWord = 64 / bits;
    const auto word = [&](std::size_t from) {
        std::uint64_t packed = 0;
        for (std::size_t i = from; i < from + perWord; ++i) {
            const wchar_t unit = i < key.entry->length ? FoldCase(key.entry->Name()[i]) : L'\0';
            packed = packed << bits | static_cast<std::uint64_t>(unit);
        }
        return packed;
    };
    key.high = word(m_common);
    key.low = word(m_common + perWord);
}

bool CDirectoryListing::IsSameName(const CKey& first, const CKey& second) const noexcept {
    if (first.high != second.high || first.low != second.low) return false;
    return CompareNoCase({first.entry->Name(), first.entry->length}, {second.entry->Name(), second.entry->length}) == 0;
}

// By name; a file before its fragments, and of files the one read first.
bool CDirectoryListing::IsBefore(const CKey& first, const CKey& second) const noexcept {
    if (first.high != second.high) return first.high < second.high;
    if (first.low != second.low) return first.low < second.low;
    const int order =
        CompareNoCase({first.entry->Name(), first.entry->length}, {second.entry->Name(), second.entry->length});
    if (order != 0) return order < 0;
    if (first.isFragment != second.isFragment) return second.isFragment;
    return first.order < second.order;
}

void CDirectoryListing::Sort() {
    for (CKey& key : m_keys) MakeKey(key);
    std::sort(m_keys.begin(), m_keys.end(),
              [this](const CKey& first, const CKey& second) { return IsBefore(first, second); });
}

// Leaves one key for each file, with the sizes of its fragments added. Fragments without a file are dropped.
void CDirectoryListing::Fold() noexcept {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < m_keys.size(); ++i) {
        const CKey& key = m_keys[i];
        const bool isSame = kept > 0 && IsSameName(m_keys[kept - 1], key);
        if (!key.isFragment) {
            if (!isSame) m_keys[kept++] = key;
        } else if (isSame) {
            m_keys[kept - 1].entry->size += key.entry->size;
        }
    }
    m_keys.resize(kept);
}

void CDirectoryListing::HandOver(DirectoryEntry** entries, DWORD* count) {
    Sort();
    Fold();
    DirectoryEntry* block = nullptr;
    if (!m_keys.empty()) {
        block =
            static_cast<DirectoryEntry*>(::HeapAlloc(::GetProcessHeap(), 0, m_keys.size() * sizeof(DirectoryEntry)));
        if (block == nullptr) {
            LogText(kLogError, "ZdQueryDirContents:    ERROR:  pvBuffer returned null \n");
            throw std::bad_alloc();
        }
    }
    DirectoryEntry* next = block;
    for (const CKey& key : m_keys) {
        const CListed& entry = *key.entry;
        // The bytes behind the name and the last field are the host's to see.
        std::memset(static_cast<void*>(next), 0, sizeof *next);
        next->creationTime = entry.creationTime;
        next->lastAccessTime = entry.lastAccessTime;
        next->lastWriteTime = entry.lastWriteTime;
        next->changeTime = entry.creationTime;
        next->attributes = entry.attributes;
        next->size = entry.size;
        next->mode = entry.mode;
        std::copy_n(entry.Name(), entry.length, next->name);
        ++next;
    }
    *entries = block;
    *count = static_cast<DWORD>(m_keys.size());
}

}  // namespace zd
