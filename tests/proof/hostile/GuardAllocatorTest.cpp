// The guard allocator sees what it is there for. Each fault ends a child.
#include "HostileFixture.h"

namespace zd::test {

namespace {

constexpr std::size_t kBlock = 48;
constexpr DWORD kAccessViolation = 0xC0000005;

}  // namespace

class GuardAllocator : public CDoubleTest {
protected:
    // Runs `fault` on a block in a child and expects how it ends.
    void ExpectFault(EGuard guard, std::size_t size, DWORD code, void (*fault)(volatile char* block)) {
        if (!InChild()) {
            const ChildResult result = RunSelfInChild();
            EXPECT_EQ(code, result.exitCode) << result.output;
            EXPECT_NE(std::string::npos, result.output.find("a block at fault")) << result.output;
            return;
        }
        PrintCaseOnFault();
        Note("a block at fault");
        CGuardAllocator::Start(guard);
        fault(static_cast<char*>(CGuardAllocator::New(size, 16)));
    }
};

TEST_F(GuardAllocator, WriteBehindABlockFaults) {
    ExpectFault(EGuard::kEnd, kBlock, kAccessViolation, [](volatile char* block) { block[kBlock] = 1; });
}

TEST_F(GuardAllocator, ReadBehindABlockFaults) {
    ExpectFault(EGuard::kEnd, kBlock, kAccessViolation, [](volatile char* block) { static_cast<void>(block[kBlock]); });
}

TEST_F(GuardAllocator, ReadInFrontOfABlockFaults) {
    ExpectFault(EGuard::kBegin, kBlock, kAccessViolation, [](volatile char* block) { static_cast<void>(block[-1]); });
}

TEST_F(GuardAllocator, UseOfAFreedBlockFaults) {
    ExpectFault(EGuard::kEnd, kBlock, kAccessViolation, [](volatile char* block) {
        CGuardAllocator::Delete(const_cast<char*>(block));
        static_cast<void>(block[0]);
    });
}

TEST_F(GuardAllocator, WriteIntoTheGapBehindAnOddBlockIsFoundWhenItIsFreed) {
    ExpectFault(EGuard::kEnd, kBlock - 3, kGuardFault, [](volatile char* block) {
        block[kBlock - 3] = 1;
        CGuardAllocator::Delete(const_cast<char*>(block));
    });
}

TEST_F(GuardAllocator, WriteInFrontOfABlockIsFoundWhenItIsFreed) {
    ExpectFault(EGuard::kEnd, kBlock, kGuardFault, [](volatile char* block) {
        block[-1] = 1;
        CGuardAllocator::Delete(const_cast<char*>(block));
    });
}

TEST_F(GuardAllocator, SecondFreeIsFound) {
    ExpectFault(EGuard::kEnd, kBlock, kGuardFault, [](volatile char* block) {
        CGuardAllocator::Delete(const_cast<char*>(block));
        CGuardAllocator::Delete(const_cast<char*>(block));
    });
}

TEST_F(GuardAllocator, ServesThePluginAndItsHost) {
    CGuardAllocator::Start(EGuard::kEnd);
    CGuardAllocator::Attach(Plugin());
    CGuardAllocator::AttachFrees(::GetModuleHandleW(nullptr));
    ASSERT_EQ(0U, Connect());
    TakeLog();
    const std::uint64_t before = CGuardAllocator::InUse();
    const Created directory = Create(L"\\dir", {.isDirectory = 1});
    EXPECT_LT(before, CGuardAllocator::InUse());
    Double().MakeFile("pool/dir/a.txt");
    const Created again = Create(L"\\dir", {.isDirectory = 1});
    EXPECT_EQ(3U, List(again.handle).entries.size());  // with "." and ".."
    Close(directory.handle);
    Close(again.handle);
    TakeLog();
    EXPECT_EQ(before, CGuardAllocator::InUse());
    EXPECT_EQ(0U, CGuardAllocator::Unguarded());
}

}  // namespace zd::test
