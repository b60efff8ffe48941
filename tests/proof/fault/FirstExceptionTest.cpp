// The first exception of a thread, with no memory left for anything.
#include <array>
#include <memory>
#include <thread>

#include "Balance.h"
#include "harness/PluginFixture.h"

namespace zd::test {
namespace {

constexpr Handle kUnknown = 4711;
constexpr int kThreads = 64;

class CFirstExceptionTest : public CConnectedTest {
protected:
    // An operation that throws, without any memory. Answers its code; `made` are the allocations it tried.
    static DWORD ThrowWithoutMemory(CAllocationWatch& memory, IProtocolManager& manager, std::uint64_t& made) {
        char byte = 0;
        DWORD count = 0;
        ::SetLastError(0);
        memory.Arm(CAllocationWatch::kEach);
        const DWORD code = manager.ZdReadFile(kUnknown, 0, 1, &byte, &count);
        made = memory.Disarm();
        return code;
    }
};

TEST_F(CFirstExceptionTest, ManyThreadsAtOnceWithoutMemory) {
    CAllocationWatch memory(Plugin());
    // What the first round sets up for the process is not what threads leave behind.
    for (int round = 0; round < 10; ++round) {
        Environment().ForgetLog();
        const std::size_t blocks = memory.Live();
        const DWORD handles = KernelHandles();
        {
            CGate go;
            std::array<std::thread, kThreads> threads;
            std::array<DWORD, kThreads> codes{};
            std::array<std::uint64_t, kThreads> made{};
            for (std::size_t i = 0; i < threads.size(); ++i) {
                threads[i] = std::thread([&, i] {
                    go.Wait(INFINITE);
                    codes[i] = ThrowWithoutMemory(memory, *m_manager, made[i]);
                });
            }
            go.Set();
            for (std::thread& thread : threads) thread.join();
            for (std::size_t i = 0; i < threads.size(); ++i) {
                EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, codes[i]);
                EXPECT_GT(made[i], 0U) << "no exception was thrown";
            }
        }
        Environment().ForgetLog();
        EXPECT_EQ(blocks, memory.Live());
        if (round > 0) {
            EXPECT_EQ(handles, KernelHandles());
        }
    }
}

// What is not a code is answered with the last error that the failure has left.
TEST_F(CFirstExceptionTest, KeepsTheLastErrorOfTheThread) {
    Double().Add(OnCall("ZdvfsStat").Throws(EThrow::kRuntimeError).WithLastError(31));
    for (int round = 0; round < 3; ++round) {
        OnFreshThread("ZdCreateFile", [&] { EXPECT_EQ(31U, Create(L"\\a").code); });
    }
}

// A second copy of the library comes and goes, while threads that have thrown in it stay.
class CUnloadedLibrary {
public:
    explicit CUnloadedLibrary(const std::wstring& path)
        : m_module(::LoadLibraryW(path.c_str())), m_memory(std::make_unique<CAllocationWatch>(m_module)) {}
    ~CUnloadedLibrary() {
        m_memory.reset();
        ::FreeLibrary(m_module);
    }
    CUnloadedLibrary(const CUnloadedLibrary&) = delete;
    CUnloadedLibrary& operator=(const CUnloadedLibrary&) = delete;

    CAllocationWatch& Memory() { return *m_memory; }
    GetProtocolFunction Entry() const {
        return reinterpret_cast<GetProtocolFunction>(
            reinterpret_cast<void*>(::GetProcAddress(m_module, "GetProtocol")));
    }

private:
    HMODULE m_module;
    std::unique_ptr<CAllocationWatch> m_memory;
};

// Blocks in use on the heap of the process, which is everybody's.
std::size_t HeapBlocks() {
    std::size_t count = 0;
    PROCESS_HEAP_ENTRY entry{};
    ::HeapLock(::GetProcessHeap());
    while (::HeapWalk(::GetProcessHeap(), &entry) != FALSE) {
        if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) ++count;
    }
    ::HeapUnlock(::GetProcessHeap());
    return count;
}

TEST_F(CFirstExceptionTest, ThreadsOutliveTheLibrary) {
    const std::wstring path = Environment().Folder() + L"SecondPlugin.dll";
    ASSERT_NE(FALSE, ::CopyFileW((BinaryFolder() + L"ZdvfsProtocol.dll").c_str(), path.c_str(), FALSE));
    // These are older than each coming of the library.
    std::array<COtherThread, 4> threads;
    std::size_t before = 0;
    for (int round = 0; round < 20; ++round) {
        {
            CUnloadedLibrary library(path);
            void* context = this;
            // Without a logger there is no writer thread, which would keep the library loaded.
            IProtocolManager* const manager = library.Entry()(&context, nullptr);
            ASSERT_NE(nullptr, manager);
            for (COtherThread& thread : threads) {
                thread.Run("ZdReadFile", [&] {
                    std::uint64_t made = 0;
                    EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, ThrowWithoutMemory(library.Memory(), *manager, made));
                    EXPECT_GT(made, 0U) << "no exception was thrown";
                });
            }
            manager->Release();
        }
        ASSERT_EQ(nullptr, ::GetModuleHandleW(L"SecondPlugin.dll"));
        if (round == 5) before = HeapBlocks();
    }
    EXPECT_EQ(before, HeapBlocks());
}

}  // namespace
}  // namespace zd::test
