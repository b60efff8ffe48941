// Threads that wait for work, so that starting them is not measured.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace zd::bench {

// One thread uses the object.
class CTeam {
public:
    // Does `count` operations as member `member` of the team, from 0. Throws std::runtime_error.
    using CPart = std::function<void(std::size_t member, std::int64_t count)>;

    explicit CTeam(std::size_t members);
    ~CTeam();
    CTeam(const CTeam&) = delete;
    CTeam& operator=(const CTeam&) = delete;

    // Lets every member do its share of `count` operations at the same time; at least one each. Throws what a member
    // threw, when all are done.
    void Run(const CPart& part, std::int64_t count);

private:
    void Serve(std::size_t member);

    const CPart* m_part = nullptr;  // null: the members end
    std::int64_t m_share = 0;
    std::atomic<std::size_t> m_working{0};
    std::string m_failure;  // of the first member that failed; guarded by m_failed
    std::atomic<bool> m_failed{false};
    std::vector<HANDLE> m_start;  // an event for each member
    HANDLE m_done;
    std::vector<std::thread> m_threads;
};

}  // namespace zd::bench
