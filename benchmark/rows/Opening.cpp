// Opening, creating, closing and releasing beside the calls that these steps take (DirectOpening.h). Each operation of
// a round has a file of its own; what a round opened is closed before the next one, outside of the time.
#include <windows.h>

#include <sddl.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "benchmark/rows/DirectOpening.h"
#include "benchmark/rows/Groups.h"
#include "benchmark/rows/LocalFiles.h"

namespace zd::bench {
namespace {

constexpr wchar_t kDirectory[] = L"\\opening";
constexpr char kLocality[] = "opening";
constexpr char kStoredDescriptor[] =
    "O:BAG:BAD:(A;;0x1f01ff;;;BA)(A;;0x1f01ff;;;SY)(A;;0x1301bf;;;AU)(A;;0x1200a9;;;WD)";
constexpr std::int64_t kFiles = 8;  // as many as make a turn of some milliseconds
constexpr std::int64_t kFilesOfFastEngine = 256;

// Files of a directory, and what is open of them.
class CFiles {
public:
    CFiles(const CConnection& connection, std::int64_t count) : m_connection(connection) {
        for (std::int64_t i = 0; i < count; ++i) {
            m_names.push_back(std::wstring(kDirectory) + L"\\file" + std::to_wstring(i) + L".bin");
            m_directNames.emplace_back(m_names.back());
        }
        m_handles.reserve(m_names.size());
        m_descriptors.reserve(m_names.size());
    }
    ~CFiles() { CloseAll(); }
    CFiles(const CFiles&) = delete;
    CFiles& operator=(const CFiles&) = delete;

    std::int64_t Count() const { return static_cast<std::int64_t>(m_names.size()); }

    void MakeAll(const char* descriptor) const {
        for (const std::wstring& name : m_names) {
            CBench::MakeFile(name, 1);
            if (descriptor == nullptr) continue;
            CheckStorage(::ZdvfsSetNTAclStr(CBench::Path(name).c_str(), descriptor), "ZdvfsSetNTAclStr");
        }
    }

    void RemoveAll() const {
        for (const CDirectName& name : m_directNames) ::ZdvfsUnlink(name.path.c_str());
    }

    void Open(const CConnection::COpen& open) {
        m_handles.push_back(m_connection.Open(m_names[m_handles.size()], open));
    }
    void OpenDirect(int flags, DWORD access) {
        m_descriptors.push_back(OpenDirectly(m_directNames[m_descriptors.size()], flags, access));
    }
    void CreateDirect(PSECURITY_DESCRIPTOR given) {
        m_descriptors.push_back(CreateDirectly(m_directNames[m_descriptors.size()], kLocality, given));
    }

    void CloseAll() {
        for (const Handle handle : m_handles) m_connection.Close(handle);
        for (const int descriptor : m_descriptors) ::ZdvfsClose(descriptor);
        m_handles.clear();
        m_descriptors.clear();
    }

    // Handles and descriptors are taken from the end.
    Handle TakeHandle() {
        const Handle handle = m_handles.back();
        m_handles.pop_back();
        return handle;
    }
    int TakeDescriptor() {
        const int descriptor = m_descriptors.back();
        m_descriptors.pop_back();
        return descriptor;
    }

private:
    const CConnection& m_connection;
    std::vector<std::wstring> m_names;
    std::vector<CDirectName> m_directNames;
    std::vector<Handle> m_handles;
    std::vector<int> m_descriptors;
};

// A contestant that does `once` so many times.
template <class Once>
CWork Times(Once once) {
    return [once](std::int64_t count) {
        for (std::int64_t i = 0; i < count; ++i) once();
    };
}

void MeasureOpening(CReport& report, CFiles& files, const char* row, const CConnection::COpen& open, int flags,
                    DWORD access) {
    report.Compare(row,
                   {{kDirect, Times([&files, flags, access] { files.OpenDirect(flags, access); })},
                    {kPlugin, Times([&files, open] { files.Open(open); })}},
                   {.count = files.Count(), .before = [&files] { files.CloseAll(); }});
}

void MeasureExisting(CReport& report, CFiles& files) {
    constexpr CConnection::COpen kToRead{.access = 0};
    constexpr CConnection::COpen kToWrite{};
    files.MakeAll(nullptr);
    MeasureOpening(report, files, "open to read, no stored descriptor", kToRead, kZdvfsReadAhead, MAXIMUM_ALLOWED);
    MeasureOpening(report, files, "open to write, no stored descriptor", kToWrite, kZdvfsReadWrite, kZdAccessWrite);
    files.CloseAll();
    files.MakeAll(kStoredDescriptor);
    MeasureOpening(report, files, "open to read, stored descriptor", kToRead, kZdvfsReadAhead, MAXIMUM_ALLOWED);
    MeasureOpening(report, files, "open to write, stored descriptor", kToWrite, kZdvfsReadWrite, kZdAccessWrite);
    files.CloseAll();
}

void MeasureClosing(CReport& report, const CConnection& connection, CFiles& files) {
    IProtocolManager& manager = connection.Manager();
    const auto openAll = [&files] {
        files.CloseAll();
        for (std::int64_t i = 0; i < files.Count(); ++i) {
            files.Open({});
            files.OpenDirect(kZdvfsReadWrite, kZdAccessWrite);
        }
    };
    const CRowOptions options{.count = files.Count(), .before = openAll};
    const CContestant direct{kDirect,
                             Times([&files] { CheckStorage(::ZdvfsClose(files.TakeDescriptor()), "ZdvfsClose"); })};
    report.Compare("close and release", {direct, {kPlugin, Times([&] { connection.Close(files.TakeHandle()); })}},
                   options);
    report.Compare(
        "release of an open handle",
        {direct, {kPlugin, Times([&] { Check(manager.ZdReleaseFile(files.TakeHandle()), "ZdReleaseFile"); })}},
        options);
    files.CloseAll();
}

void MeasureCreating(CReport& report, CFiles& files, const char* row, PSECURITY_DESCRIPTOR given) {
    const CConnection::COpen create{.disposition = kZdCreate, .descriptor = given};
    report.Compare(row,
                   {{kDirect, Times([&files, given] { files.CreateDirect(given); })},
                    {kPlugin, Times([&files, create] { files.Open(create); })}},
                   {.count = files.Count(), .before = [&files] {
                        files.CloseAll();
                        files.RemoveAll();
                    }});
    files.CloseAll();
    files.RemoveAll();
}

void MeasureDirectory(CReport& report, const CConnection& connection) {
    constexpr CConnection::COpen kOpen{.access = 0, .isDirectory = 1};
    const std::wstring name(kDirectory);
    const CDirectName direct(name);
    report.Compare("open, close and release a directory",
                   {{kDirect, Times([&] { OpenDirectoryDirectly(direct); })},
                    {kPlugin, Times([&] { connection.Close(connection.Open(name, kOpen)); })}});
}

}  // namespace

void RunOpening(CReport& report, CBench& bench) {
    const CConnection& connection = bench.Connection();
    CBench::MakeDirectory(kDirectory);
    MeasureDirectory(report, connection);
    {
        CFiles files(connection, report.IsQuick() ? 4 : report.Engine() == kLocalEngine ? kFiles : kFilesOfFastEngine);
        MeasureExisting(report, files);
        MeasureClosing(report, connection, files);
        files.RemoveAll();
        MeasureCreating(report, files, "create, default descriptor", nullptr);
        PSECURITY_DESCRIPTOR given = nullptr;
        if (::ConvertStringSecurityDescriptorToSecurityDescriptorA(kStoredDescriptor, SDDL_REVISION_1, &given,
                                                                   nullptr) == FALSE) {
            Check(::GetLastError(), "making a descriptor");
        }
        MeasureCreating(report, files, "create, given descriptor", given);
        ::LocalFree(given);
    }
    CheckStorage(::ZdvfsUnlink(CBench::Path(kDirectory).c_str()), "ZdvfsUnlink");
}

}  // namespace zd::bench
