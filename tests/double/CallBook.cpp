#include "CallBook.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <new>
#include <stdexcept>

namespace zd::test {

namespace {

bool Applies(const Rule& rule, const Call& call) {
    if (rule.function != "*" && rule.function != call.function) return false;
    return rule.path.empty() || PlainPath(rule.path.c_str()) == call.path;
}

[[noreturn]] void Throw(const Rule& rule) {
    if (rule.thrown == EThrow::kBadAlloc) throw std::bad_alloc();
    if (rule.thrown == EThrow::kRuntimeError) throw std::runtime_error("thrown by the double");
    throw rule.thrownCode;
}

// The first exception that a module throws clears the last error on its way, so it must not be one that carries it.
void ThrowOnce() {
    static const bool thrown = [] {
        try {
            throw 0;
        } catch (int) {
            return true;
        }
    }();
    static_cast<void>(thrown);
}

const char* ThrownName(EThrow thrown) {
    switch (thrown) {
        case EThrow::kBadAlloc:
            return "throws std::bad_alloc";
        case EThrow::kRuntimeError:
            return "throws std::runtime_error";
        default:
            return "throws unsigned long";
    }
}

std::string ResultText(EResult kind, std::int64_t value) {
    if (kind == EResult::kVoid) return std::string();
    return kind == EResult::kPointer ? "null" : std::to_string(value);
}

// What all the rules for one call come to.
struct Decision {
    std::optional<std::int64_t> result;
    std::optional<int> error;
    std::optional<std::uint32_t> lastError;
    std::int64_t cap = -1;
    const Rule* thrower = nullptr;
};

Decision Decide(const std::vector<Rule>& rules) {
    Decision decision;
    for (const Rule& rule : rules) {
        if (rule.result) decision.result = rule.result;
        if (rule.error) decision.error = rule.error;
        if (rule.lastError) decision.lastError = rule.lastError;
        if (rule.cap) decision.cap = *rule.cap;
        if (rule.thrown != EThrow::kNothing) decision.thrower = &rule;
    }
    // A failure by errno alone brings the last error that a real failure of that kind brings.
    if (decision.result && *decision.result < 0 && decision.error && !decision.lastError) {
        decision.lastError = LastErrorFor(*decision.error);
    }
    return decision;
}

}  // namespace

std::vector<Rule> CCallBook::Begin(Call& call) {
    const std::lock_guard<std::mutex> held(m_lock);
    call.order = ++m_order;
    call.threadId = ::GetCurrentThreadId();
    m_calls.push_back(call);
    m_calls.back().result = "...";
    std::vector<Rule> applying;
    for (Rule& rule : m_rules) {
        if (!Applies(rule, call)) continue;
        ++rule.seen;
        if (rule.nth == 0 || rule.nth == rule.seen) applying.push_back(rule);
    }
    return applying;
}

void CCallBook::Finish(const Call& call) {
    const std::lock_guard<std::mutex> held(m_lock);
    const auto entry =
        std::find_if(m_calls.begin(), m_calls.end(), [&call](const Call& other) { return other.order == call.order; });
    if (entry != m_calls.end()) *entry = call;
    if (m_mirror.empty()) return;
    if (FILE* file = ::_wfopen(m_mirror.c_str(), L"ab")) {
        std::fprintf(file, "%s\n", call.Line().c_str());
        std::fclose(file);
    }
}

void CCallBook::Add(const Rule& rule) {
    const std::lock_guard<std::mutex> held(m_lock);
    m_rules.push_back(rule);
}

void CCallBook::ClearRules() {
    const std::lock_guard<std::mutex> held(m_lock);
    m_rules.clear();
}

std::vector<Call> CCallBook::Calls() {
    const std::lock_guard<std::mutex> held(m_lock);
    return m_calls;
}

void CCallBook::ClearCalls() {
    const std::lock_guard<std::mutex> held(m_lock);
    m_calls.clear();
}

std::size_t CCallBook::Count(const std::string& function) {
    const std::lock_guard<std::mutex> held(m_lock);
    const auto count = std::count_if(m_calls.begin(), m_calls.end(),
                                     [&function](const Call& call) { return call.function == function; });
    return static_cast<std::size_t>(count);
}

void CCallBook::MirrorTo(const std::wstring& file) {
    const std::lock_guard<std::mutex> held(m_lock);
    m_mirror = file;
}

std::int64_t RunCall(ICallBook& book, Call& call, EResult kind,
                     const std::function<Outcome(Call& call, std::int64_t cap)>& perform) {
    const int errorBefore = errno;
    const DWORD lastErrorBefore = ::GetLastError();
    const std::vector<Rule> rules = book.Begin(call);
    for (const Rule& rule : rules) {
        if (rule.before) rule.before(call);
    }
    const Decision decision = Decide(rules);
    Outcome outcome;
    if (decision.thrower == nullptr) {
        if (decision.result) {
            outcome.value = kind == EResult::kPointer ? 0 : *decision.result;
            outcome.text = ResultText(kind, outcome.value);
        } else {
            outcome = perform(call, decision.cap);
            if (outcome.text.empty()) outcome.text = ResultText(kind, outcome.value);
        }
    } else {
        outcome.text = ThrownName(decision.thrower->thrown);
    }
    call.value = outcome.value;
    call.result = outcome.text;
    call.error = decision.error.value_or(outcome.error != 0 ? outcome.error : errorBefore);
    call.lastError = decision.lastError.value_or(outcome.lastError != 0 ? outcome.lastError : lastErrorBefore);
    book.Finish(call);
    for (const Rule& rule : rules) {
        if (rule.after) rule.after(call);
    }
    if (decision.thrower != nullptr) ThrowOnce();
    errno = call.error;
    ::SetLastError(call.lastError);
    if (decision.thrower != nullptr) Throw(*decision.thrower);
    return outcome.value;
}

std::int64_t RunGivingBack(ICallBook& book, Call& call, const std::function<Outcome()>& forget) {
    struct CGivenBack {
        const std::function<Outcome()>& forget;
        bool carriedOut = false;
        ~CGivenBack() {
            if (!carriedOut) forget();
        }
    } givenBack{forget};
    return RunCall(book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        givenBack.carriedOut = true;
        return forget();
    });
}

std::string Quoted(const char* text) {
    if (text == nullptr) return "null";
    std::string quoted = "\"";
    for (const char* next = text; *next != '\0'; ++next) {
        const auto unit = static_cast<unsigned char>(*next);
        if (unit == '"') {
            quoted += "\\\"";
        } else if (unit < 0x20 || unit == 0x7f) {
            std::array<char, 8> code{};
            std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned int>(unit));
            quoted += code.data();
        } else {
            quoted += *next;
        }
    }
    return quoted + "\"";
}

std::string Hex(std::uint64_t value) {
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), "0x%llx", value);
    return text.data();
}

std::string PlainPath(const char* path) {
    std::string plain;
    for (const char* next = path == nullptr ? "" : path; *next != '\0'; ++next) {
        if (*next == '/' && (plain.empty() || plain.back() == '/')) continue;
        plain += *next;
    }
    if (!plain.empty() && plain.back() == '/') plain.pop_back();
    return plain;
}

std::uint32_t LastErrorFor(int error) {
    static const std::map<int, std::uint32_t> kCodes = {
        {EPERM, ERROR_ACCESS_DENIED},      {ENOENT, ERROR_FILE_NOT_FOUND},     {EIO, ERROR_IO_DEVICE},
        {EBADF, ERROR_INVALID_HANDLE},     {ENOMEM, ERROR_OUTOFMEMORY},        {EACCES, ERROR_ACCESS_DENIED},
        {EEXIST, ERROR_ALREADY_EXISTS},    {ENOTDIR, ERROR_DIRECTORY},         {EISDIR, ERROR_ACCESS_DENIED},
        {EINVAL, ERROR_INVALID_PARAMETER}, {ENOSPC, ERROR_DISK_FULL},          {ERANGE, ERROR_INSUFFICIENT_BUFFER},
        {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},  {EMFILE, ERROR_TOO_MANY_OPEN_FILES}};
    const auto code = kCodes.find(error);
    return code == kCodes.end() ? static_cast<std::uint32_t>(ERROR_GEN_FAILURE) : code->second;
}

}  // namespace zd::test
