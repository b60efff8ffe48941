// Each allocation of each operation failing once.
#include "FaultRun.h"

namespace zd::test {
namespace {

class CMemoryFaultTest : public CFaultTest {};

TEST_F(CMemoryFaultTest, Create) {
    RunMemoryFaults(CreateSituations());
}
TEST_F(CMemoryFaultTest, Directories) {
    RunMemoryFaults(CreateDirectorySituations());
}
TEST_F(CMemoryFaultTest, Transfer) {
    RunMemoryFaults(TransferSituations());
}
TEST_F(CMemoryFaultTest, Size) {
    RunMemoryFaults(SizeSituations());
}
TEST_F(CMemoryFaultTest, Close) {
    RunMemoryFaults(CloseSituations());
}
TEST_F(CMemoryFaultTest, Information) {
    RunMemoryFaults(InformationSituations());
}
TEST_F(CMemoryFaultTest, Rename) {
    RunMemoryFaults(RenameSituations());
}
TEST_F(CMemoryFaultTest, Change) {
    RunMemoryFaults(ChangeSituations());
}
TEST_F(CMemoryFaultTest, Control) {
    RunMemoryFaults(ControlSituations());
}
TEST_F(CMemoryFaultTest, Security) {
    RunMemoryFaults(SecuritySituations());
}
TEST_F(CMemoryFaultTest, Connection) {
    RunMemoryFaults(ConnectSituations());
}

TEST_F(CMemoryFaultTest, Log) {
    RunMemoryFaults(LogSituations());
}

// The export answers null or a whole object, and works the next time.
TEST_F(CMemoryFaultTest, GetProtocol) {
    int refused = 0;
    for (std::uint64_t number = 1;; ++number) {
        Environment().ForgetLog();
        const std::size_t before = Memory().Live();
        const DWORD handles = KernelHandles();
        void* context = this;
        IProtocolManager* manager = nullptr;
        std::uint64_t made = 0;
        // As in the matrix, on a thread that has never thrown.
        OnFreshThread("GetProtocol", [&] {
            Memory().Arm(number);
            manager = Environment().Entry()(&context, &Logger());
            made = Memory().Disarm();
        });
        if (manager != nullptr) manager->Release();
        refused += manager == nullptr ? 1 : 0;
        Environment().ForgetLog();
        EXPECT_EQ(before, Memory().Live()) << "allocation " << number << ", " << CAllocationWatch::Failed();
        EXPECT_EQ(handles, KernelHandles()) << "allocation " << number << ", " << CAllocationWatch::Failed();
        IProtocolManager* const next = Environment().Entry()(&context, &Logger());
        ASSERT_NE(nullptr, next);
        next->Release();
        if (made < number) break;
    }
    EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace zd::test
