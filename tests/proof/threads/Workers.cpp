#include "Workers.h"

#include <cstdio>
#include <thread>

#include "harness/Gate.h"

namespace zd::test {

namespace {

constexpr DWORD kLongestPause = 120000;  // milliseconds
constexpr UINT kDeadlock = 79;           // exit code

// Ends the process where the workers stand still, until `done`.
void Watch(const CProgress& progress, const CGate& done) {
    for (std::uint64_t before = progress.Steps(); !done.Wait(kLongestPause); before = progress.Steps()) {
        if (progress.Steps() != before) continue;
        std::fprintf(stderr, "DEADLOCK: nobody has moved for %lu ms\n%s", kLongestPause, progress.Text().c_str());
        std::fflush(stderr);
        ::TerminateProcess(::GetCurrentProcess(), kDeadlock);
    }
}

}  // namespace

const char* NameOf(EOperation operation) {
    static constexpr const char* kNames[kOperations] = {"ZdReadFile",         "ZdWriteFile",   "ZdSetFileSize",
                                                        "ZdSetFileBasicInfo", "ZdRenameFile",  "ZdQueryDirContents",
                                                        "ZdAppendFile",       "ZdReleaseFile", "another operation"};
    return kNames[static_cast<std::size_t>(operation)];
}

CProgress::CProgress() {
    for (auto& what : m_what) what = "nothing yet";
}

std::uint64_t CProgress::Steps() const {
    std::uint64_t steps = 0;
    for (const auto& worker : m_steps) steps += worker;
    return steps;
}

std::string CProgress::Text() const {
    std::string text;
    for (std::size_t i = 0; i < m_what.size(); ++i) {
        text.append("worker ").append(std::to_string(i)).append(": ").append(m_what[i].load());
        text.append(", after ").append(std::to_string(m_steps[i].load())).append(" operations\n");
    }
    return text;
}

DWORD CWorker::Create(const std::wstring& name, Handle& handle, bool isDirectory, DWORD disposition, DWORD access) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kOther, "ZdCreateFile");
    DWORD action = 0;
    FileInformation information;
    return m_manager.ZdCreateFile(name.c_str(), isDirectory ? 1 : 0, 0, FILE_ATTRIBUTE_NORMAL, 0, disposition, access,
                                  0, nullptr, &handle, &action, &information);
}

DWORD CWorker::Read(Handle handle, std::int64_t offset, std::string& data) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kRead, "ZdReadFile");
    DWORD count = 0;
    const DWORD code = m_manager.ZdReadFile(handle, offset, static_cast<DWORD>(data.size()), data.data(), &count);
    data.resize(code == 0 ? count : 0);
    return code;
}

DWORD CWorker::Write(Handle handle, std::int64_t offset, const std::string& data) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kWrite, "ZdWriteFile");
    DWORD count = 0;
    const DWORD code = m_manager.ZdWriteFile(handle, offset, static_cast<DWORD>(data.size()), data.data(), &count);
    return code == 0 && count != data.size() ? ERROR_WRITE_FAULT : code;
}

DWORD CWorker::SetSize(Handle handle, std::int64_t size) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kSetSize, "ZdSetFileSize");
    return m_manager.ZdSetFileSize(handle, size);
}

DWORD CWorker::SetAttributes(Handle handle, DWORD attributes) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kSetBasicInfo, "ZdSetFileBasicInfo");
    return m_manager.ZdSetFileBasicInfo(handle, 0, 0, 0, 0, attributes);
}

DWORD CWorker::Query(Handle handle, FileInformation& information) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kOther, "ZdQueryFileInfo");
    return m_manager.ZdQueryFileInfo(handle, &information);
}

DWORD CWorker::Rename(Handle handle, const std::wstring& name) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kRename, "ZdRenameFile");
    return m_manager.ZdRenameFile(handle, name.c_str(), 0);
}

DWORD CWorker::List(Handle directory, std::vector<std::wstring>& names) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kList, "ZdQueryDirContents");
    DirectoryEntry* entries = nullptr;
    DWORD count = 0;
    const DWORD code = m_manager.ZdQueryDirContents(directory, &entries, &count);
    names.clear();
    if (code != 0 || entries == nullptr) return code;
    for (DWORD i = 0; i < count; ++i) names.emplace_back(entries[i].name);
    ::HeapFree(::GetProcessHeap(), 0, entries);
    return code;
}

DWORD CWorker::Append(Handle target, Handle source, std::int64_t to, std::int64_t from, std::int64_t length) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kAppend, "ZdAppendFile");
    return m_manager.ZdAppendFile(target, source, to, from, length);
}

DWORD CWorker::GetSecurity(Handle handle) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kOther, "ZdGetSecurity");
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD code = m_manager.ZdGetSecurity(handle, 0, &descriptor);
    if (code == 0) ::LocalFree(descriptor);
    return code;
}

DWORD CWorker::Close(Handle handle, bool deletes) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kOther, "ZdCloseFile");
    return m_manager.ZdCloseFile(handle, deletes ? 1 : 0);
}

DWORD CWorker::Release(Handle handle) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kRelease, "ZdReleaseFile");
    return m_manager.ZdReleaseFile(handle);
}

void CWorker::Refresh(DWORD value, bool full) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kOther, "ZdRefreshSettings");
    m_manager.ZdRefreshSettings(value, full);
}

void CWorker::Say(std::uint64_t number) {
    const CProgress::CDoing doing(m_progress, m_number, EOperation::kOther, "ZdLogMessage");
    m_manager.ZdLogMessage(6, Said(m_number, number).c_str());
}

std::string CWorker::Said(int worker, std::uint64_t number) {
    std::string line("worker ");
    return line.append(std::to_string(worker)).append(" says ").append(std::to_string(number)).append("\n");
}

void RunWorkers(CProgress& progress, const std::function<void(int worker)>& work) {
    CGate go, done;
    std::vector<std::thread> threads;
    for (int worker = 0; worker < kWorkers; ++worker) {
        threads.emplace_back([&go, &work, worker] {
            go.Wait();
            work(worker);
        });
    }
    std::thread watchdog([&] { Watch(progress, done); });
    go.Set();
    for (std::thread& thread : threads) thread.join();
    done.Set();
    watchdog.join();
}

}  // namespace zd::test
