#include "NamespaceFixture.h"

#include "harness/OtherThread.h"
#include "log/ClosurePatches.h"

namespace zd::test {

Handle CNamespaceTest::Open(const std::wstring& name, const CreateOptions& options) {
    m_firstDescriptor += 10;
    Double().SetNextDescriptor(m_firstDescriptor);
    const Created created = Create(name, options);
    EXPECT_EQ(0U, created.code) << Narrow(name);
    ClearLogs();
    return created.handle;
}

void CNamespaceTest::MakeFragments(const std::string& name, const std::vector<std::int64_t>& sizes) {
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const std::string suffix = i == 0 ? std::string() : ";F" + std::to_string(i);
        Double().MakeFile("pool/" + name + suffix, std::string(), sizes[i]);
    }
}

void CNamespaceTest::ConnectWithMaximum(DWORD openFragments) {
    Registry().SetDword(kPluginKey, L"MaxOpenFragments", openFragments);
    ASSERT_EQ(0U, Connect());
    ClearLogs();
}

bool CNamespaceTest::TakeModified() {
    // A refresh reads the system time for its lines, and once more to date a change.
    int reads = 0;
    CClosurePatches patches(Plugin());
    patches.Replace<void __stdcall(FILETIME*)>("GetSystemTimeAsFileTime", [&](auto original, FILETIME* time) {
        ++reads;
        original(time);
    });
    m_manager->ZdRefreshSettings(0, false);
    const int first = reads;
    m_manager->ZdRefreshSettings(0, false);
    return first > reads - first;
}

void CNamespaceTest::ExpectUsableElsewhere(Handle handle) {
    ExpectOtherThreadGetsThrough([&] { return m_manager->ZdSetFileBasicInfo(handle, 0, 0, 0, 0, 0); });
}

void CNamespaceTest::SetTimes(const std::string& path, std::int64_t creation, std::int64_t access,
                              std::int64_t modification) {
    NodeState state = Double().State(path);
    state.creationTime = creation;
    state.accessTime = access;
    state.modificationTime = modification;
    ASSERT_TRUE(Double().SetState(path, state));
}

}  // namespace zd::test
