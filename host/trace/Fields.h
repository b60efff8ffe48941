// Arguments and results as a trace shows them.
//
// A list of names tells what an argument is called and how it is shown, separated by commas in the order of the
// arguments: "path,flags:x,>record". An empty name leaves the argument out. ">" marks one that the call fills, "*" one
// that goes both ways; ":x" shows a number in hexadecimal, ":d" as a create disposition. A buffer's size
// follows it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

#include "IProtocolManager.h"
#include "zdvfs.h"

namespace zd::host {

// Nothing stands for a null pointer.
using TraceValue = std::variant<std::monostate, std::int64_t, std::uint64_t, std::string>;

struct TraceField {
    std::string name;
    TraceValue value;
    std::string text;  // the value as people read it
};
using TraceFields = std::vector<TraceField>;

enum class EDirection { In, Out };

// Turns the arguments of one call into fields.
class CFieldReader {
public:
    CFieldReader(TraceFields& fields, std::string_view names, EDirection direction)
        : m_fields(fields), m_names(names), m_direction(direction) {}

    template <class Argument>
    void Add(const Argument& argument) {
        TakeName();
        if constexpr (std::is_integral_v<Argument>) {
            AddPendingText(static_cast<std::int64_t>(argument));
            if (m_wanted && m_direction == EDirection::In) Put(argument);
        } else {
            if (m_wanted) Show(argument);
        }
    }

private:
    void TakeName();

    template <class Number>
    void Put(Number number) {
        if constexpr (std::is_signed_v<Number>) {
            PutSigned(number);
        } else {
            PutUnsigned(number);
        }
    }
    // What a pointer leads to, when the call has filled it.
    template <class Number>
    requires std::is_integral_v<Number>
    void Show(Number* out) {
        if (out != nullptr) Put(*out);
    }
    void Show(const char* text);
    void Show(const wchar_t* text);
    void Show(char* buffer);  // shown when its size is known
    void Show(void* address) { PutAddress(address); }
    void Show(const void* address) { PutAddress(address); }
    void Show(ZdvfsDirectory* stream) { PutAddress(stream); }
    void Show(ZdvfsStatRecord* record);
    void Show(ZdvfsVolumeRecord* record);
    void Show(const ZdvfsTimes* times);
    void Show(const ConnectParameters* parameters);
    void Show(FileInformation* information);
    void Show(std::set<std::wstring>* names);

    void PutSigned(std::int64_t number);
    void PutUnsigned(std::uint64_t number);
    void PutAddress(const void* address);
    void AddPendingText(std::int64_t size);

    TraceFields& m_fields;
    std::string_view m_names;
    EDirection m_direction;
    std::string m_name;
    char m_style = '\0';
    bool m_wanted = false;
    const char* m_pendingText = nullptr;
    std::string m_pendingName;
};

template <class... Arguments>
void ReadFields(TraceFields& fields, std::string_view names, EDirection direction, const Arguments&... arguments) {
    CFieldReader reader(fields, names, direction);
    (reader.Add(arguments), ...);
}

TraceField TextField(std::string name, std::string text);
TraceField NumberField(std::string name, std::int64_t number);
TraceField NullField(std::string name);
TraceField AddressField(std::string name, const void* address);

// The result of a call or an operation. The record of a directory stands for its name.
template <class Result>
TraceField ResultField(const Result& result) {
    constexpr char kName[] = "result";
    if constexpr (std::is_integral_v<Result>) {
        return NumberField(kName, static_cast<std::int64_t>(result));
    } else {
        if (result == nullptr) return NullField(kName);
        if constexpr (std::is_same_v<Result, ZdvfsDirectoryRecord*>) {
            return TextField(kName, std::string(result->name, ::strnlen(result->name, sizeof(result->name))));
        } else if constexpr (std::is_same_v<Result, char*>) {
            return TextField(kName, result);
        } else {
            return AddressField(kName, result);
        }
    }
}
TraceField ResultField(const std::wstring& result);

}  // namespace zd::host
