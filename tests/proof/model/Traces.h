// What proof programs keep and clear away on disk.
#pragma once

#include <windows.h>

#include <string>

namespace zd::test {

// Removes the folder and the registry key of a test process that was ended before it could do so.
void RemoveTracesOf(DWORD process);

// A number from the environment; `otherwise` where the variable is missing or no number.
std::int64_t NumberFromEnvironment(const wchar_t* variable, std::int64_t otherwise);
// ZD_PROOF_SEED, 1 by default: other seeds play other sequences.
std::int64_t ProofSeed();
// ZD_PROOF_BUDGET, 1 by default: so many times the usual amount of work.
std::int64_t ProofBudget();

// A script that is being played, in the folder that ZD_PROOF_SCRIPTS names, so that it is there if the process dies.
// Gone at the end unless it is kept; nothing where the variable is not set.
class CKeptScript {
public:
    CKeptScript(const std::string& title, const std::string& text);
    ~CKeptScript();
    CKeptScript(const CKeptScript&) = delete;
    CKeptScript& operator=(const CKeptScript&) = delete;
    void Keep() const { m_kept = true; }

private:
    std::wstring m_path;
    mutable bool m_kept = false;
};

}  // namespace zd::test
