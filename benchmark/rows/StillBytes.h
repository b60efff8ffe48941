// Transfers whose bytes stay where they are.
#pragma once

#include "benchmark/harness/Bench.h"
#include "benchmark/memory/Requests.h"

namespace zd::bench {

// As long as it lives the memory engine moves no bytes; other engines only remember the request.
class CStillBytes {
public:
    CStillBytes() { LetMove(false); }
    ~CStillBytes() { LetMove(true); }
    CStillBytes(const CStillBytes&) = delete;
    CStillBytes& operator=(const CStillBytes&) = delete;

private:
    static void LetMove(bool move) {
        const int root = ::ZdvfsOpen(CBench::Path(L"").c_str(), 0, 0);
        ::ZdvfsIoctl(root, memory::kMemoryIoctlMoveBytes, move ? 1 : 0, 4);
        ::ZdvfsClose(root);
    }
};

}  // namespace zd::bench
