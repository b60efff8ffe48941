#include "namespace/DirectoryListing.h"

#include <xmmintrin.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

#include "base/Conversion.h"
#include "base/Errors.h"
#include "log/Log.h"
#include "namespace/FileInformation.h"
#include "namespace/FragmentName.h"
#include "zdvfs.h"

namespace zd {
namespace {

constexpr std::size_t kLongestName = 260;  // units, without the terminator
constexpr std::size_t kFirstBlock = 4096;  // bytes
constexpr std::size_t kLargestBlock = 1 << 20;
constexpr std::ptrdiff_t kManyKeys = 1024;  // from here on, moving each key a few times is cheaper than comparing

// The units of the name in UTF-16, none where it does not convert: false. Clears `isAscii` where one is not ASCII.
bool ConvertName(std::string_view name, wchar_t (&units)[kLongestName], std::size_t& count, bool& isAscii) noexcept {
    count = 0;
    while (count < name.size() && count < kLongestName && static_cast<unsigned char>(name[count]) < 0x80) {
        units[count] = static_cast<wchar_t>(name[count]);
        ++count;
    }
    if (count == name.size()) return true;
    isAscii = false;
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

// A multiple of what an entry is aligned to.
std::size_t CDirectoryListing::CListed::Bytes(std::size_t length) noexcept {
    return (sizeof(CListed) + length * sizeof(wchar_t) + alignof(CListed) - 1) / alignof(CListed) * alignof(CListed);
}

void* CDirectoryListing::Take(std::size_t bytes) {
    if (m_blocks.empty() || m_blocks.back().size - m_blocks.back().used < bytes) {
        const std::size_t size = m_blocks.empty() ? kFirstBlock : std::min(m_blocks.back().size * 2, kLargestBlock);
        m_blocks.push_back(CBlock{std::make_unique_for_overwrite<std::byte[]>(size), size, 0});
    }
    CBlock& block = m_blocks.back();
    void* const taken = block.bytes.get() + block.used;
    block.used += bytes;
    return taken;
}

void CDirectoryListing::Add(const char* name) {
    const std::size_t length = std::strlen(name);
    m_path.append(name, length);
    ZdvfsStatRecord status{};
    CheckZdvfs(::ZdvfsStat(m_path.c_str(), &status));
    m_path.resize(m_directoryLength);
    const std::size_t base = LengthOfListedBase(name, length);
    const bool isFragment = base != length;
    wchar_t units[kLongestName];
    std::size_t count = 0;
    const bool isConverted = ConvertName(std::string_view(name, base), units, count, m_isAscii);
    // The empty name stands for names that did not convert: none of these is the fragment's file.
    if (isFragment && (!isConverted || count == 0)) return;
    auto* const entry = new (Take(CListed::Bytes(count))) CListed;
    FillFromStatus(*entry, status);
    entry->length = static_cast<std::uint16_t>(count);
    entry->isFragment = isFragment;
    std::memcpy(entry->Name(), units, count * sizeof(wchar_t));
    ++m_count;
}

void CDirectoryListing::MakeKeys() {
    m_keys.reserve(m_count);
    for (const CBlock& block : m_blocks) {
        for (std::size_t at = 0; at < block.used;) {
            auto* const entry = std::launder(reinterpret_cast<CListed*>(block.bytes.get() + at));
            m_keys.push_back(CKey{0, 0, entry, static_cast<std::uint32_t>(m_keys.size()), entry->isFragment, false});
            at += CListed::Bytes(entry->length);
        }
    }
}

// The name's units from there on, one byte each where all names are ASCII, two otherwise; 0 behind the end.
void CDirectoryListing::SetUnits(CKey& key, std::size_t from) const noexcept {
    const std::size_t perWord = UnitsOfKey() / 2;
    const std::size_t bits = 64 / perWord;
    const wchar_t* const name = key.entry->Name();
    const std::size_t length = key.entry->length;
    const auto word = [&](std::size_t begin) {
        std::uint64_t packed = 0;
        for (std::size_t i = begin; i < begin + perWord; ++i) {
            packed = packed << bits | static_cast<std::uint64_t>(i < length ? FoldCase(name[i]) : L'\0');
        }
        return packed;
    };
    key.high = word(from);
    key.low = word(from + perWord);
}

// Up to which unit all names are the same, as they are up to `from`.
std::size_t CDirectoryListing::CommonLength(CKeys::const_iterator first, CKeys::const_iterator last,
                                            std::size_t from) noexcept {
    const wchar_t* const name = first->entry->Name();
    std::size_t common = first->entry->length;
    for (auto key = first; key != last && common > from; ++key) {
        const wchar_t* const other = key->entry->Name();
        const std::size_t most = std::min<std::size_t>(common, key->entry->length);
        common = from;
        while (common < most && FoldCase(other[common]) == FoldCase(name[common])) ++common;
    }
    return common;
}

// Those by which keys are sorted, the least one first: whether it is a fragment, then the units of the name.
std::size_t CDirectoryListing::ByteOf(const CKey& key, std::size_t byte) noexcept {
    if (byte == 0) return key.isFragment ? 1 : 0;
    return (byte <= 8 ? key.low >> (8 * byte - 8) : key.high >> (8 * byte - 72)) & 0xFF;
}

// By the keys, which come in the order of reading: once for each byte that is not the same in all of them, the last
// byte first, each time leaving equal ones in their order.
void CDirectoryListing::SortByBytes(std::span<CKey> keys) {
    if (m_spare == nullptr) m_spare = std::make_unique_for_overwrite<CKey[]>(keys.size());
    std::array<std::array<std::uint32_t, 256>, kBytesOfKey> counts{};
    for (const CKey& key : keys) {
        for (std::size_t byte = 0; byte < kBytesOfKey; ++byte) ++counts[byte][ByteOf(key, byte)];
    }
    std::span<CKey> from = keys;
    std::span<CKey> to(m_spare.get(), keys.size());
    for (std::size_t byte = 0; byte < kBytesOfKey; ++byte) {
        auto& count = counts[byte];
        if (count[ByteOf(keys.front(), byte)] == keys.size()) continue;
        std::uint32_t place = 0;
        for (std::uint32_t& one : count) place += std::exchange(one, place);
        for (const CKey& key : from) to[count[ByteOf(key, byte)]++] = key;
        std::swap(from, to);
    }
    if (from.data() != keys.data()) std::copy(from.begin(), from.end(), keys.begin());
}

// By name from that unit on, up to which all are the same; a file before its fragments, and of files the one read
// first. Units that all have would fill the keys for nothing, and looking at an entry again costs more than sorting it.
void CDirectoryListing::Sort(CKeys::iterator first, CKeys::iterator last, std::size_t from) {
    from = CommonLength(first, last, from);
    for (auto key = first; key != last; ++key) SetUnits(*key, from);
    if (last - first >= kManyKeys) {
        SortByBytes({first, last});
    } else {
        std::sort(first, last, [](const CKey& one, const CKey& other) {
            if (one.high != other.high) return one.high < other.high;
            if (one.low != other.low) return one.low < other.low;
            if (one.isFragment != other.isFragment) return other.isFragment;
            return one.order < other.order;
        });
    }
    const std::uint64_t lastUnit = m_isAscii ? 0xFF : 0xFFFF;
    while (first != last) {
        const auto end = std::find_if(
            first + 1, last, [&](const CKey& key) { return key.high != first->high || key.low != first->low; });
        const bool isOne = end - first == 1;
        if (!isOne && (first->low & lastUnit) != 0) {
            Sort(first, end, from + UnitsOfKey());
        } else {
            for (auto key = first + 1; key != end; ++key) key->isRepeated = true;
        }
        first = end;
    }
}

// Leaves one key for each file, with the sizes of its fragments added. Fragments without a file are dropped.
void CDirectoryListing::Fold() noexcept {
    std::size_t kept = 0;
    bool isFile = false;  // whether the name at hand has a file
    for (const CKey& key : m_keys) {
        if (!key.isRepeated) {
            isFile = !key.isFragment;
            if (isFile) m_keys[kept++] = key;
        } else if (isFile && key.isFragment) {
            m_keys[kept - 1].entry->size += key.entry->size;
        }
    }
    m_keys.erase(m_keys.begin() + static_cast<std::ptrdiff_t>(kept), m_keys.end());
}

void CDirectoryListing::HandOver(DirectoryEntry** entries, DWORD* count) {
    MakeKeys();
    if (!m_keys.empty()) Sort(m_keys.begin(), m_keys.end(), 0);
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
    for (std::size_t i = 0; i < m_keys.size(); ++i) {
        // By name, entries lie anywhere.
        constexpr std::size_t kAhead = 8;
        if (i + kAhead < m_keys.size()) {
            const auto* const ahead = reinterpret_cast<const char*>(m_keys[i + kAhead].entry);
            _mm_prefetch(ahead, _MM_HINT_T0);
            _mm_prefetch(ahead + 64, _MM_HINT_T0);
        }
        const CListed& entry = *m_keys[i].entry;
        // The bytes behind the name and the last field are the host's to see.
        std::memset(static_cast<void*>(next), 0, sizeof *next);
        next->creationTime = entry.creationTime;
        next->lastAccessTime = entry.lastAccessTime;
        next->lastWriteTime = entry.lastWriteTime;
        next->changeTime = entry.creationTime;
        next->attributes = entry.attributes;
        next->size = entry.size;
        next->mode = entry.mode;
        std::memcpy(next->name, entry.Name(), entry.length * sizeof(wchar_t));
        ++next;
    }
    *entries = block;
    *count = static_cast<DWORD>(m_keys.size());
}

}  // namespace zd
