// A file of very many fragments, of which 100 may be open at once, beside the calls that this takes
// (DirectFragments.h). Fragments are of 4 KiB, so that what is measured is their coming and going.
#include <memory>
#include <stdexcept>
#include <vector>

#include "benchmark/rows/DirectFragments.h"
#include "benchmark/rows/Groups.h"
#include "benchmark/rows/LocalFiles.h"
#include "benchmark/rows/Order.h"

namespace zd::bench {
namespace {

constexpr wchar_t kDirectory[] = L"\\fragments";
constexpr wchar_t kName[] = L"\\fragments\\many.bin";
constexpr DWORD kFragmentSize = 4096;
constexpr DWORD kMostOpen = 100;
constexpr std::int64_t kFragments = 10000;
constexpr std::int64_t kFragmentsOfQuickRun = 150;
constexpr std::uint64_t kSeed = 7;
// Reads a turn: each takes milliseconds under Wine over files, and a microsecond over memory.
constexpr std::int64_t kReads = 20;
constexpr std::int64_t kReadsOfFastEngine = 1000;

// The file and the directory it stands in, while they are needed.
class CManyFragments {
public:
    CManyFragments(const CBench& bench, bool onLocalEngine, std::int64_t fragments)
        : m_bench(bench), m_onLocalEngine(onLocalEngine), m_fragments(fragments) {
        CBench::MakeDirectory(kDirectory);
        if (m_onLocalEngine) {
            MakeLocalFiles(m_bench, kDirectory, LastNames(), std::string(kFragmentSize, 'f'));
        } else {
            CBench::MakeFile(kName, kFragmentSize, m_fragments);
        }
    }
    ~CManyFragments() {
        if (m_onLocalEngine) {
            RemoveLocalFiles(m_bench, kDirectory, LastNames());
        } else {
            CBench::RemoveFile(kName, m_fragments);
        }
        ::ZdvfsUnlink(CBench::Path(kDirectory).c_str());
    }
    CManyFragments(const CManyFragments&) = delete;
    CManyFragments& operator=(const CManyFragments&) = delete;

    std::int64_t Count() const { return m_fragments; }

private:
    std::vector<std::string> LastNames() const {
        std::vector<std::string> names;
        for (std::int64_t n = 0; n < m_fragments; ++n) {
            const std::string path = CBench::Path(kName, n);
            names.push_back(path.substr(path.rfind('/') + 1));
        }
        return names;
    }

    const CBench& m_bench;
    bool m_onLocalEngine;
    std::int64_t m_fragments;
};

void MeasureReads(CReport& report, IProtocolManager& manager, Handle handle, const CManyFragments& file, bool random) {
    std::vector<char> buffer(kFragmentSize);
    CDirectFragments direct(kName, file.Count(), kMostOpen);
    COrder ofDirect(file.Count(), random, file.Count(), kSeed);
    COrder ofPlugin(file.Count(), random, file.Count(), kSeed);
    report.Compare((random ? "random, " : "sequential, ") + std::to_string(file.Count()) + " fragments",
                   {{kDirect,
                     [&](std::int64_t count) {
                         for (std::int64_t i = 0; i < count; ++i) {
                             direct.Read(ofDirect.Next(), kFragmentSize, buffer.data());
                         }
                     }},
                    {kPlugin,
                     [&](std::int64_t count) {
                         DWORD moved = 0;
                         for (std::int64_t i = 0; i < count; ++i) {
                             Check(manager.ZdReadFile(handle, ofPlugin.Next() * kFragmentSize, kFragmentSize,
                                                      buffer.data(), &moved),
                                   "ZdReadFile");
                             if (moved != kFragmentSize) throw std::runtime_error("ZdReadFile read too little");
                         }
                     }}},
                   {.count = report.Engine() == kLocalEngine ? kReads : kReadsOfFastEngine, .bytes = kFragmentSize});
}

void MeasureDiscovery(CReport& report, const CConnection& connection, const CManyFragments& file) {
    std::vector<std::string> paths;
    for (std::int64_t n = 1; n <= file.Count(); ++n) paths.push_back(CBench::Path(kName, n));
    report.Compare("finding " + std::to_string(file.Count()) + " fragments at the open",
                   {{kDirect,
                     [&](std::int64_t count) {
                         ZdvfsStatRecord record{};
                         for (std::int64_t i = 0; i < count; ++i) {
                             for (const std::string& path : paths) ::ZdvfsStat(path.c_str(), &record);
                         }
                     }},
                    {kPlugin, [&](std::int64_t count) {
                         for (std::int64_t i = 0; i < count; ++i) connection.Close(connection.Open(kName));
                     }}});
}

}  // namespace

void RunFragments(CReport& report, CBench& bench) {
    const bool isLocal = report.Engine() == kLocalEngine;
    const std::unique_ptr<CConnection> connection = bench.Connect({.maxOpenFragments = kMostOpen});
    const CManyFragments file(bench, isLocal, report.IsQuick() ? kFragmentsOfQuickRun : kFragments);
    const Handle handle = connection->Open(kName);
    MeasureReads(report, connection->Manager(), handle, file, false);
    MeasureReads(report, connection->Manager(), handle, file, true);
    connection->Close(handle);
    // Over files it takes seconds for each open, nearly all of it in the storage.
    if (!isLocal) MeasureDiscovery(report, *connection, file);
}

}  // namespace zd::bench
