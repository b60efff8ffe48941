// Many threads on the plug-in at once, watched from outside.
#pragma once

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "IProtocolManager.h"
#include "proof/hostile/ProofRun.h"

namespace zd::test {

inline constexpr int kWorkers = 16;

// Operations that every call of which writes one line that begins with "<name> Enter" when it is logged.
enum class EOperation { kRead, kWrite, kSetSize, kSetBasicInfo, kRename, kList, kAppend, kRelease, kOther };
inline constexpr std::size_t kOperations = static_cast<std::size_t>(EOperation::kOther) + 1;
const char* NameOf(EOperation operation);

// What a thread is doing, and what all of them did.
class CProgress {
public:
    // Marks the operation that the worker is in.
    class CDoing {
    public:
        CDoing(CProgress& progress, int worker, EOperation operation, const char* what) : m_progress(progress) {
            m_worker = worker;
            progress.m_what[Slot()] = what;
            ++progress.m_calls[static_cast<std::size_t>(operation)];
        }
        ~CDoing() {
            m_progress.m_what[Slot()] = "between operations";
            ++m_progress.m_steps[Slot()];
        }
        CDoing(const CDoing&) = delete;
        CDoing& operator=(const CDoing&) = delete;

    private:
        std::size_t Slot() const { return static_cast<std::size_t>(m_worker); }

        CProgress& m_progress;
        int m_worker = 0;
    };

    CProgress();

    std::uint64_t Calls(EOperation operation) const { return m_calls[static_cast<std::size_t>(operation)]; }
    std::uint64_t Steps() const;
    void ForgetCalls() {
        for (auto& calls : m_calls) calls = 0;
    }
    // Which worker is in which operation.
    std::string Text() const;

private:
    std::array<std::atomic<const char*>, kWorkers> m_what;
    std::array<std::atomic<std::uint64_t>, kWorkers> m_steps{};
    std::array<std::atomic<std::uint64_t>, kOperations> m_calls{};
};

// One worker's view: the connection it works on and a generator of its own.
class CWorker {
public:
    CWorker(CProgress& progress, IProtocolManager& manager, int number)
        : m_manager(manager),
          m_number(number),
          m_random(ProofSeed() * 1000 + static_cast<std::uint64_t>(number)),
          m_progress(progress) {}

    // Each marks itself as what the worker is doing and answers the operation's code.
    DWORD Create(const std::wstring& name, Handle& handle, bool isDirectory = false, DWORD disposition = kZdOpenIf,
                 DWORD access = 3);
    DWORD Read(Handle handle, std::int64_t offset, std::string& data);  // `data` in its size; cut to what came
    DWORD Write(Handle handle, std::int64_t offset, const std::string& data);
    DWORD SetSize(Handle handle, std::int64_t size);
    DWORD SetAttributes(Handle handle, DWORD attributes);
    DWORD Query(Handle handle, FileInformation& information);
    DWORD Rename(Handle handle, const std::wstring& name);
    DWORD List(Handle directory, std::vector<std::wstring>& names);
    DWORD Append(Handle target, Handle source, std::int64_t to, std::int64_t from, std::int64_t length);
    DWORD GetSecurity(Handle handle);
    DWORD Close(Handle handle, bool deletes = false);
    DWORD Release(Handle handle);
    void Refresh(DWORD value, bool full);
    // A line that tells worker and number.
    void Say(std::uint64_t number);
    static std::string Said(int worker, std::uint64_t number);

    IProtocolManager& m_manager;
    const int m_number;
    CRandom m_random;

private:
    CProgress& m_progress;
};

// Runs `work` on kWorkers threads at once and waits for them. Where nobody has moved for two minutes, what each one is
// in is printed and the process ends.
void RunWorkers(CProgress& progress, const std::function<void(int worker)>& work);

}  // namespace zd::test
