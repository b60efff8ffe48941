// Many cases made from a seed. What is at hand when the process faults is printed, with what brings it about again.
//
//   ForEachCase("names", 4000, [&](CRandom& random) {
//       const std::wstring name = AnyName(random);
//       Note("ZdQueryPathInfo %s", Shown(name).c_str());
//       ...
//   });
//
// Each case has a generator of its own, so that it comes out the same whether the cases before it ran or not:
//   ZD_PROOF_SEED=7 ZD_PROOF_FIRST=1234 ctest -R HostileNames ...
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "harness/RandomBits.h"

namespace zd::test {

// A small generator whose numbers are the same everywhere.
class CRandom {
public:
    explicit CRandom(std::uint64_t seed) : m_state(seed) {}

    std::uint64_t Next() { return NextBits(m_state); }
    std::uint64_t Below(std::uint64_t bound) { return Next() % bound; }
    std::size_t Index(std::size_t bound) { return Below(bound); }
    // True once in `n`.
    bool OneIn(std::uint64_t n) { return Below(n) == 0; }
    std::uint32_t Word() { return static_cast<std::uint32_t>(Next()); }
    std::string Bytes(std::size_t count) {
        std::string bytes(count, '\0');
        for (char& byte : bytes) byte = static_cast<char>(Next());
        return bytes;
    }
    template <class T>
    const T& Of(const std::vector<T>& values) {
        return values[Index(values.size())];
    }

private:
    std::uint64_t m_state;
};

// ZD_PROOF_SEED (default 1), and a count multiplied by ZD_PROOF_BUDGET (default 1), at least 1.
std::uint64_t ProofSeed();
std::uint64_t ProofBudget(std::uint64_t count);

// Runs `count` cases, scaled by the budget, and prints how many there were. Ends early once the test has failed; the
// case is printed then. ZD_PROOF_FIRST skips the cases before it.
void ForEachCase(const char* name, std::uint64_t count, const std::function<void(CRandom&)>& body);

// Adds a line to what is printed of the case at hand; a case begins without any. Any thread.
void Note(const char* format, ...) __attribute__((format(gnu_printf, 1, 2)));
// "case 12 of names, ZD_PROOF_SEED=1 ..." and the notes.
std::string CurrentCase();

// Prints what is wrong and the case at hand, and ends the process.
[[noreturn]] void EndWithCase(const char* what);

// Text of any units as hexadecimal numbers, a repeated one as "0061*400", cut after some hundred.
std::string Shown(const std::wstring& text);
std::string Shown(const std::string& bytes);

// From now on a fault of any thread prints the case at hand and what is known of the address, and ends the process; so
// does a case that lasts longer than a minute.
void PrintCaseOnFault();

}  // namespace zd::test
