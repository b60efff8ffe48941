// Everything at once from 16 threads over two connections, and afterwards nothing is lost, left over or said twice.
#include <algorithm>
#include <memory>

#include "FileWork.h"
#include "harness/PluginFixture.h"

namespace zd::test {

namespace {

constexpr std::uint64_t kDoubleRounds = 400;
constexpr std::uint64_t kLocalRounds = 80;
// A log of more rounds would not fit into memory: longer runs take further seeds.
constexpr std::uint64_t kMostRounds = 4000;
constexpr std::size_t kConnections = 2;

// A connection with two handles on a file of its own, and one on a file of both.
struct Connection {
    IProtocolManager* manager = nullptr;
    std::array<Handle, 2> handles{};
    CSharedFile file;
    Handle both = 0;
};

// Counts the lines of each worker and of each operation, and looks that no worker's line is missing, doubled or out of
// its order.
class CLineCheck {
public:
    void Take(const std::string& text) {
        int worker = 0;
        unsigned long long number = 0;
        if (std::sscanf(text.c_str(), "worker %d says %llu", &worker, &number) == 2) {
            EXPECT_EQ(m_said.at(static_cast<std::size_t>(worker))++, number) << "of worker " << worker;
            return;
        }
        for (std::size_t i = 0; i + 1 < kOperations; ++i) {
            const std::string name = NameOf(static_cast<EOperation>(i));
            if (text.starts_with(name + " Enter")) ++m_entered[i];
        }
    }
    std::uint64_t Said(int worker) const { return m_said[static_cast<std::size_t>(worker)]; }
    std::uint64_t Entered(EOperation operation) const { return m_entered[static_cast<std::size_t>(operation)]; }

private:
    std::array<std::uint64_t, kWorkers> m_said{};
    std::array<std::uint64_t, kOperations> m_entered{};
};

}  // namespace

template <class Fixture>
class CMixTest : public Fixture, public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override {
        Fixture::SetUp();
        PrintCaseOnFault();
        this->Registry().SetDword(kPluginKey, L"MaxFileSizeMB", 1);
        this->Registry().SetDword(kPluginKey, L"MaxOpenFragments", 2);
        for (int worker = 0; worker < kWorkers; ++worker) m_own.emplace_back(worker);
        m_visitor = this->NewManager();
    }

    CWorker& Worker(int worker) { return *m_workers[static_cast<std::size_t>(worker)]; }
    Connection& ConnectionOf(int worker) { return m_connections[static_cast<std::size_t>(worker) % kConnections]; }

    void OpenAll() {
        const ConnectParameters parameters = this->Parameters(L"pool");
        for (Connection& connection : m_connections) {
            connection.manager = this->NewManager();
            ASSERT_EQ(0U, connection.manager->ZdConnect(&parameters));
        }
        for (int worker = 0; worker < kWorkers; ++worker) {
            m_workers.push_back(std::make_unique<CWorker>(m_progress, *ConnectionOf(worker).manager, worker));
        }
        Handle directory = 0;
        ASSERT_EQ(0U, Worker(0).Create(L"\\dir", directory, true));
        ASSERT_EQ(0U, Worker(0).Release(directory));
        for (int first = 0; first < static_cast<int>(kConnections); ++first) OpenShared(first);
    }

    // The files have their whole size before a second handle learns it.
    void OpenShared(int worker) {
        constexpr std::int64_t kSize = CSharedFile::kBlock * CSharedFile::kBlocks;
        Connection& connection = ConnectionOf(worker);
        const std::wstring name = L"\\shared" + std::to_wstring(worker);
        ASSERT_EQ(0U, Worker(worker).Create(name, connection.handles[0]));
        ASSERT_EQ(0U, Worker(worker).SetSize(connection.handles[0], kSize));
        ASSERT_EQ(0U, Worker(worker).Create(name, connection.handles[1]));
        ASSERT_EQ(0U, Worker(worker).Create(L"\\both", connection.both));
        ASSERT_EQ(0U, Worker(worker).SetSize(connection.both, kSize));
    }

    void ListDirectory(CWorker& worker) {
        Handle directory = 0;
        EXPECT_EQ(0U, worker.Create(L"\\dir", directory, true, kZdOpen));
        std::vector<std::wstring> names;
        EXPECT_EQ(0U, worker.List(directory, names));
        std::sort(names.begin(), names.end());
        EXPECT_TRUE(std::adjacent_find(names.begin(), names.end()) == names.end()) << "a name twice";
        EXPECT_EQ(0U, worker.Release(directory));
    }

    // A connection of its own, which disconnects with a handle open.
    void Visit() {
        const ConnectParameters parameters = this->Parameters(L"pool");
        EXPECT_EQ(0U, m_visitor->ZdConnect(&parameters));
        EXPECT_EQ(0U, this->Create(L"\\dir\\visited", {}, m_visitor).code);
        EXPECT_EQ(0U, m_visitor->ZdDisconnect());
    }

    void Suppress(bool on) { std::atomic_ref<bool>(this->Logger().suppressor.enabled).store(on); }

    // What only one of the threads does.
    void WorkAlone(int number, std::uint64_t round) {
        if (number == 0) {
            Worker(number).Refresh(static_cast<DWORD>(round), round % 3 == 0);
            // A refresh at this level switches it off.
            Suppress(GetParam());
            Tidy();
        }
        if (number == kWorkers - 1 && round % 10 == 0) Visit();
        if ((number == 2 || number == 3) && round % 4 == 0) {
            const std::wstring name = L"\\moved" + std::to_wstring(number) + L"_" + std::to_wstring(round);
            EXPECT_EQ(0U, Worker(number).Rename(ConnectionOf(number).handles[0], name));
        }
    }

    void Work(int number, std::uint64_t rounds) {
        CWorker& worker = Worker(number);
        Connection& connection = ConnectionOf(number);
        COwnFile& own = m_own[static_cast<std::size_t>(number)];
        own.Open(worker);
        for (std::uint64_t round = 0; round < rounds && !this->HasFailure(); ++round) {
            worker.Say(round);
            const Handle shared = connection.handles[worker.m_random.Number(2)];
            connection.file.Work(worker, shared);
            m_both.Work(worker, connection.both);
            for (int i = 0; i < 3; ++i) own.Work(worker);
            if (round % 5 == 0) ListDirectory(worker);
            if (round % 7 == 0) {
                EXPECT_EQ(0U, worker.Close(worker.m_random.OneIn(2) ? shared : connection.both));
            }
            WorkAlone(number, round);
        }
        own.Release(worker);
    }

    // The back end's own memory of what happened is not what is looked at.
    virtual void Tidy() {}

    void Run(std::uint64_t rounds) {
        m_rounds = std::min(ProofBudget(rounds), kMostRounds);
        ASSERT_NO_FATAL_FAILURE(OpenAll());
        m_progress.ForgetCalls();
        this->ForgetAll();
        Suppress(GetParam());
        RunWorkers(m_progress, [this](int worker) { Work(worker, m_rounds); });
        Suppress(false);
        std::printf("%d threads, %llu operations\n", kWorkers, m_progress.Steps());
    }

    virtual void ForgetAll() = 0;
    virtual std::vector<std::string> Texts() = 0;

    // Every line is there once. Folded lines of operations are fewer; what the workers said differs each time.
    void CheckLines() {
        CLineCheck lines;
        for (const std::string& text : Texts()) lines.Take(text);
        for (int worker = 0; worker < kWorkers; ++worker) EXPECT_EQ(m_rounds, lines.Said(worker)) << worker;
        for (std::size_t i = 0; i + 1 < kOperations; ++i) {
            const auto operation = static_cast<EOperation>(i);
            const std::uint64_t made = m_progress.Calls(operation);
            if (GetParam()) {
                EXPECT_GE(made, lines.Entered(operation)) << NameOf(operation);
            } else {
                EXPECT_EQ(made, lines.Entered(operation)) << NameOf(operation);
            }
        }
    }

    void CheckBytesAndRelease() {
        for (int number = 0; number < static_cast<int>(kConnections); ++number) {
            Connection& connection = ConnectionOf(number);
            for (const Handle handle : connection.handles) connection.file.Verify(Worker(number), handle);
            m_both.Verify(Worker(number), connection.both);
            for (const Handle handle : {connection.handles[0], connection.handles[1], connection.both}) {
                EXPECT_EQ(0U, Worker(number).Release(handle));
                EXPECT_EQ(DWORD{ERROR_INVALID_HANDLE}, Worker(number).Close(handle));
            }
        }
        for (int worker = 0; worker < kWorkers; ++worker)
            m_own[static_cast<std::size_t>(worker)].Verify(Worker(worker));
    }

    // An empty table has nothing to close at a disconnect, and the next writer is the only one.
    void CheckTables() {
        this->ForgetAll();
        Handle writer = 0;
        EXPECT_EQ(0U, Worker(0).Create(L"\\last", writer));
        EXPECT_EQ(0U, Worker(0).Release(writer));
        ExpectText("m_OpenDirectIOorWriteFiles: 1\n", true);
        ExpectText("m_OpenDirectIOorWriteFiles: 0\n", true);
        this->ForgetAll();
        for (Connection& connection : m_connections) EXPECT_EQ(0U, connection.manager->ZdDisconnect());
        ExpectText("CloseFileHandle", false);
    }

    void ExpectText(const std::string& part, bool isThere) {
        bool found = false;
        std::string all;
        for (const std::string& text : Texts()) {
            found = found || text.find(part) != std::string::npos;
            all += text;
        }
        EXPECT_EQ(isThere, found) << part << " in\n" << all;
    }

    CProgress m_progress;
    std::array<Connection, kConnections> m_connections;
    std::vector<std::unique_ptr<CWorker>> m_workers;
    std::vector<COwnFile> m_own;
    CSharedFile m_both;
    IProtocolManager* m_visitor = nullptr;
    std::uint64_t m_rounds = 0;
};

class ThreadsOverTheDouble : public CMixTest<CDoubleTest> {
protected:
    void ForgetAll() override {
        TakeLog();
        m_texts.clear();
        Double().ClearCalls();
    }
    std::vector<std::string> Texts() override {
        for (const LogLine& line : TakeLog()) m_texts.push_back(line.text);
        return m_texts;
    }
    void Tidy() override { Double().ClearCalls(); }

private:
    std::vector<std::string> m_texts;
};

TEST_P(ThreadsOverTheDouble, LoseAndLeaveNothing) {
    Run(kDoubleRounds);
    CheckLines();
    CheckBytesAndRelease();
    EXPECT_TRUE(Double().OpenDescriptors().empty());
    EXPECT_TRUE(Double().OpenStreams().empty());
    CheckTables();
}

class ThreadsOnDisk : public CMixTest<CLocalEngineTest> {
protected:
    void ForgetAll() override {
        Environment().RunWriter();
        m_forgotten = WholeLog().size();
    }

    // The lines of the file without their first columns, since the last ForgetAll. Some texts of a connection have no
    // line end, so that the next one stands behind them on their line.
    std::vector<std::string> Texts() override {
        constexpr char kBehindColumns[] = ") - ";
        const std::string whole = WholeLog();
        std::vector<std::string> texts;
        for (std::size_t at = whole.find(kBehindColumns, m_forgotten); at != std::string::npos;
             at = whole.find(kBehindColumns, at)) {
            at += 4;
            const std::size_t end = whole.find('\n', at);
            texts.push_back(whole.substr(at, end == std::string::npos ? end : end + 1 - at));
        }
        return texts;
    }

    // Whether no file of the pool is open any more: each can be had for oneself.
    void ExpectAllClosed(const std::wstring& folder) {
        WIN32_FIND_DATAW entry;
        const HANDLE find = ::FindFirstFileW((folder + L"*").c_str(), &entry);
        ASSERT_NE(INVALID_HANDLE_VALUE, find);
        do {
            const std::wstring name = entry.cFileName;
            if (name == L"." || name == L"..") continue;
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                ExpectAllClosed(folder + name + L"\\");
                continue;
            }
            const HANDLE file =
                ::CreateFileW((folder + name).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
            EXPECT_NE(INVALID_HANDLE_VALUE, file) << Narrow(name) << " is open, error " << ::GetLastError();
            ::CloseHandle(file);
            ++m_closed;
        } while (::FindNextFileW(find, &entry));
        ::FindClose(find);
    }

    int m_closed = 0;

private:
    std::string WholeLog() {
        for (int attempt = 0; attempt < 10 && !Environment().DrainLog(); ++attempt) continue;
        std::string whole = Environment().LogText();
        std::erase(whole, '\r');
        return whole;
    }

    std::size_t m_forgotten = 0;
};

TEST_P(ThreadsOnDisk, LoseAndLeaveNothing) {
    Run(kLocalRounds);
    CheckLines();
    CheckBytesAndRelease();
    CheckTables();
    // Unmounted, so that the engine's own files are closed too.
    ExpectAllClosed(Environment().PoolsFolder() + L"pool\\");
    EXPECT_LT(kWorkers, m_closed);
}

std::string SuppressionName(const ::testing::TestParamInfo<bool>& info) {
    return info.param ? "Suppressed" : "Unsuppressed";
}

INSTANTIATE_TEST_SUITE_P(Log, ThreadsOverTheDouble, ::testing::Bool(), SuppressionName);
INSTANTIATE_TEST_SUITE_P(Log, ThreadsOnDisk, ::testing::Bool(), SuppressionName);

}  // namespace zd::test
