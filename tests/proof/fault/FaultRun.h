// Runs each situation once for each of its calls with that call failing, and looks at everything afterwards.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>

#include "Balance.h"
#include "Expectation.h"
#include "Scene.h"

namespace zd::test {

// The results of an operation without fault, and of the same once more.
struct CUsual {
    DWORD first;
    DWORD second;
};

class CFaultTest : public CDoubleTest {
protected:
    void SetUp() override;
    void TearDown() override;

    // Each storage call of each situation with each fault. Prints how many cases there were.
    void RunStorageFaults(const CSituations& situations);
    // Each allocation of each situation failing alone, then all of them, on a thread that has never thrown: with the
    // log at its lowest level, where each is the operation's own, and with all lines on.
    void RunMemoryFaults(const CSituations& situations);

    CAllocationWatch& Memory() { return *m_memory; }

private:
    using CComplaints = std::map<std::string, std::set<std::string>>;

    void RunStorageSituation(const CSituation& situation);
    void RunStorageCase(const CSituation& situation, int number, const CFault& fault, const CExpectation& expectation,
                        const CUsual& usual, const std::string& call);
    std::uint64_t RunMemoryCase(const CSituation& situation, std::uint64_t number, const CUsual& usual);

    // Situation, operation by `act` with a fault in force, which answers the result, and all that must hold afterwards;
    // complaints go under `key`.
    // Whether the log has a line of exhausted memory.
    bool TellsMemory();
    void RunMemorySituation(const CSituation& situation, std::int32_t level);
    template <class Act>
    void RunCase(const CSituation& situation, const std::string& key, const std::string& detail, bool retryFails,
                 const CUsual& usual, Act act);
    CUsual Usual(const CSituation& situation, std::vector<Call>& calls);
    void Retry(const CSituation& situation, bool mayFail, DWORD wanted);
    void LookAtCounter();
    void LookAtStore(int badUses);
    void Complain(const std::string& text) { m_complaints[m_key + ": " + text].insert(m_detail); }
    void Report(const char* what);

    std::unique_ptr<CAllocationWatch> m_memory;
    std::unique_ptr<COtherThread> m_other;
    std::unique_ptr<CScene> m_scene;
    CComplaints m_complaints;
    std::string m_key;
    std::string m_detail;
    std::uint64_t m_calls = 0;
    std::uint64_t m_cases = 0;
};

}  // namespace zd::test
