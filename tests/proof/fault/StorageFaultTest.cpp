// Each storage call of each operation failing once, in every distinct situation.
#include "FaultRun.h"

namespace zd::test {
namespace {

class CStorageFaultTest : public CFaultTest {};

TEST_F(CStorageFaultTest, Create) {
    RunStorageFaults(CreateSituations());
}
TEST_F(CStorageFaultTest, Directories) {
    RunStorageFaults(CreateDirectorySituations());
}
TEST_F(CStorageFaultTest, Transfer) {
    RunStorageFaults(TransferSituations());
}
TEST_F(CStorageFaultTest, Size) {
    RunStorageFaults(SizeSituations());
}
TEST_F(CStorageFaultTest, Close) {
    RunStorageFaults(CloseSituations());
}
TEST_F(CStorageFaultTest, Information) {
    RunStorageFaults(InformationSituations());
}
TEST_F(CStorageFaultTest, Rename) {
    RunStorageFaults(RenameSituations());
}
TEST_F(CStorageFaultTest, Change) {
    RunStorageFaults(ChangeSituations());
}
TEST_F(CStorageFaultTest, Control) {
    RunStorageFaults(ControlSituations());
}
TEST_F(CStorageFaultTest, Security) {
    RunStorageFaults(SecuritySituations());
}
TEST_F(CStorageFaultTest, Connection) {
    RunStorageFaults(ConnectSituations());
}

}  // namespace
}  // namespace zd::test
