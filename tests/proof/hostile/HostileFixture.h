// Tests that hand the plug-in hostile input while its memory, and every buffer handed to it, is watched to the byte.
#pragma once

#include <string>
#include <vector>

#include "harness/GuardAllocator.h"
#include "harness/PluginFixture.h"
#include "HostileInput.h"
#include "ProofRun.h"

namespace zd::test {

// A name or other text with its terminator, a record, a buffer: nothing may be touched behind them.
class CGuardedName {
public:
    explicit CGuardedName(const std::wstring& text);
    operator const wchar_t*() const { return m_units.Data(); }

private:
    CGuardedArray<wchar_t> m_units;
};

class CGuardedBytes {
public:
    explicit CGuardedBytes(const std::string& bytes);
    void* Data() const { return m_bytes.Data(); }

private:
    CGuardedArray<char> m_bytes;
};

template <class T>
class CGuardedRecord {
public:
    CGuardedRecord() : m_record(1) {}
    T* operator&() const { return m_record.Data(); }
    T& operator*() const { return *m_record.Data(); }

private:
    CGuardedArray<T> m_record;
};

// The fixtures differ in the back end, Fixture: CDoubleTest or CLocalEngineTest.
template <class Fixture>
class CHostileTest : public Fixture, public ::testing::WithParamInterface<EGuard> {
protected:
    void SetUp() override {
        Fixture::SetUp();
        PrintCaseOnFault();
        CGuardAllocator::Start(GetParam());
        CGuardAllocator::Attach(this->Plugin());
        CGuardAllocator::AttachFrees(::GetModuleHandleW(nullptr));
        this->Registry().SetDword(kPluginKey, L"MaxFileSizeMB", 1);
        this->Registry().SetDword(kPluginKey, L"MaxOpenFragments", 2);
    }

    void TearDown() override {
        std::printf("guarded blocks: %llu, others: %llu\n", CGuardAllocator::Made(), CGuardAllocator::Unguarded());
        EXPECT_LT(0U, CGuardAllocator::Made());
        Fixture::TearDown();
    }

    // As Create, with every argument in a buffer of its own.
    Created GuardedCreate(const std::wstring& name, const CreateOptions& options) {
        const CGuardedName guarded(name);
        const CGuardedRecord<Handle> handle;
        const CGuardedRecord<DWORD> action;
        const CGuardedRecord<FileInformation> information;
        *handle = kUntouchedHandle;
        Created created;
        created.code =
            this->m_manager->ZdCreateFile(guarded, options.isDirectory, 1, options.attributes, 2, options.disposition,
                                          options.access, 3, options.descriptor, &handle, &action, &information);
        created.handle = *handle;
        created.information = *information;
        if (created.code == 0) ExpectTerminated(created.information.name);
        return created;
    }

    DWORD GuardedRead(Handle handle, std::int64_t offset, DWORD length, DWORD& count) {
        const CGuardedArray<char> buffer(length);
        const CGuardedRecord<DWORD> bytesRead;
        *bytesRead = kUntouched;
        const DWORD code = this->m_manager->ZdReadFile(handle, offset, length, buffer.Data(), &bytesRead);
        count = *bytesRead;
        return code;
    }

    DWORD GuardedWrite(Handle handle, std::int64_t offset, const std::string& data) {
        const CGuardedBytes buffer(data);
        const CGuardedRecord<DWORD> written;
        return this->m_manager->ZdWriteFile(handle, offset, static_cast<DWORD>(data.size()), buffer.Data(), &written);
    }

    // Lists a directory and looks through the block that comes back; answers how many entries there were.
    DWORD GuardedList(Handle handle) {
        const CGuardedRecord<DirectoryEntry*> entries;
        const CGuardedRecord<DWORD> count;
        *entries = nullptr;
        *count = 0;
        if (this->m_manager->ZdQueryDirContents(handle, &entries, &count) != 0) return 0;
        for (DWORD i = 0; i < *count; ++i) ExpectTerminated((*entries)[i].name);
        if (*entries != nullptr) ::HeapFree(::GetProcessHeap(), 0, *entries);
        return *count;
    }

    void GuardedQuery(Handle handle) {
        const CGuardedRecord<FileInformation> information;
        if (this->m_manager->ZdQueryFileInfo(handle, &information) == 0) ExpectTerminated((*information).name);
    }

    template <std::size_t kUnits>
    static void ExpectTerminated(const wchar_t (&name)[kUnits]) {
        EXPECT_GT(kUnits, ::wcsnlen(name, kUnits)) << "the name has no end";
    }

    // Every so many cases: another thread gets through with the handles and with new ones, and what the cases left in
    // the logs is dropped. The first handle answers with success.
    void Look(const std::vector<Handle>& handles);

private:
    std::uint64_t m_looks = 0;
};

using CHostileDoubleTest = CHostileTest<CDoubleTest>;
using CHostileLocalTest = CHostileTest<CLocalEngineTest>;

// The names of gtest's parameters.
std::string GuardName(const ::testing::TestParamInfo<EGuard>& info);
void PrintTo(EGuard guard, std::ostream* out);

}  // namespace zd::test

#define ZD_INSTANTIATE_GUARDS(Suite) \
    INSTANTIATE_TEST_SUITE_P(Guarded, Suite, ::testing::Values(EGuard::kEnd, EGuard::kBegin), GuardName)
