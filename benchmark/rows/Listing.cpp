// Listings: ZdQueryDirContents beside a bare ZdvfsReaddir and ZdvfsStat of each entry. An operation is an entry, so
// rows of different sizes can be compared. Opening, closing and freeing are the same for a listing of any length and
// stay outside of the time.
//
// "with records" is the bare listing that also leaves what a host gets: a block of the process heap with a record for
// each entry, its name in UTF-16. The block is hundreds of bytes an entry and new to the process, so that filling it
// costs more than the calls of a fast storage do.
#include <algorithm>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmark/memory/Requests.h"
#include "benchmark/rows/Groups.h"
#include "benchmark/rows/LocalFiles.h"
#include "tests/harness/RandomBits.h"

namespace zd::bench {
namespace {

constexpr wchar_t kDirectory[] = L"\\listing";
constexpr char kRecords[] = "with records";
constexpr std::int64_t kFragmentEvery = 10;  // one entry in so many is the fragment of another
constexpr std::uint64_t kSeed = 5;

// Where the entries of a directory come from: made through the storage, put onto the disk of the local engine, or
// worked out by the memory engine.
enum class ESource { kStorage, kDisk, kGenerated };

struct CSize {
    std::int64_t entries = 0;
    std::int64_t perTurn = 0;  // a turn lists the directory so often that it meets this many entries
    int rounds = 3;
};

// Minutes would go by with a larger directory: a status of the local engine takes several requests to the server
// process of Wine.
constexpr CSize kSizesOnDisk[] = {{100, 2'000, 5}, {10'000, 10'000, 3}, {20'000, 20'000, 3}};
constexpr CSize kSizes[] = {{100, 5'000, 51}, {10'000, 10'000, 31}, {100'000, 100'000, 15}};
constexpr CSize kSizesOfGrowth[] = {{10'000, 10'000, 31}, {100'000, 100'000, 9}, {1'000'000, 1'000'000, 5}};
constexpr CSize kQuickSizes[] = {{100, 100}, {1'000, 1'000}};

std::int64_t FilesOf(std::int64_t entries) {
    return entries - entries / kFragmentEvery;
}

std::string FileName(std::int64_t number) {
    const std::string digits = std::to_string(number);
    return "document-" + std::string(9 - digits.size(), '0') + digits + ".dat";
}

// The names of a directory of so many entries, in no order, as a file system that hashes them lists them.
std::vector<std::string> Names(std::int64_t entries) {
    std::vector<std::string> names;
    for (std::int64_t n = 0; n < FilesOf(entries); ++n) {
        names.push_back(FileName(n));
        if (n < entries / kFragmentEvery) names.push_back(names.back() + ";F1");
    }
    std::uint64_t state = kSeed;
    for (std::size_t i = names.size(); i > 1; --i) std::swap(names[i - 1], names[test::NextBits(state) % i]);
    return names;
}

class CDirectory {
public:
    CDirectory(CBench& bench, ESource source, std::int64_t entries) : m_bench(bench), m_source(source) {
        CBench::MakeDirectory(kDirectory);
        if (m_source == ESource::kGenerated) {
            Generate(entries);
            return;
        }
        m_names = Names(entries);
        if (m_source == ESource::kDisk) {
            MakeLocalFiles(bench, kDirectory, m_names);
            return;
        }
        for (const std::string& name : m_names) {
            const std::int64_t file =
                ::ZdvfsOpen(PathOf(name).c_str(), kZdvfsCreate | kZdvfsReadWrite, FILE_ATTRIBUTE_NORMAL);
            CheckStorage(file, "ZdvfsOpen");
            CheckStorage(::ZdvfsClose(static_cast<int>(file)), "ZdvfsClose");
        }
    }
    ~CDirectory() {
        if (m_source == ESource::kDisk) RemoveLocalFiles(m_bench, kDirectory, m_names);
        if (m_source == ESource::kStorage) {
            for (const std::string& name : m_names) ::ZdvfsUnlink(PathOf(name).c_str());
        }
        ::ZdvfsUnlink(CBench::Path(kDirectory).c_str());
    }
    CDirectory(const CDirectory&) = delete;
    CDirectory& operator=(const CDirectory&) = delete;

private:
    static std::string PathOf(const std::string& name) { return CBench::Path(kDirectory) + "/" + name; }

    static void Generate(std::int64_t entries) {
        const auto root = static_cast<int>(CheckStorage(::ZdvfsOpen(CBench::Path(L"").c_str(), 0, 0), "ZdvfsOpen"));
        const int result = ::ZdvfsIoctl(root, memory::kMemoryIoctlGenerate, CBench::Path(kDirectory).c_str(), entries);
        ::ZdvfsClose(root);
        CheckStorage(result, "ZdvfsIoctl");
    }

    const CBench& m_bench;
    const ESource m_source;
    std::vector<std::string> m_names;
};

// What is opened before a turn and given back after it.
class COpened {
public:
    COpened(const CConnection& connection, std::int64_t listings)
        : m_connection(connection), m_listings(static_cast<std::size_t>(listings)) {}
    ~COpened() { GiveBack(); }
    COpened(const COpened&) = delete;
    COpened& operator=(const COpened&) = delete;

    void Renew() {
        GiveBack();
        const std::string path = CBench::Path(kDirectory);
        while (m_streams.size() < m_listings) {
            m_streams.push_back(::ZdvfsOpendir(path.c_str()));
            if (m_streams.back() == nullptr) throw std::runtime_error("ZdvfsOpendir failed");
            m_handles.push_back(
                m_connection.Open(kDirectory, {.access = 1, .attributes = FILE_ATTRIBUTE_DIRECTORY, .isDirectory = 1}));
        }
    }

    Handle HandleAt(std::int64_t index) const { return m_handles.at(static_cast<std::size_t>(index)); }
    ZdvfsDirectory* StreamAt(std::int64_t index) const { return m_streams.at(static_cast<std::size_t>(index)); }
    void Keep(DirectoryEntry* block) { m_blocks.push_back(block); }

private:
    void GiveBack() {
        for (DirectoryEntry* const block : m_blocks) ::HeapFree(::GetProcessHeap(), 0, block);
        for (ZdvfsDirectory* const stream : m_streams) ::ZdvfsClosedir(stream);
        for (const Handle handle : m_handles) m_connection.Close(handle);
        m_blocks.clear();
        m_streams.clear();
        m_handles.clear();
    }

    const CConnection& m_connection;
    std::size_t m_listings;
    std::vector<Handle> m_handles;
    std::vector<ZdvfsDirectory*> m_streams;
    std::vector<DirectoryEntry*> m_blocks;
};

// Reads the stream to its end and hands name and status of each entry to `take`.
template <class Take>
void ListDirectly(ZdvfsDirectory* stream, Take&& take) {
    std::string path = CBench::Path(kDirectory) + "/";
    const std::size_t length = path.size();
    while (const ZdvfsDirectoryRecord* const record = ::ZdvfsReaddir(stream)) {
        path += record->name;
        ZdvfsStatRecord status{};
        CheckStorage(::ZdvfsStat(path.c_str(), &status), "ZdvfsStat");
        path.resize(length);
        take(record->name, status);
    }
}

void Require(bool holds) {
    if (!holds) throw std::runtime_error("a listing has not the entries that the directory has");
}

// Median nanoseconds an entry; 0 where the row was not asked for.
struct CCosts {
    double direct;
    double plugin;
};

class CTimes {
public:
    CWork Measured(CWork work) {
        return [this, work = std::move(work)](std::int64_t count) {
            const std::int64_t start = Now();
            work(count);
            m_times.push_back(static_cast<double>(Now() - start) / static_cast<double>(count));
        };
    }
    double Median() {
        if (m_times.empty()) return 0;
        const auto middle = m_times.begin() + static_cast<std::ptrdiff_t>(m_times.size() / 2);
        std::nth_element(m_times.begin(), middle, m_times.end());
        return *middle;
    }

private:
    std::vector<double> m_times;
};

CWork Bare(const COpened& opened, std::int64_t entries) {
    return [&opened, entries](std::int64_t count) {
        for (std::int64_t i = 0; i < count / entries; ++i) {
            std::int64_t seen = 0;
            ListDirectly(opened.StreamAt(i), [&seen](const char*, const ZdvfsStatRecord&) { ++seen; });
            Require(seen == entries + 2);  // "." and ".." too
        }
    };
}

CWork WithRecords(COpened& opened, std::int64_t entries) {
    return [&opened, entries](std::int64_t count) {
        for (std::int64_t i = 0; i < count / entries; ++i) {
            auto* const block = static_cast<DirectoryEntry*>(
                ::HeapAlloc(::GetProcessHeap(), 0, static_cast<std::size_t>(entries + 2) * sizeof(DirectoryEntry)));
            if (block == nullptr) throw std::bad_alloc();
            opened.Keep(block);
            DirectoryEntry* next = block;
            ListDirectly(opened.StreamAt(i), [&next](const char* name, const ZdvfsStatRecord& status) {
                *next = DirectoryEntry{};
                next->size = static_cast<std::uint64_t>(status.size);
                next->attributes = status.attributes;
                ::MultiByteToWideChar(CP_UTF8, 0, name, -1, next->name, static_cast<int>(std::size(next->name)));
                ++next;
            });
            Require(next - block == entries + 2);
        }
    };
}

CWork ThroughPlugin(IProtocolManager& manager, COpened& opened, std::int64_t entries) {
    return [&manager, &opened, entries](std::int64_t count) {
        for (std::int64_t i = 0; i < count / entries; ++i) {
            DirectoryEntry* block = nullptr;
            DWORD listed = 0;
            Check(manager.ZdQueryDirContents(opened.HandleAt(i), &block, &listed), "ZdQueryDirContents");
            opened.Keep(block);
            Require(listed == static_cast<DWORD>(FilesOf(entries) + 2));
        }
    };
}

CCosts Measure(CReport& report, CBench& bench, ESource source, const CSize& size) {
    const CDirectory directory(bench, source, size.entries);
    const std::int64_t listings = std::max<std::int64_t>(1, size.perTurn / size.entries);
    COpened opened(bench.Connection(), listings);
    CTimes direct;
    CTimes plugin;
    std::vector<CContestant> contestants = {
        {kDirect, direct.Measured(Bare(opened, size.entries))},
        {kPlugin, plugin.Measured(ThroughPlugin(bench.Manager(), opened, size.entries))}};
    // Beside the calls of the local engine the records do not show.
    if (source != ESource::kDisk) contestants.push_back({kRecords, WithRecords(opened, size.entries)});
    report.Compare((source == ESource::kGenerated ? "generated, " : "") + Grouped(size.entries) + " entries",
                   contestants,
                   {.count = listings * size.entries, .rounds = size.rounds, .before = [&opened] { opened.Renew(); }});
    return {direct.Median(), plugin.Median()};
}

}  // namespace

void RunListing(CReport& report, CBench& bench) {
    const bool isLocal = report.Engine() == kLocalEngine;
    const ESource source = isLocal ? ESource::kDisk : ESource::kStorage;
    if (report.IsQuick()) {
        for (const CSize& size : kQuickSizes) Measure(report, bench, source, size);
        return;
    }
    for (const CSize& size : isLocal ? std::span<const CSize>(kSizesOnDisk) : std::span<const CSize>(kSizes)) {
        Measure(report, bench, source, size);
    }
    if (isLocal) return;
    std::vector<CCosts> costs;
    for (const CSize& size : kSizesOfGrowth) costs.push_back(Measure(report, bench, ESource::kGenerated, size));
    constexpr char kGrowth[] = "cost per entry at 1,000,000 / at 10,000";
    const auto tell = [&](const char* name, double first, double last) {
        if (first > 0 && last > 0) report.Figure(kGrowth, name, last / first, "times");
    };
    tell(kDirect, costs.front().direct, costs.back().direct);
    tell(kPlugin, costs.front().plugin, costs.back().plugin);
}

}  // namespace zd::bench
