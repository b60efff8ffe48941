#include "FaultRun.h"

#include <cstdio>

#include "harness/TextCompare.h"

namespace zd::test {

namespace {

constexpr DWORD kMarkedLastError = 6000;  // plus errno: no system code, so that its source shows

std::vector<CFault> Faults() {
    std::vector<CFault> faults;
    for (const int error : {1, 2, 9, 12, 13, 16, 17, 20, 21, 22, 24, 28, 129, 77}) {
        faults.push_back({error, kMarkedLastError + static_cast<DWORD>(error)});
    }
    faults.push_back({28, 0});
    return faults;
}

// Calls that cannot fail.
bool IsVoid(const std::string& function) {
    return function == "_HulFree" || function == "InifileReleaseA";
}

// The call's line up to its result.
std::string Shown(const Call& call) {
    return call.function + "(" + call.arguments + ")";
}

}  // namespace

void CFaultTest::SetUp() {
    CDoubleTest::SetUp();
    Registry().SetDword(kPluginKey, L"MaxOpenFragments", 2);
    Double().MakeFile("pool/x");
    ASSERT_EQ(0U, Connect());
    m_memory = std::make_unique<CAllocationWatch>(Plugin());
    m_other = std::make_unique<COtherThread>();
    m_scene = std::make_unique<CScene>(Environment(), m_manager);
}

void CFaultTest::TearDown() {
    m_scene.reset();
    m_other.reset();
    CDoubleTest::TearDown();
    m_memory.reset();
}

CUsual CFaultTest::Usual(const CSituation& situation, std::vector<Call>& calls) {
    m_scene->Reset();
    situation.prepare(*m_scene);
    Double().ClearCalls();
    ::SetLastError(0);
    const COutcome first = situation.act(*m_scene);
    calls = Double().Calls();
    EXPECT_EQ("", first.broken + situation.check(*m_scene)) << situation.operation << ", " << situation.name;
    ::SetLastError(0);
    const DWORD second = situation.canRepeat ? situation.act(*m_scene).code : first.code;
    m_scene->End();
    return {first.code, second};
}

void CFaultTest::Retry(const CSituation& situation, bool mayFail, DWORD wanted) {
    COutcome again;
    m_other->Run(m_key, [&] {
        ::SetLastError(0);
        again = situation.act(*m_scene);
    });
    if (!mayFail && again.code != wanted) {
        Complain("the same then gives " + std::to_string(again.code) + " instead of " + std::to_string(wanted));
    }
    if (!again.broken.empty()) Complain("then: " + again.broken);
}

// The count of handles open for writing shows in the line of the next one.
void CFaultTest::LookAtCounter() {
    const std::int32_t level = Logger().level;
    Logger().level = 6;
    Double().MakeFile("pool/probe");
    Environment().ForgetLog();
    m_scene->Open(L"\\probe");
    bool isTold = false;
    for (const LogLine& line : TakeLog()) {
        const std::string word = "m_OpenDirectIOorWriteFiles: ";
        const std::size_t at = line.text.find(word);
        if (at == std::string::npos) continue;
        isTold = true;
        if (line.text.substr(at + word.size()) != "1\n") Complain("the count of writers is off: " + line.text);
    }
    if (!isTold) Complain("the count of writers is not told");
    m_scene->End();
    Logger().level = level;
}

void CFaultTest::LookAtStore(int badUses) {
    for (const OpenDescriptor& left : Double().OpenDescriptors()) Complain("a descriptor of " + left.path + " is open");
    for (const std::string& left : Double().OpenStreams()) Complain("a stream of " + left + " is open");
    if (Double().BadDescriptorUses() != badUses) Complain("a descriptor was used that is not open");
    if (Hul().LiveBlocks() != 0) Complain("a block of the converter is left");
}

template <class Act>
void CFaultTest::RunCase(const CSituation& situation, const std::string& key, const std::string& detail,
                         bool retryFails, const CUsual& usual, Act act) {
    m_key = key;
    m_detail = detail;
    ++m_cases;
    // What is set up once for the process shows as a difference the first time, what leaks shows each time.
    std::size_t blocks = 0;
    DWORD handles = 0;
    for (int round = 0; round < 3; ++round) {
        m_scene->Reset();
        Environment().ForgetLog();
        const std::size_t blocksBefore = m_memory->Live();
        const DWORD handlesBefore = KernelHandles();
        const int badUses = Double().BadDescriptorUses();
        situation.prepare(*m_scene);
        Double().ClearCalls();
        const DWORD code = act();
        Double().ClearRules();
        if (code == usual.first) {
            const std::string missing = situation.check(*m_scene);
            if (!missing.empty()) Complain(missing);
        }
        if (situation.canRepeat) Retry(situation, retryFails, code == usual.first ? usual.second : usual.first);
        m_scene->End();
        LookAtStore(badUses);
        LookAtCounter();
        blocks = m_memory->Live() - blocksBefore;
        handles = KernelHandles() - handlesBefore;
        if (blocks == 0 && handles == 0) return;
    }
    if (blocks != 0) Complain(std::to_string(static_cast<std::int64_t>(blocks)) + " heap blocks are left");
    if (handles != 0) Complain(std::to_string(static_cast<std::int32_t>(handles)) + " kernel handles are left");
}

void CFaultTest::RunStorageCase(const CSituation& situation, int number, const CFault& fault,
                                const CExpectation& expectation, const CUsual& usual, const std::string& call) {
    const std::string key =
        situation.operation + " [" + situation.name + "] call " + std::to_string(number) + " " + call;
    RunCase(situation, key, std::to_string(fault.error) + "/" + std::to_string(fault.lastError), expectation.retryFails,
            usual, [&] {
                Double().Add(OnCall("*").OnNth(number).Fails(fault.error, fault.lastError));
                ::SetLastError(0);
                const COutcome outcome = situation.act(*m_scene);
                const DWORD wanted = ExpectedCode(expectation, fault, usual.first);
                if (outcome.code != wanted) {
                    const bool isLast = fault.lastError != 0 && outcome.code == fault.lastError;
                    const bool isError = outcome.code == Translated(fault.error);
                    Complain(std::string("gives ") + (isLast                        ? "the last error"
                                                      : isError                     ? "the errno"
                                                      : outcome.code == usual.first ? "the usual result"
                                                                                    : std::to_string(outcome.code)));
                }
                if (!outcome.broken.empty()) Complain(outcome.broken);
                return outcome.code;
            });
}

void CFaultTest::RunStorageSituation(const CSituation& situation) {
    std::vector<Call> calls;
    const CUsual usual = Usual(situation, calls);
    for (std::size_t i = 0; i < calls.size(); ++i) {
        if (IsVoid(calls[i].function)) continue;
        ++m_calls;
        const std::string call = Shown(calls[i]);
        const CExpectation expectation = Expected(situation.operation, situation.name, i + 1, call);
        for (const CFault& fault : Faults()) {
            RunStorageCase(situation, static_cast<int>(i) + 1, fault, expectation, usual, call);
        }
    }
}

void CFaultTest::RunStorageFaults(const CSituations& situations) {
    for (const CSituation& situation : situations) RunStorageSituation(situation);
    std::printf("%zu situations, %llu storage calls, %llu cases\n", situations.size(), m_calls, m_cases);
    Report("failing storage calls");
}

bool CFaultTest::TellsMemory() {
    for (const LogLine& line : TakeLog()) {
        const bool isLine = Fits("*Not Enough Memory*", line.text) || Fits("*Not enough memory*", line.text);
        if (line.level == 1 && isLine) return true;
    }
    return false;
}

std::uint64_t CFaultTest::RunMemoryCase(const CSituation& situation, std::uint64_t number, const CUsual& usual) {
    std::uint64_t made = 0;
    const bool isEach = number == CAllocationWatch::kEach;
    const std::string detail = isEach ? "each" : std::to_string(number);
    RunCase(situation, situation.operation + " [" + situation.name + "]", detail, false, usual, [&] {
        COutcome outcome;
        // A thread that has never thrown needs the most.
        OnFreshThread(m_key, [&] {
            ::SetLastError(0);
            m_memory->Arm(number);
            outcome = situation.act(*m_scene);
            made = m_memory->Disarm();
        });
        if (CAllocationWatch::Failed().empty()) return outcome.code;
        if (!outcome.broken.empty()) Complain(CAllocationWatch::Failed() + ": " + outcome.broken);
        // A line needs memory, too.
        const bool shouldTell = !isEach && outcome.code == ERROR_NOT_ENOUGH_MEMORY && Logger().level == 1 &&
                                TellsOfMemory(situation.operation, CAllocationWatch::Failed());
        if (shouldTell && !TellsMemory()) {
            Complain(CAllocationWatch::Failed() + ": no line tells of it");
        }
        // With all lines on it may have been a line, which is no failure.
        if (outcome.code == usual.first && Logger().level > 1) return outcome.code;
        if (MayGiveWithoutMemory(situation.operation, situation.name, outcome.code, usual.first)) return outcome.code;
        Complain(CAllocationWatch::Failed() + " gives " +
                 (outcome.code == usual.first ? std::string("the usual result") : std::to_string(outcome.code)));
        return outcome.code;
    });
    return made;
}

void CFaultTest::RunMemorySituation(const CSituation& situation, std::int32_t level) {
    Logger().level = level;
    std::vector<Call> calls;
    const CUsual usual = Usual(situation, calls);
    for (std::uint64_t number = 1; RunMemoryCase(situation, number, usual) >= number; ++number) {
    }
    RunMemoryCase(situation, CAllocationWatch::kEach, usual);
}

void CFaultTest::RunMemoryFaults(const CSituations& situations) {
    for (const std::int32_t level : {1, 6}) {
        for (const CSituation& situation : situations) RunMemorySituation(situation, level);
    }
    std::printf("%zu situations, %llu cases of a failing allocation\n", situations.size(), m_cases);
    Report("failing allocations");
}

void CFaultTest::Report(const char* what) {
    for (const auto& [text, details] : m_complaints) {
        std::string list;
        for (const std::string& detail : details) list += " " + detail;
        ADD_FAILURE() << what << ": " << text << "  {" << list << " }";
    }
}

}  // namespace zd::test
