// Where the calls of both DLLs are written down and where the rules for them are kept.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Double.h"

namespace zd::test {

// The text of a result: a number, "null" or a name such as "dir1". Errors of 0 mean that errno and last error stay.
struct Outcome {
    std::int64_t value = 0;
    std::string text;
    int error = 0;
    std::uint32_t lastError = 0;
};

struct ICallBook {
    // Writes the call down as running, fills its order, and answers the rules that apply to it.
    virtual std::vector<Rule> Begin(Call& call) = 0;
    // Completes the entry, unless it was cleared meanwhile.
    virtual void Finish(const Call& call) = 0;

protected:
    ~ICallBook() = default;
};

class CCallBook final : public ICallBook {
public:
    std::vector<Rule> Begin(Call& call) override;
    void Finish(const Call& call) override;

    void Add(const Rule& rule);
    void ClearRules();
    std::vector<Call> Calls();
    void ClearCalls();
    std::size_t Count(const std::string& function);
    void MirrorTo(const std::wstring& file);

private:
    std::mutex m_lock;
    std::vector<Rule> m_rules;
    std::vector<Call> m_calls;
    std::uint64_t m_order = 0;
    std::wstring m_mirror;
};

// How results are shown.
enum class EResult { kNumber, kPointer, kVoid };

// Carries a call out: rules, record, errno and last error. `perform` does the work and is given the byte limit of the
// rules (negative: none); it may complete `call`. A successful call leaves errno and last error as they were.
std::int64_t RunCall(ICallBook& book, Call& call, EResult kind,
                     const std::function<Outcome(Call& call, std::int64_t cap)>& perform);

// The same for a call that gives something back: `forget` is also done where the call reports a failure or throws.
std::int64_t RunGivingBack(ICallBook& book, Call& call, const std::function<Outcome()>& forget);

// "text" in quotes with control characters and quotes escaped; null for null.
std::string Quoted(const char* text);
std::string Hex(std::uint64_t value);
// The path without leading, trailing and doubled slashes.
std::string PlainPath(const char* path);
// The last error that goes with an errno.
std::uint32_t LastErrorFor(int error);

}  // namespace zd::test
