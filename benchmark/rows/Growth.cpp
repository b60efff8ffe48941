// How the cost of a call grows with the handles and fragments that are open, beside the same calls of the storage on as
// many descriptors. What is used is drawn anew for each call, so that more of it also means that the processor's cache
// holds less of it; the direct calls show that share.
//
// Over the memory engine only: it moves no bytes here, and over files the system's own tables would be measured.
#include <iterator>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmark/rows/DirectFile.h"
#include "benchmark/rows/DirectOpening.h"
#include "benchmark/rows/Groups.h"
#include "benchmark/rows/LocalFiles.h"
#include "benchmark/rows/Order.h"
#include "benchmark/rows/StillBytes.h"

namespace zd::bench {
namespace {

constexpr wchar_t kDirectory[] = L"\\growth";
constexpr wchar_t kFragmented[] = L"\\growth\\fragmented.bin";
constexpr DWORD kBytes = 4096;
constexpr std::int64_t kUsed[] = {1, 100, 10'000};
constexpr std::int64_t kUsedQuickly[] = {1, 10};
constexpr std::int64_t kBeside[] = {0, 1'000, 10'000};
constexpr std::int64_t kBesideQuickly[] = {0, 10};
// The same for any number of choices, so that the order itself takes as much of the cache.
constexpr std::int64_t kDraws = 16'384;
constexpr std::uint64_t kSeed = 11;

COrder Draws(std::int64_t choices) {
    return COrder(choices, true, kDraws, kSeed);
}

// Files of 4 KiB, each of them open through the plug-in.
class COpenFiles {
public:
    COpenFiles(const CConnection& connection, std::int64_t count) : m_connection(connection) {
        for (std::int64_t n = 0; n < count; ++n) {
            m_names.push_back(kDirectory + (L"\\file-" + std::to_wstring(n)));
            CBench::MakeFile(m_names.back(), kBytes);
            m_handles.push_back(m_connection.Open(m_names.back()));
        }
    }
    ~COpenFiles() {
        for (const Handle handle : m_handles) m_connection.Close(handle);
        for (const std::wstring& name : m_names) CBench::RemoveFile(name);
    }
    COpenFiles(const COpenFiles&) = delete;
    COpenFiles& operator=(const COpenFiles&) = delete;

    const std::vector<std::wstring>& Names() const { return m_names; }
    Handle At(std::int64_t index) const { return m_handles[static_cast<std::size_t>(index)]; }

private:
    const CConnection& m_connection;
    std::vector<std::wstring> m_names;
    std::vector<Handle> m_handles;
};

void ReadThroughPlugin(IProtocolManager& manager, Handle handle, std::int64_t offset, char* buffer) {
    DWORD moved = 0;
    Check(manager.ZdReadFile(handle, offset, kBytes, buffer, &moved), "ZdReadFile");
    if (moved != kBytes) throw std::runtime_error("ZdReadFile read too little");
}

// "plugin" and "direct" do `once(number)` with numbers of the same order.
template <class Direct, class Plugin>
void CompareDraws(CReport& report, const std::string& row, std::int64_t choices, Direct direct, Plugin plugin) {
    const auto repeated = [choices](auto once) {
        return [once, order = Draws(choices)](std::int64_t count) mutable {
            for (std::int64_t i = 0; i < count; ++i) once(order.Next());
        };
    };
    report.Compare(row, {{kDirect, repeated(direct)}, {kPlugin, repeated(plugin)}}, {.bytes = kBytes});
}

void MeasureHandles(CReport& report, const CConnection& connection, std::int64_t count) {
    const COpenFiles files(connection, count);
    std::vector<std::unique_ptr<CDirectFile>> direct;
    std::vector<char> buffer(kBytes);
    for (const std::wstring& name : files.Names()) direct.push_back(std::make_unique<CDirectFile>(name, kBytes, 1));
    std::vector<int> descriptors;
    descriptors.reserve(direct.size());
    for (const auto& file : direct) descriptors.push_back(file->Descriptors().front());
    CompareDraws(
        report, "read 4 KiB, one of " + Grouped(count) + " open handles", count,
        [&](std::int64_t number) {
            if (::ZdvfsPread(descriptors[static_cast<std::size_t>(number)], buffer.data(), kBytes, 0) != kBytes) {
                throw std::runtime_error("a direct read moved too little");
            }
        },
        [&](std::int64_t number) { ReadThroughPlugin(connection.Manager(), files.At(number), 0, buffer.data()); });
}

void MeasureFragments(CReport& report, CBench& bench, std::int64_t count) {
    CBench::MakeFile(kFragmented, kBytes, count);
    {
        const auto connection = bench.Connect({.maxOpenFragments = static_cast<DWORD>(count) + 1});
        IProtocolManager& manager = connection->Manager();
        const Handle handle = connection->Open(kFragmented);
        const CDirectFile direct(kFragmented, kBytes, count);
        std::vector<char> buffer(kBytes);
        // The plug-in opens fragments when they are first used.
        for (std::int64_t n = 0; n < count; ++n) ReadThroughPlugin(manager, handle, n * kBytes, buffer.data());
        CompareDraws(
            report, "read 4 KiB, one of " + Grouped(count) + " open fragments", count,
            [&](std::int64_t number) { direct.Read(number * kBytes, kBytes, buffer.data()); },
            [&](std::int64_t number) { ReadThroughPlugin(manager, handle, number * kBytes, buffer.data()); });
        connection->Close(handle);
    }
    CBench::RemoveFile(kFragmented, count);
}

void MeasureOpening(CReport& report, const CConnection& connection, std::int64_t others) {
    const COpenFiles files(connection, others);
    const std::wstring name = std::wstring(kDirectory) + L"\\one.bin";
    const CDirectName directName(name);
    CBench::MakeFile(name, kBytes);
    report.Compare("open, close and release beside " + Grouped(others) + " open handles",
                   {{kDirect,
                     [&](std::int64_t count) {
                         for (std::int64_t i = 0; i < count; ++i) {
                             const int descriptor = OpenDirectly(directName, kZdvfsReadWrite, kZdAccessWrite);
                             CheckStorage(::ZdvfsClose(descriptor), "ZdvfsClose");
                         }
                     }},
                    {kPlugin, [&](std::int64_t count) {
                         for (std::int64_t i = 0; i < count; ++i) connection.Close(connection.Open(name));
                     }}});
    CBench::RemoveFile(name);
}

}  // namespace

void RunGrowth(CReport& report, CBench& bench) {
    if (report.Engine() == kLocalEngine) return;
    const bool quick = report.IsQuick();
    const auto used = quick ? std::span<const std::int64_t>(kUsedQuickly) : std::span<const std::int64_t>(kUsed);
    const auto beside = quick ? std::span<const std::int64_t>(kBesideQuickly) : std::span<const std::int64_t>(kBeside);
    CBench::MakeDirectory(kDirectory);
    {
        const CStillBytes still;
        for (const std::int64_t count : used) MeasureHandles(report, bench.Connection(), count);
        for (const std::int64_t count : used) MeasureFragments(report, bench, count);
    }
    for (const std::int64_t count : beside) MeasureOpening(report, bench.Connection(), count);
    CheckStorage(::ZdvfsUnlink(CBench::Path(kDirectory).c_str()), "ZdvfsUnlink");
}

}  // namespace zd::bench
