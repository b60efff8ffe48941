#include "HostileFixture.h"

#include <cstring>
#include <ostream>
#include <thread>

namespace zd::test {

CGuardedName::CGuardedName(const std::wstring& text) : m_units(text.size() + 1) {
    std::memcpy(m_units.Data(), text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

CGuardedBytes::CGuardedBytes(const std::string& bytes) : m_bytes(bytes.size()) {
    std::memcpy(m_bytes.Data(), bytes.data(), bytes.size());
}

template <class Fixture>
void CHostileTest<Fixture>::Look(const std::vector<Handle>& handles) {
    constexpr std::uint64_t kEach = 25;
    if (++m_looks % kEach != 0) return;
    CGate through;
    std::thread other([&] {
        FileInformation information;
        for (const Handle handle : handles) this->m_manager->ZdQueryFileInfo(handle, &information);
        EXPECT_EQ(0U, this->m_manager->ZdQueryFileInfo(handles.front(), &information));
        const Created created = this->Create(L"\\look.txt");
        EXPECT_EQ(0U, created.code);
        this->m_manager->ZdReleaseFile(created.handle);
        this->m_manager->ZdLogMessage(1, "looking\n");
        through.Set();
    });
    if (!through.Wait(60000)) EndWithCase("a lock was left held by this case or one of the 24 before it");
    other.join();
    this->ClearLogs();
}

template void CHostileTest<CDoubleTest>::Look(const std::vector<Handle>&);
template void CHostileTest<CLocalEngineTest>::Look(const std::vector<Handle>&);

std::string GuardName(const ::testing::TestParamInfo<EGuard>& info) {
    return ::testing::PrintToString(info.param);
}

void PrintTo(EGuard guard, std::ostream* out) {
    *out << (guard == EGuard::kEnd ? "End" : "Begin");
}

}  // namespace zd::test
