// The groups of rows; the table in main.cpp names them.
#pragma once

#include "benchmark/harness/Bench.h"
#include "benchmark/harness/Measure.h"

namespace zd::bench {

using CGroup = void (*)(CReport& report, CBench& bench);

void RunLifecycle(CReport& report, CBench& bench);
void RunListing(CReport& report, CBench& bench);
void RunLog(CReport& report, CBench& bench);
void RunTransfers(CReport& report, CBench& bench);
void RunOpening(CReport& report, CBench& bench);
void RunQueries(CReport& report, CBench& bench);
void RunGrowth(CReport& report, CBench& bench);
void RunFragments(CReport& report, CBench& bench);
void RunThreads(CReport& report, CBench& bench);

}  // namespace zd::bench
