#include "benchmark/harness/Team.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

namespace zd::bench {

CTeam::CTeam(std::size_t members) : m_done(::CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
    for (std::size_t i = 0; i < members; ++i) m_start.push_back(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
    for (std::size_t i = 0; i < members; ++i) m_threads.emplace_back([this, i] { Serve(i); });
}

CTeam::~CTeam() {
    m_part = nullptr;
    for (const HANDLE start : m_start) ::SetEvent(start);
    for (std::thread& thread : m_threads) thread.join();
    for (const HANDLE start : m_start) ::CloseHandle(start);
    ::CloseHandle(m_done);
}

void CTeam::Run(const CPart& part, std::int64_t count) {
    m_part = &part;
    m_share = std::max<std::int64_t>(1, count / static_cast<std::int64_t>(m_threads.size()));
    m_failed = false;
    m_working = m_threads.size();
    for (const HANDLE start : m_start) ::SetEvent(start);
    ::WaitForSingleObject(m_done, INFINITE);
    if (m_failed) throw std::runtime_error(m_failure);
}

void CTeam::Serve(std::size_t member) {
    for (;;) {
        ::WaitForSingleObject(m_start[member], INFINITE);
        if (m_part == nullptr) return;
        try {
            (*m_part)(member, m_share);
        } catch (const std::exception& error) {
            if (!m_failed.exchange(true)) m_failure = error.what();
        }
        if (m_working.fetch_sub(1) == 1) ::SetEvent(m_done);
    }
}

}  // namespace zd::bench
