// Runs the test at hand a second time in a process of its own, for tests after which the process is gone.
//
//   TEST_F(CConnectedTest, ReleaseOfAnUnknownHandleEndsTheProcess) {
//       if (InChild()) {
//           Environment().RunWriter();        the plug-in drains its log before it ends the process
//           m_manager->ZdReleaseFile(4711);
//           return;                                   not reached: a child that comes back exits with 0
//       }
//       EXPECT_EQ(1u, RunSelfInChild().exitCode);
//   }
//
// Parent and child run the fixture's SetUp both, each with a registry, a folder and storage of its own; with the local
// engine both have the same pools. The child may leave files for the parent in SharedFolder().
#pragma once

#include <cstdint>
#include <string>

namespace zd::test {

bool InChild();

// The parent's folder for the child, with "\" at the end. Empty in a process that is no child.
std::wstring SharedFolder();

struct ChildResult {
    std::uint32_t exitCode = 0;  // a child whose expectations fail exits with kChildFailed
    bool timedOut = false;       // it was ended
    std::string output;          // what it printed
};

// Not 1, which is what the plug-in ends the process with.
inline constexpr int kChildFailed = 77;

// `shared`: a folder of the parent, with "\" at the end; the fixtures' RunSelfInChild gives theirs.
ChildResult RunTestInChild(const std::wstring& shared, std::uint32_t milliseconds = 60000);

}  // namespace zd::test
