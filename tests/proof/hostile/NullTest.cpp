// Null in place of each pointer of each operation, in every combination.
#include <cstdarg>

#include "HostileFixture.h"

namespace zd::test {

namespace {

// The pointers of one call; those with their bit set in the combination at hand are null.
class CNulls {
public:
    explicit CNulls(unsigned bits) : m_bits(bits) {}

    template <class T>
    T* operator()(T* pointer) {
        const bool isNull = ((m_bits >> m_count++) & 1U) != 0;
        return isNull ? nullptr : pointer;
    }

private:
    unsigned m_bits;
    unsigned m_count = 0;
};

struct Buffers {
    CGuardedName name{L"\\a.txt"};
    CGuardedRecord<Handle> handle;
    CGuardedRecord<DWORD> number;
    CGuardedRecord<FileInformation> information;
    CGuardedRecord<VolumeInformation> volume;
    CGuardedRecord<DirectoryEntry*> entries;
    CGuardedRecord<PSECURITY_DESCRIPTOR> descriptorOut;
    CGuardedRecord<ConnectParameters> parameters;
    CGuardedArray<char> data{16};
    CGuardedBytes descriptor{std::string("\x01\x00\x00\x80", 4) + std::string(16, '\0')};
};

struct Operation {
    const char* name;
    unsigned pointers;
    DWORD required;  // bits of those whose absence gives 87 or another refusal
    std::function<DWORD(IProtocolManager&, Handle, CNulls&, Buffers&)> call;
};

// The arguments of a call are not evaluated in order: where there are two pointers, the first is taken before it.
const std::vector<Operation>& Operations() {
    using M = IProtocolManager;
    static const std::vector<Operation> kOperations = {
        {"ZdCreateFile", 5, 0x5,
         [](M& m, Handle, CNulls& n, Buffers& b) {
             *b.handle = 0;
             const wchar_t* const name = n(static_cast<const wchar_t*>(b.name));
             void* const descriptor = n(b.descriptor.Data());
             Handle* const handle = n(&b.handle);
             DWORD* const action = n(&b.number);
             FileInformation* const information = n(&b.information);
             const DWORD code =
                 m.ZdCreateFile(name, 0, 0, 0x80, 0, kZdOpenIf, 3, 0, descriptor, handle, action, information);
             if (code == 0) m.ZdReleaseFile(*handle);
             return code;
         }},
        {"ZdCloseFile", 0, 0, [](M& m, Handle h, CNulls&, Buffers&) { return m.ZdCloseFile(h, 0); }},
        {"ZdQueryFileInfo", 1, 1,
         [](M& m, Handle h, CNulls& n, Buffers& b) { return m.ZdQueryFileInfo(h, n(&b.information)); }},
        {"ZdQueryPathInfo", 2, 0,
         [](M& m, Handle, CNulls& n, Buffers& b) {
             const wchar_t* const name = n(static_cast<const wchar_t*>(b.name));
             return m.ZdQueryPathInfo(name, n(&b.information));
         }},
        {"ZdSetFileSize", 0, 0, [](M& m, Handle h, CNulls&, Buffers&) { return m.ZdSetFileSize(h, 7); }},
        {"ZdSetFileBasicInfo", 0, 0,
         [](M& m, Handle h, CNulls&, Buffers&) { return m.ZdSetFileBasicInfo(h, 0, 0, 0, 0, 0); }},
        {"ZdDeleteFile", 1, 0, [](M& m, Handle, CNulls& n, Buffers& b) { return m.ZdDeleteFile(n(b.data.Data())); }},
        {"ZdRenameFile", 1, 1,
         [](M& m, Handle h, CNulls& n, Buffers& b) {
             return m.ZdRenameFile(h, n(static_cast<const wchar_t*>(b.name)), 1);
         }},
        {"ZdQueryDirContents", 2, 3,
         [](M& m, Handle h, CNulls& n, Buffers& b) {
             *b.entries = nullptr;
             DirectoryEntry** const entries = n(&b.entries);
             const DWORD code = m.ZdQueryDirContents(h, entries, n(&b.number));
             if (*b.entries != nullptr) ::HeapFree(::GetProcessHeap(), 0, *b.entries);
             return code;
         }},
        {"ZdReadFile", 2, 3,
         [](M& m, Handle h, CNulls& n, Buffers& b) {
             char* const data = n(b.data.Data());
             return m.ZdReadFile(h, 0, 16, data, n(&b.number));
         }},
        {"ZdWriteFile", 2, 3,
         [](M& m, Handle h, CNulls& n, Buffers& b) {
             const char* const data = n(b.data.Data());
             return m.ZdWriteFile(h, 0, 16, data, n(&b.number));
         }},
        {"ZdQueryVolumeInfo", 1, 1,
         [](M& m, Handle, CNulls& n, Buffers& b) { return m.ZdQueryVolumeInfo(7, n(&b.volume)); }},
        {"ZdSetVolumeLabel", 1, 0,
         [](M& m, Handle, CNulls& n, Buffers& b) {
             return m.ZdSetVolumeLabel(n(static_cast<const wchar_t*>(b.name)));
         }},
        {"ZdGetSecurity", 1, 1,
         [](M& m, Handle h, CNulls& n, Buffers& b) {
             const DWORD code = m.ZdGetSecurity(h, 0, n(&b.descriptorOut));
             if (code == 0) ::LocalFree(*b.descriptorOut);
             return code;
         }},
        {"ZdSetSecurity", 1, 1,
         [](M& m, Handle h, CNulls& n, Buffers& b) { return m.ZdSetSecurity(h, 0, n(b.descriptor.Data())); }},
        {"ZdEnumerateSpaList", 1, 1,
         [](M& m, Handle, CNulls& n, Buffers&) {
             std::set<std::wstring> names;
             return m.ZdEnumerateSpaList(n(&names));
         }},
        {"ZdControlPath", 1, 0,
         [](M& m, Handle, CNulls& n, Buffers& b) { return m.ZdControlPath(n(static_cast<const wchar_t*>(b.name))); }},
        {"ZdHandleIoctl", 0, 0, [](M& m, Handle h, CNulls&, Buffers&) { return m.ZdHandleIoctl(h, 9999, 0); }},
        {"ZdRefreshSettings", 0, 0,
         [](M& m, Handle, CNulls&, Buffers&) {
             m.ZdRefreshSettings(0, false);
             m.ZdRefreshSettings(0, true);
             return DWORD{0};
         }},
        {"ZdStub1 to ZdStub3", 0, 0,
         [](M& m, Handle, CNulls&, Buffers&) { return m.ZdStub1() + m.ZdStub2() + m.ZdStub3(); }},
        {"ZdLogMessage", 1, 0,
         [](M& m, Handle, CNulls& n, Buffers&) {
             m.ZdLogMessage(1, n("a line\n"));
             return DWORD{0};
         }},
        {"ZdAppendFile", 0, 0, [](M& m, Handle h, CNulls&, Buffers&) { return m.ZdAppendFile(h, h, 0, 0, 1); }},
        {"ZdGetRandomTag", 0, 0,
         [](M& m, Handle, CNulls&, Buffers&) { return static_cast<DWORD>(m.ZdGetRandomTag().size()); }},
        {"ZdPathIoctl", 0, 0, [](M& m, Handle, CNulls&, Buffers&) { return m.ZdPathIoctl(9999, 0); }},
        // Ends the handles, so it is the last one.
        {"ZdConnect", 1, 1, [](M& m, Handle, CNulls& n, Buffers& b) { return m.ZdConnect(n(&b.parameters)); }},
    };
    return kOperations;
}

}  // namespace

template <class Fixture>
class CNullTest : public CHostileTest<Fixture> {
protected:
    // Every combination on one object, with the handle that `open` makes.
    void CallAll(IProtocolManager& manager, const char* kind, const std::function<Handle()>& open) {
        const Handle handle = open();
        for (const Operation& operation : Operations()) {
            for (unsigned bits = 0; bits < 1U << operation.pointers; ++bits) {
                Note("%s, %s, combination %#x", operation.name, kind, bits);
                Buffers buffers;
                *buffers.parameters = this->Parameters(L"pool");
                CNulls nulls(bits);
                const DWORD code = operation.call(manager, handle, nulls, buffers);
                ++m_calls;
                if ((bits & operation.required) == 0 || handle == 0) continue;
                EXPECT_NE(0U, code) << operation.name << " of " << kind << ", combination " << bits;
            }
        }
    }

    void CallAllWithAllHandles() {
        ASSERT_EQ(0U, this->Connect());
        IProtocolManager& manager = *this->m_manager;
        ForEachCase("null pointers", 1, [&](CRandom&) {
            CallAll(manager, "a file", [this] { return this->Create(L"\\file").handle; });
            CallAll(manager, "a directory", [this] { return this->Create(L"\\dir", {.isDirectory = 1}).handle; });
            CallAll(manager, "a closed file", [&] {
                const Handle handle = this->Create(L"\\closed").handle;
                manager.ZdCloseFile(handle, 0);
                return handle;
            });
            CallAll(manager, "no handle", [] { return Handle{0}; });
            CallAll(manager, "an unknown handle", [] { return Handle{4711}; });
            CallAll(*this->NewManager(), "an object that is not connected", [] { return Handle{4711}; });
        });
        std::printf("%llu calls\n", m_calls);
    }

    std::uint64_t m_calls = 0;
};

class HostileNulls : public CNullTest<CDoubleTest> {};

TEST_P(HostileNulls, NeverHarmThePlugin) {
    void* context = nullptr;
    EXPECT_EQ(nullptr, Environment().Entry()(nullptr, &Logger()));
    EXPECT_EQ(nullptr, Environment().Entry()(nullptr, nullptr));
    IProtocolManager* const silent = Environment().Entry()(&context, nullptr);
    ASSERT_NE(nullptr, silent);
    CallAll(*silent, "an object without a logger", [] { return Handle{4711}; });
    silent->Release();
    CallAllWithAllHandles();
}

ZD_INSTANTIATE_GUARDS(HostileNulls);

class HostileNullsOnDisk : public CNullTest<CLocalEngineTest> {};

TEST_P(HostileNullsOnDisk, NeverHarmThePlugin) {
    CallAllWithAllHandles();
}

INSTANTIATE_TEST_SUITE_P(Guarded, HostileNullsOnDisk, ::testing::Values(EGuard::kEnd), GuardName);

}  // namespace zd::test
