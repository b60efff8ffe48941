// Throwing where malloc has nothing left. This program throws with the plug-in's own part of the runtime.
#include <cxxabi.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <set>
#include <typeinfo>

#include "harness/Child.h"
#include "harness/Environment.h"
#include "harness/ImportPatch.h"

namespace zd::test {
namespace {

constexpr std::size_t kReserved = 128;

std::atomic<DWORD> g_poorThread{0};
// This program's own calls of malloc go to the replacement, too.
decltype(&std::malloc) g_malloc = nullptr;

void* MallocOrNothing(std::size_t size) {
    return g_poorThread == ::GetCurrentThreadId() ? nullptr : g_malloc(size);
}

class CExceptionMemoryTest : public ::testing::Test {
protected:
    // This thread has no memory from here to the end of the block.
    struct CPoor {
        CPoor() { g_poorThread = ::GetCurrentThreadId(); }
        ~CPoor() { g_poorThread = 0; }
        CPoor(const CPoor&) = delete;
        CPoor& operator=(const CPoor&) = delete;
    };

private:
    void SetUp() override {
        const HMODULE program = ::GetModuleHandleW(nullptr);
        g_malloc = reinterpret_cast<decltype(g_malloc)>(ImportedAddress(program, "malloc"));
        m_malloc = std::make_unique<CImportPatch>(program, "malloc", &MallocOrNothing);
    }

    std::unique_ptr<CImportPatch> m_malloc;
};

// `depth` exceptions under way at once, each thrown while the one before is handled. Answers how many came back right.
std::size_t ThrowNested(std::size_t depth) {
    if (depth == 0) return 0;
    try {
        throw depth;
    } catch (std::size_t thrown) {
        const std::size_t inner = ThrowNested(depth - 1);
        return inner + (thrown == depth ? 1 : 0);
    }
}

TEST_F(CExceptionMemoryTest, AsManyAsAreReservedGoWithoutMemory) {
    // The second time shows that they were given back.
    for (int time = 0; time < 2; ++time) {
        std::size_t right = 0;
        {
            const CPoor poor;
            right = ThrowNested(kReserved);
        }
        EXPECT_EQ(kReserved, right);
    }
    EXPECT_EQ(kReserved + 50, ThrowNested(kReserved + 50));
}

TEST_F(CExceptionMemoryTest, ExceptionKeptElsewhereGoesWithoutMemory) {
    std::size_t right = 0;
    {
        const CPoor poor;
        try {
            throw 4711;
        } catch (...) {
            const std::exception_ptr kept = std::current_exception();
            for (int time = 0; time < 200; ++time) {
                try {
                    std::rethrow_exception(kept);
                } catch (int thrown) {
                    right += thrown == 4711 ? 1 : 0;
                }
            }
        }
        right += ThrowNested(kReserved);
    }
    EXPECT_EQ(200 + kReserved, right);
}

TEST_F(CExceptionMemoryTest, BlocksAreApartAndHoldTheHeader) {
    std::array<void*, kReserved> objects{};
    {
        const CPoor poor;
        for (void*& object : objects) object = abi::__cxa_allocate_exception(256);
    }
    std::uintptr_t end = 0;
    for (void* const object : std::set<void*>(objects.begin(), objects.end())) {
        const auto address = reinterpret_cast<std::uintptr_t>(object);
        EXPECT_EQ(0U, address % 16);
        // What the runtime writes in front of the object.
        auto* type = const_cast<std::type_info*>(&typeid(int));
        const auto header = reinterpret_cast<std::uintptr_t>(abi::__cxa_init_primary_exception(object, type, nullptr));
        EXPECT_LE(end, header);
        EXPECT_EQ(160U, address - header) << "another runtime would free another block";
        end = address + 256;
        abi::__cxa_free_exception(object);
    }
}

// The process ends in its terminate handler, and does not go on with something else.
TEST_F(CExceptionMemoryTest, MoreThanReservedWithoutMemoryEndsTheProcess) {
    if (InChild()) {
        std::set_terminate([] { ::ExitProcess(33); });
        const CPoor poor;
        ThrowNested(kReserved + 1);
        return;
    }
    const std::wstring folder = ProgramFolder() + L"reserve-" + std::to_wstring(::GetCurrentProcessId()) + L"\\";
    ASSERT_NE(FALSE, ::CreateDirectoryW(folder.c_str(), nullptr));
    const ChildResult result = RunTestInChild(folder);
    EXPECT_EQ(33U, result.exitCode) << result.output;
    ::DeleteFileW((folder + L"child-output.txt").c_str());
    EXPECT_NE(FALSE, ::RemoveDirectoryW(folder.c_str()));
}

}  // namespace
}  // namespace zd::test
