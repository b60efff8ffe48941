// Throughput of several threads against one, and what the same threads reach that call the storage themselves: where
// the machine or the storage cannot do more, the direct calls show it. Times are of the whole team for an operation of
// any member, so that twice the throughput is half the time.
#include <memory>
#include <vector>

#include "benchmark/harness/Team.h"
#include "benchmark/rows/DirectFile.h"
#include "benchmark/rows/DirectOpening.h"
#include "benchmark/rows/Groups.h"
#include "tests/harness/RandomBits.h"

namespace zd::bench {
namespace {

constexpr std::size_t kTeams[] = {2, 4, 8, 16};
constexpr std::size_t kMostMembers = 16;
constexpr DWORD kBytes = 4096;
constexpr std::int64_t kFileBytes = 256 << 10;
constexpr std::size_t kPlaces = 64;
constexpr int kMilliseconds = 60;  // long enough that waking a team does not count

// What a member works with; members share nothing of this.
struct alignas(64) CMember {
    std::wstring name;
    std::unique_ptr<CDirectName> directName;
    std::unique_ptr<CDirectFile> direct;
    Handle handle = 0;
    std::vector<std::int64_t> places;
    std::size_t next = 0;
    std::vector<char> buffer;

    std::int64_t NextPlace() { return places[next++ % kPlaces]; }
};

class CMembers {
public:
    explicit CMembers(const CConnection& connection) : m_connection(connection), m_members(kMostMembers) {
        for (std::size_t i = 0; i < m_members.size(); ++i) Prepare(m_members[i], i);
    }
    ~CMembers() {
        for (CMember& member : m_members) {
            member.direct.reset();
            m_connection.Close(member.handle);
            CBench::RemoveFile(member.name);
        }
    }
    CMembers(const CMembers&) = delete;
    CMembers& operator=(const CMembers&) = delete;

    CMember& operator[](std::size_t index) { return m_members[index]; }

private:
    void Prepare(CMember& member, std::size_t index) const {
        member.name = L"\\thread" + std::to_wstring(index) + L".bin";
        CBench::MakeFile(member.name, kFileBytes);
        member.directName = std::make_unique<CDirectName>(member.name);
        member.direct = std::make_unique<CDirectFile>(member.name, kFileBytes, 1);
        member.handle = m_connection.Open(member.name);
        member.buffer.resize(kBytes);
        std::uint64_t state = index + 1;
        for (std::size_t i = 0; i < kPlaces; ++i) {
            member.places.push_back(static_cast<std::int64_t>(test::NextBits(state) % (kFileBytes / kBytes)) * kBytes);
        }
    }

    const CConnection& m_connection;
    std::vector<CMember> m_members;
};

// One kind of work, through the plug-in and directly.
struct CKind {
    std::string name;
    CTeam::CPart plugin;
    CTeam::CPart direct;
};

CTeam::CPart ReadsThroughPlugin(CMembers& members, IProtocolManager& manager, bool oneHandle) {
    return [&members, &manager, oneHandle](std::size_t index, std::int64_t count) {
        CMember& member = members[index];
        const Handle handle = members[oneHandle ? 0 : index].handle;
        DWORD moved = 0;
        for (std::int64_t i = 0; i < count; ++i) {
            Check(manager.ZdReadFile(handle, member.NextPlace(), kBytes, member.buffer.data(), &moved), "ZdReadFile");
        }
    };
}

CTeam::CPart ReadsDirectly(CMembers& members, bool oneHandle) {
    return [&members, oneHandle](std::size_t index, std::int64_t count) {
        CMember& member = members[index];
        const CDirectFile& file = *members[oneHandle ? 0 : index].direct;
        for (std::int64_t i = 0; i < count; ++i) file.Read(member.NextPlace(), kBytes, member.buffer.data());
    };
}

std::vector<CKind> Kinds(CMembers& members, const CConnection& connection) {
    IProtocolManager& manager = connection.Manager();
    return {
        {"reads, a handle each", ReadsThroughPlugin(members, manager, false), ReadsDirectly(members, false)},
        {"reads, one handle", ReadsThroughPlugin(members, manager, true), ReadsDirectly(members, true)},
        {"open and close, one table",
         [&](std::size_t index, std::int64_t count) {
             for (std::int64_t i = 0; i < count; ++i) connection.Close(connection.Open(members[index].name));
         },
         [&](std::size_t index, std::int64_t count) {
             for (std::int64_t i = 0; i < count; ++i) {
                 CheckStorage(::ZdvfsClose(OpenDirectly(*members[index].directName, kZdvfsReadWrite, kZdAccessWrite)),
                              "ZdvfsClose");
             }
         }},
    };
}

CWork AsTeam(CTeam& team, const CTeam::CPart& part) {
    return [&team, &part](std::int64_t count) { team.Run(part, count); };
}

}  // namespace

void RunThreads(CReport& report, CBench& bench) {
    CMembers members(bench.Connection());
    CTeam one(1);
    CTeam two(2);
    for (const CKind& kind : Kinds(members, bench.Connection())) {
        for (const std::size_t size : kTeams) {
            CTeam team(size);
            std::vector<CContestant> contestants = {{"direct, 1 thread", AsTeam(one, kind.direct)},
                                                    {kDirect, AsTeam(team, kind.direct)},
                                                    {"plugin, 1 thread", AsTeam(one, kind.plugin)},
                                                    {kPlugin, AsTeam(team, kind.plugin)}};
            if (size == kMostMembers) {
                contestants.push_back({"direct, 2 threads", AsTeam(two, kind.direct)});
                contestants.push_back({"plugin, 2 threads", AsTeam(two, kind.plugin)});
            }
            report.Compare(kind.name + ", " + std::to_string(size) + " threads", contestants,
                           {.milliseconds = kMilliseconds});
        }
    }
}

}  // namespace zd::bench
