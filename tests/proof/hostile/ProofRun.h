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

#include "harness/Random.h"

namespace zd::test {

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
