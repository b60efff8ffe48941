// Reads and writes through the plug-in beside the calls that a perfect plug-in would make: one ZdvfsPread or
// ZdvfsPwrite for each fragment that a transfer touches, on descriptors that are open already.
//
// Within one fragment a transfer is one call. Across fragments every transfer begins in the middle of a fragment and
// ends in the middle of the next, so that it is two. All data stays in the system's cache.
//
// The memory engine moves no bytes here: what remains is the cost of the calls, which copying would hide.
#include <algorithm>
#include <stdexcept>
#include <vector>

#include "benchmark/rows/DirectFile.h"
#include "benchmark/rows/Groups.h"
#include "benchmark/rows/StillBytes.h"
#include "tests/harness/RandomBits.h"

namespace zd::bench {
namespace {

constexpr wchar_t kName[] = L"\\transfers.bin";
constexpr std::int64_t kSizes[] = {512, 4096, 65536, 1048576};
constexpr std::int64_t kFileBytes = 16 << 20;
constexpr std::int64_t kFragments = 64;  // all of them stay open
constexpr std::size_t kMostOffsets = 4096;
constexpr std::uint64_t kSeed = 5;

// The places of the transfers, one after another; the last is followed by the first.
class CPlaces {
public:
    CPlaces(std::int64_t start, std::int64_t step, std::int64_t count, bool random) {
        for (std::int64_t i = 0; i < count; ++i) m_offsets.push_back(start + i * step);
        if (!random) return;
        std::uint64_t state = kSeed;
        for (std::size_t i = m_offsets.size(); i > 1; --i)
            std::swap(m_offsets[i - 1], m_offsets[test::NextBits(state) % i]);
        if (m_offsets.size() > kMostOffsets) m_offsets.resize(kMostOffsets);
    }

    std::int64_t Next() {
        const std::int64_t offset = m_offsets[m_next];
        if (++m_next == m_offsets.size()) m_next = 0;
        return offset;
    }

private:
    std::vector<std::int64_t> m_offsets;
    std::size_t m_next = 0;
};

// The file itself.
struct CStoredFile {
    CStoredFile(const wchar_t* fileName, std::int64_t fragmentSize, std::int64_t fragmentCount)
        : name(fileName), fragments(fragmentCount) {
        CBench::MakeFile(name, fragmentSize, fragments);
    }
    ~CStoredFile() { CBench::RemoveFile(name, fragments); }
    CStoredFile(const CStoredFile&) = delete;
    CStoredFile& operator=(const CStoredFile&) = delete;

    const std::wstring name;
    const std::int64_t fragments;
};

// The same file, open through the plug-in and directly.
struct CSubject {
    CSubject(const CConnection& connectionOfPlugin, const CStoredFile& file, std::int64_t fragmentSize)
        : connection(connectionOfPlugin),
          handle(connection.Open(file.name)),
          direct(file.name, fragmentSize, file.fragments) {
        // The plug-in opens fragments when they are first used.
        char byte = 0;
        DWORD moved = 0;
        for (std::int64_t n = 0; n < file.fragments; ++n) {
            Check(connection.Manager().ZdReadFile(handle, n * fragmentSize, 1, &byte, &moved), "ZdReadFile");
        }
    }
    ~CSubject() { connection.Close(handle); }
    CSubject(const CSubject&) = delete;
    CSubject& operator=(const CSubject&) = delete;

    const CConnection& connection;
    const Handle handle;
    const CDirectFile direct;
};

CWork ThroughPlugin(const CSubject& subject, bool writes, DWORD size, CPlaces places, char* buffer) {
    IProtocolManager* const manager = &subject.connection.Manager();
    const Handle handle = subject.handle;
    if (writes) {
        return [=](std::int64_t count) mutable {
            DWORD moved = 0;
            for (std::int64_t i = 0; i < count; ++i) {
                Check(manager->ZdWriteFile(handle, places.Next(), size, buffer, &moved), "ZdWriteFile");
            }
        };
    }
    return [=](std::int64_t count) mutable {
        DWORD moved = 0;
        for (std::int64_t i = 0; i < count; ++i) {
            Check(manager->ZdReadFile(handle, places.Next(), size, buffer, &moved), "ZdReadFile");
            if (moved != size) throw std::runtime_error("ZdReadFile read too little");
        }
    };
}

CWork Directly(const CSubject& subject, bool writes, std::int64_t size, CPlaces places, char* buffer) {
    const CDirectFile* const file = &subject.direct;
    if (writes) {
        return [=](std::int64_t count) mutable {
            for (std::int64_t i = 0; i < count; ++i) file->Write(places.Next(), size, buffer);
        };
    }
    return [=](std::int64_t count) mutable {
        for (std::int64_t i = 0; i < count; ++i) file->Read(places.Next(), size, buffer);
    };
}

std::string SizeText(std::int64_t size) {
    if (size >= 1 << 20) return std::to_string(size >> 20) + " MiB";
    return size >= 1024 ? std::to_string(size >> 10) + " KiB" : std::to_string(size) + " B";
}

void Measure(CReport& report, const CConnection& connection, std::int64_t fragmentSize, std::int64_t size,
             bool across) {
    const CStoredFile file(kName, fragmentSize, across ? kFragments : 1);
    const CSubject subject(connection, file, fragmentSize);
    std::vector<char> buffer(static_cast<std::size_t>(size), 'b');
    const std::int64_t start = across ? size / 2 : 0;
    const std::int64_t count = across ? kFragments - 1 : kFileBytes / size;
    for (const bool writes : {false, true}) {
        for (const bool random : {false, true}) {
            const CPlaces places(start, size, count, random);
            report.Compare(std::string(writes ? "write " : "read ") + SizeText(size) +
                               (random ? ", random" : ", sequential") + (across ? ", across fragments" : ""),
                           {{kDirect, Directly(subject, writes, size, places, buffer.data())},
                            {kPlugin, ThroughPlugin(subject, writes, static_cast<DWORD>(size), places, buffer.data())}},
                           {.bytes = size});
        }
    }
}

}  // namespace

void RunTransfers(CReport& report, CBench& bench) {
    const CStillBytes still;
    for (const std::int64_t size : kSizes) Measure(report, bench.Connection(), kFileBytes, size, false);
    for (const std::int64_t size : kSizes) Measure(report, bench.Connection(), size, size, true);
}

}  // namespace zd::bench
