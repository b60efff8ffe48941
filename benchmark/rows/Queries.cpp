// Information of a handle, a path and the volume beside the storage's own queries.
#include "benchmark/rows/DirectFile.h"
#include "benchmark/rows/Groups.h"

namespace zd::bench {
namespace {

constexpr wchar_t kName[] = L"\\queries.bin";
constexpr std::int64_t kFragmentSize = 4096;
constexpr BYTE kVolumeSizes = 2;
constexpr BYTE kVolumeAll = 7;

void MeasureFile(CReport& report, const CConnection& connection, std::int64_t fragments, const std::string& what) {
    CBench::MakeFile(kName, kFragmentSize, fragments);
    IProtocolManager& manager = connection.Manager();
    const Handle handle = connection.Open(kName);
    const CDirectFile direct(kName, kFragmentSize, fragments);
    std::vector<std::string> paths;
    for (std::int64_t n = 0; n <= fragments; ++n) paths.push_back(CBench::Path(kName, n));
    report.Compare("handle" + what, {{kDirect,
                                      [&](std::int64_t count) {
                                          ZdvfsStatRecord record{};
                                          for (std::int64_t i = 0; i < count; ++i) {
                                              for (const int descriptor : direct.Descriptors()) {
                                                  CheckStorage(::ZdvfsFstat(descriptor, &record), "ZdvfsFstat");
                                              }
                                          }
                                      }},
                                     {kPlugin, [&](std::int64_t count) {
                                          FileInformation information{};
                                          for (std::int64_t i = 0; i < count; ++i) {
                                              Check(manager.ZdQueryFileInfo(handle, &information), "ZdQueryFileInfo");
                                          }
                                      }}});
    // The fragment that is missing ends the search.
    report.Compare("path" + what, {{kDirect,
                                    [&](std::int64_t count) {
                                        ZdvfsStatRecord record{};
                                        for (std::int64_t i = 0; i < count; ++i) {
                                            for (const std::string& path : paths) ::ZdvfsStat(path.c_str(), &record);
                                        }
                                    }},
                                   {kPlugin, [&](std::int64_t count) {
                                        FileInformation information{};
                                        for (std::int64_t i = 0; i < count; ++i) {
                                            Check(manager.ZdQueryPathInfo(kName, &information), "ZdQueryPathInfo");
                                        }
                                    }}});
    connection.Close(handle);
}

void MeasureVolume(CReport& report, IProtocolManager& manager) {
    const auto query = [&manager](BYTE request) {
        return [&manager, request](std::int64_t count) {
            VolumeInformation information{};
            for (std::int64_t i = 0; i < count; ++i) {
                Check(manager.ZdQueryVolumeInfo(request, &information), "ZdQueryVolumeInfo");
            }
        };
    };
    const std::string root = CBench::Path(L"");
    const auto direct = [&root](std::int64_t count) {
        ZdvfsVolumeRecord record{};
        for (std::int64_t i = 0; i < count; ++i) CheckStorage(::ZdvfsStatvfs(root.c_str(), &record), "ZdvfsStatvfs");
    };
    report.Compare("volume, sizes", {{kDirect, direct}, {kPlugin, query(kVolumeSizes)}});
    report.Compare("volume, everything", {{kDirect, direct}, {kPlugin, query(kVolumeAll)}});
}

}  // namespace

void RunQueries(CReport& report, CBench& bench) {
    for (const std::int64_t fragments : {std::int64_t{1}, std::int64_t{16}}) {
        MeasureFile(report, bench.Connection(), fragments,
                    fragments == 1 ? "" : ", " + std::to_string(fragments) + " fragments");
        CBench::RemoveFile(kName, fragments);
    }
    MeasureVolume(report, bench.Manager());
}

}  // namespace zd::bench
