// Input that no sane host sends.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ProofRun.h"

namespace zd::test {

// Names of any 16-bit units but the terminator, up to beyond 32,767 of them: lone surrogates, every separator,
// controls, names of fragment shape, dots, drives and devices, very deep ones, and mixtures that hit what stands in the
// store.
std::wstring AnyName(CRandom& random);

// A 64-bit number: any, small, around powers of two and around the borders of fragments of `unit` bytes, negative.
std::int64_t AnyNumber(CRandom& random, std::int64_t unit);

// A self-relative descriptor: valid, and one with bytes changed, cut off or made up. The block that holds it has at
// least the size of a descriptor's head.
std::string ValidDescriptor(CRandom& random);
std::string AnyDescriptor(CRandom& random);
// Whether owner, group and lists lie in the block as far as their heads say.
bool LiesInItsBlock(const std::string& descriptor);
// Descriptors as text, valid, damaged and made up; no zero bytes.
std::string AnySddl(CRandom& random);

// The value of a list of segment sizes, near its syntax.
std::string AnySegmentList(CRandom& random);
// An ini file's bytes, with the agent's keys among them.
std::string AnyIniFile(CRandom& random);

struct AnyValue {
    DWORD type;
    std::vector<std::uint8_t> data;
};
AnyValue AnyRegistryValue(CRandom& random);

}  // namespace zd::test
