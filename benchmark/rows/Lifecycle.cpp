// A connection's life beside a bare mount and unmount, and the memory that open handles and fragments take.
//
// The pool stays mounted by another connection meanwhile, so that neither side makes or tears down the pool itself.
// Most of a connection's own time is its settings, which it reads from the registry.
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmark/rows/Groups.h"
#include "benchmark/rows/LocalFiles.h"

namespace zd::bench {
namespace {

constexpr wchar_t kDirectory[] = L"\\memory";
constexpr char kConnectCalls[] = "calls of a connect";
constexpr std::int64_t kHandles = 10'000;
constexpr std::int64_t kFragments = 100'000;
constexpr std::int64_t kQuickly = 100;

// A block as a mount needs it. It stays at its address.
struct CMount {
    CMount() {
        block.five4212 = 5;
        block.one4220 = 1;
        block.poolName = name.data();
        CheckStorage(::ZdvfsMountV1("6.0.0.0", &block, sizeof block), "ZdvfsMountV1");
    }
    ~CMount() { ::ZdvfsUmount(block.poolName); }
    CMount(const CMount&) = delete;
    CMount& operator=(const CMount&) = delete;

    std::string name = CBench::Path(L"");
    ZdvfsMountBlock block{};
};

// What a connect asks of the storage once the pool is mounted, which has no directories here.
void MakeConnectCalls() {
    const std::string root = CBench::Path(L"");
    ZdvfsVolumeRecord volume{};
    CheckStorage(::ZdvfsStatvfs(root.c_str(), &volume), "ZdvfsStatvfs");
    ZdvfsDirectory* const directory = ::ZdvfsOpendir(root.c_str());
    if (directory == nullptr) throw std::runtime_error("ZdvfsOpendir failed");
    while (::ZdvfsReaddir(directory) != nullptr) {
    }
    ::ZdvfsClosedir(directory);
    const auto descriptor = static_cast<int>(CheckStorage(::ZdvfsOpen(root.c_str(), 0, 0), "ZdvfsOpen"));
    for (const int request : {kZdvfsIoctlSetCompression, kZdvfsIoctlSetEncryption}) {
        ::ZdvfsIoctl(descriptor, request, 0, 4);
    }
    CheckStorage(::ZdvfsClose(descriptor), "ZdvfsClose");
}

void MeasureConnections(CReport& report, CBench& bench) {
    const auto mount = [](std::int64_t count) {
        for (std::int64_t i = 0; i < count; ++i) const CMount mounted;
    };
    const auto mountAndCalls = [](std::int64_t count) {
        for (std::int64_t i = 0; i < count; ++i) {
            const CMount mounted;
            MakeConnectCalls();
        }
    };
    const auto connect = [&bench](std::int64_t count) {
        for (std::int64_t i = 0; i < count; ++i) const CConnection connection(bench.Entry(), bench.Logger());
    };
    report.Compare("get, connect, disconnect, release",
                   {{kDirect, mount}, {kConnectCalls, mountAndCalls}, {kPlugin, connect}});
}

// What all heaps of the process have given out, with what they need themselves for it.
std::int64_t HeapBytes() {
    std::vector<HANDLE> heaps(64);
    const DWORD count = ::GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    std::int64_t bytes = 0;
    for (DWORD i = 0; i < count && i < heaps.size(); ++i) {
        PROCESS_HEAP_ENTRY entry{};
        while (::HeapWalk(heaps[i], &entry) != FALSE) {
            if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += std::int64_t{entry.cbData} + entry.cbOverhead;
        }
    }
    return bytes;
}

// How much `work` adds to the heaps.
template <class Work>
std::int64_t Growth(Work&& work) {
    const std::int64_t before = HeapBytes();
    work();
    return HeapBytes() - before;
}

double Each(std::int64_t bytes, std::int64_t count) {
    return static_cast<double>(bytes) / static_cast<double>(count);
}

std::wstring FileName(std::int64_t number) {
    return kDirectory + (L"\\file-" + std::to_wstring(number));
}

// Makes files without bytes, which take no memory of their own but their names.
void MakeFiles(std::int64_t count) {
    for (std::int64_t n = 0; n < count; ++n) CBench::MakeFile(FileName(n), 0);
}

// The storage's own share is what the same number of its descriptors takes.
std::int64_t GrowthOfDescriptors(std::int64_t count, bool oneName) {
    std::vector<int> descriptors(static_cast<std::size_t>(count));
    const std::int64_t bytes = Growth([&] {
        for (std::int64_t n = 0; n < count; ++n) {
            const std::string path = CBench::Path(FileName(oneName ? 0 : n));
            descriptors[static_cast<std::size_t>(n)] =
                static_cast<int>(CheckStorage(::ZdvfsOpen(path.c_str(), kZdvfsReadWrite, 0), "ZdvfsOpen"));
        }
    });
    for (const int descriptor : descriptors) ::ZdvfsClose(descriptor);
    return bytes;
}

void MeasureHandles(CReport& report, CBench& bench, std::int64_t count, bool oneName) {
    const std::int64_t storage = GrowthOfDescriptors(count, oneName);
    std::vector<Handle> handles(static_cast<std::size_t>(count));
    const std::int64_t whole = Growth([&] {
        for (std::int64_t n = 0; n < count; ++n) {
            handles[static_cast<std::size_t>(n)] = bench.Connection().Open(FileName(oneName ? 0 : n));
        }
    });
    for (const Handle handle : handles) bench.Connection().Close(handle);
    const char* const row =
        oneName ? "memory of an open handle, one name" : "memory of an open handle, names of their own";
    report.Figure(row, kDirect, Each(storage, count), "bytes");
    report.Figure(row, kPlugin, Each(whole - storage, count), "bytes");
}

void MeasureFragments(CReport& report, CBench& bench, std::int64_t count) {
    const std::wstring name = FileName(0);
    for (std::int64_t n = 1; n <= count; ++n) {
        const std::string path = CBench::Path(name, n);
        const auto file =
            static_cast<int>(CheckStorage(::ZdvfsOpen(path.c_str(), kZdvfsReadWrite | kZdvfsCreate, 0), "ZdvfsOpen"));
        ::ZdvfsClose(file);
    }
    Handle handle = 0;
    const std::int64_t bytes = Growth([&] { handle = bench.Connection().Open(name); });
    bench.Connection().Close(handle);
    report.Figure("memory of a fragment", kPlugin, Each(bytes, count), "bytes");
    for (std::int64_t n = 1; n <= count; ++n) ::ZdvfsUnlink(CBench::Path(name, n).c_str());
}

}  // namespace

void RunLifecycle(CReport& report, CBench& bench) {
    MeasureConnections(report, bench);
    // What the storage keeps for itself would hide the rest where it is more than a few words.
    if (report.Engine() == kLocalEngine) return;
    const std::int64_t handles = report.IsQuick() ? kQuickly : kHandles;
    CBench::MakeDirectory(kDirectory);
    MakeFiles(handles);
    for (const bool oneName : {false, true}) MeasureHandles(report, bench, handles, oneName);
    MeasureFragments(report, bench, report.IsQuick() ? kQuickly : kFragments);
    for (std::int64_t n = 0; n < handles; ++n) CBench::RemoveFile(FileName(n));
    ::ZdvfsUnlink(CBench::Path(kDirectory).c_str());
}

}  // namespace zd::bench
