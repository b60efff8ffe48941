#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <tuple>

#include "CallBook.h"
#include "hul.h"

namespace zd::test {
namespace {

using IniKey = std::tuple<std::string, std::string, std::string>;  // file, section, key

class CHulState final : public IHulControl {
public:
    static CHulState& Get() {
        // Never destroyed: the plug-in's threads may still call while the process ends.
        static CHulState* const state = new CHulState();
        return *state;
    }

    void UseBook(ICallBook* shared) override { book = shared; }

    void SetValue(const std::string& file, const std::string& section, const std::string& key,
                  const std::string& value) override {
        const std::lock_guard<std::mutex> held(lock);
        values[IniKey{file, section, key}] = value;
    }

    void RemoveValue(const std::string& file, const std::string& section, const std::string& key) override {
        const std::lock_guard<std::mutex> held(lock);
        values.erase(IniKey{file, section, key});
    }

    int LiveBlocks() override {
        const std::lock_guard<std::mutex> held(lock);
        return static_cast<int>(blocks.size());
    }

    int BadFrees() override {
        const std::lock_guard<std::mutex> held(lock);
        return badFrees;
    }

    // The value, or null where there is none. `lock` is held.
    const std::string* Find(const char* file, const char* section, const char* key) const {
        const auto found = values.find(IniKey{file, section, key});
        return found == values.end() ? nullptr : &found->second;
    }

    CCallBook ownBook;
    ICallBook* book = &ownBook;

    mutable std::mutex lock;  // guards everything below
    std::map<IniKey, std::string> values;
    std::map<void*, int> blocks;  // address -> number
    int lastBlock = 0;
    int badFrees = 0;
};

Call NewCall(const char* function, std::string arguments, const char* path) {
    Call call;
    call.function = function;
    call.arguments = std::move(arguments);
    call.path = PlainPath(path);
    return call;
}

Outcome Value(std::int64_t value) {
    return Outcome{value, std::string(), 0, 0};
}

std::string KeyText(const char* file, const char* section, const char* key) {
    return Quoted(file) + ", " + Quoted(section) + ", " + Quoted(key);
}

// The UTF-8 form with its terminator.
std::string Utf8(const wchar_t* text) {
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string converted(static_cast<std::size_t>(size), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text, -1, converted.data(), size, nullptr, nullptr);
    return converted;
}

}  // namespace
}  // namespace zd::test

using namespace zd::test;

int InifileGetValueA(const char* file, const char* section, const char* key, const char* defaultValue, char* buffer,
                     int size) {
    CHulState& state = CHulState::Get();
    Call call = NewCall("InifileGetValueA",
                        KeyText(file, section, key) + ", " + Quoted(defaultValue) + ", " + std::to_string(size), file);
    return static_cast<int>(RunCall(*state.book, call, EResult::kNumber, [&](Call& entry, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        const std::string* const stored = state.Find(file, section, key);
        std::string text = stored != nullptr ? *stored : defaultValue == nullptr ? "" : defaultValue;
        if (size <= 0) return Value(0);
        text.resize(std::min(text.size(), static_cast<std::size_t>(size - 1)));
        std::memcpy(buffer, text.c_str(), text.size() + 1);
        entry.textOut = text;
        return Value(static_cast<std::int64_t>(text.size()));
    }));
}

int InifileGetIntegerA(const char* file, const char* section, const char* key, int defaultValue) {
    CHulState& state = CHulState::Get();
    Call call = NewCall("InifileGetIntegerA", KeyText(file, section, key) + ", " + std::to_string(defaultValue), file);
    return static_cast<int>(RunCall(*state.book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        const std::string* const stored = state.Find(file, section, key);
        return Value(stored == nullptr ? defaultValue : std::strtol(stored->c_str(), nullptr, 0));
    }));
}

void InifileReleaseA(const char* file) {
    CHulState& state = CHulState::Get();
    Call call = NewCall("InifileReleaseA", Quoted(file), file);
    RunCall(*state.book, call, EResult::kVoid, [](Call&, std::int64_t) { return Outcome(); });
}

char* wcstoutf8_malloced(const wchar_t* text) {
    CHulState& state = CHulState::Get();
    const std::string converted = text == nullptr ? std::string() : Utf8(text);
    Call call = NewCall("wcstoutf8_malloced", Quoted(text == nullptr ? nullptr : converted.c_str()), "");
    char* block = nullptr;
    RunCall(*state.book, call, EResult::kPointer, [&](Call&, std::int64_t) {
        if (text == nullptr) return Outcome{0, "null", 0, 0};
        const std::lock_guard<std::mutex> held(state.lock);
        block = static_cast<char*>(std::malloc(converted.size()));
        if (block == nullptr) return Outcome{0, "null", ENOMEM, LastErrorFor(ENOMEM)};
        std::memcpy(block, converted.data(), converted.size());
        state.blocks[block] = ++state.lastBlock;
        return Outcome{reinterpret_cast<std::intptr_t>(block), "block" + std::to_string(state.lastBlock), 0, 0};
    });
    return block;
}

int wcstoutf8_buf(const wchar_t* text, char* buffer, int size) {
    CHulState& state = CHulState::Get();
    const std::string converted = text == nullptr ? std::string(1, '\0') : Utf8(text);
    Call call = NewCall("wcstoutf8_buf", Quoted(converted.c_str()) + ", " + std::to_string(size), "");
    return static_cast<int>(RunCall(*state.book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        if (size < 0 || converted.size() > static_cast<std::size_t>(size)) return Value(0);
        std::memcpy(buffer, converted.data(), converted.size());
        return Value(static_cast<std::int64_t>(converted.size()));
    }));
}

void _HulFree(void* memory) {
    CHulState& state = CHulState::Get();
    std::string name = "null";
    if (memory != nullptr) {
        const std::lock_guard<std::mutex> held(state.lock);
        const auto found = state.blocks.find(memory);
        name = found == state.blocks.end() ? "unknown" : "block" + std::to_string(found->second);
    }
    Call call = NewCall("_HulFree", name, "");
    RunCall(*state.book, call, EResult::kVoid, [&](Call&, std::int64_t) {
        if (memory == nullptr) return Outcome();
        const std::lock_guard<std::mutex> held(state.lock);
        if (state.blocks.erase(memory) == 0) {
            ++state.badFrees;
        } else {
            std::free(memory);
        }
        return Outcome();
    });
}

extern "C" __declspec(dllexport) zd::test::IHulControl* HulDoubleControl() {
    return &CHulState::Get();
}
