// What has to come of an operation one of whose storage calls fails.
#pragma once

#include <windows.h>

#include <string>

namespace zd::test {

struct CFault {
    int error;        // errno that the call leaves
    DWORD lastError;  // the thread's last error that it leaves
};

enum class EEffect {
    kErrno,      // the call's errno, translated
    kLastError,  // the call's last error, or its errno, translated, where that is 0
    kNone,       // as if the call had worked
    kCode,       // always the row's code
    kMissing,    // errno 2 and 20 mean that the object is missing, which gives the row's code; others as kErrno
    kUnseen,     // the same, but a missing object changes nothing
    kStands,     // as kUnseen, but others give the row's code
};

struct CExpectation {
    EEffect effect;
    DWORD code;
    bool retryFails;  // the same operation need not succeed afterwards
};

// `number` counts the operation's calls from 1, `call` is the line of the call up to its result.
CExpectation Expected(const std::string& operation, const std::string& situation, std::size_t number,
                      const std::string& call);

// The result that the expectation means; `usual` is that of the operation without fault.
DWORD ExpectedCode(const CExpectation& expectation, const CFault& fault, DWORD usual);

// Whether the operation may give `code` where one of its own allocations fails. `usual` is its result without that.
bool MayGiveWithoutMemory(const std::string& operation, const std::string& situation, DWORD code, DWORD usual);

// Whether the operation then writes its line of exhausted memory. `failed` is the allocating function.
bool TellsOfMemory(const std::string& operation, const std::string& failed);

// The translation of errno, written down once more from the outside.
DWORD Translated(int error);

}  // namespace zd::test
