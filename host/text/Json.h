// JSON for scripts that read what zdhost writes. The library behind it is included by Json.cpp alone, for its header
// takes longer to read than most files that write JSON.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace zd::host {

// A value of JSON, from which others are built.
class CJson {
public:
    CJson();                             // null
    template <std::same_as<bool> Truth>  // no pointer is to become one
    CJson(Truth value) : CJson(Boolean{value}) {}
    CJson(double value);
    CJson(const char* text);  // null for a null pointer
    CJson(const std::string& text);
    CJson(const std::vector<std::string>& texts);
    template <std::signed_integral Number>
    CJson(Number number) : CJson(Signed{number}) {}
    template <std::unsigned_integral Number>
    requires(!std::same_as<Number, bool>) CJson(Number number) : CJson(Unsigned{number}) {}
    ~CJson();
    CJson(const CJson& other);
    CJson(CJson&& other) noexcept;
    CJson& operator=(CJson other) noexcept;

    static CJson Array();
    static CJson Object();

    // Makes null an object. Members keep the order in which they came; one of the same name is replaced.
    CJson& Set(const std::string& name, CJson value);
    // The same with every member of an object.
    CJson& SetAll(const CJson& object);

    // Puts a value behind the others of an array.
    void Add(CJson value);
    std::size_t Count() const;

    // On one line, without control characters. Text that is no UTF-8 (a name with half a character) has U+FFFD in its
    // place.
    std::string Line() const;

private:
    struct Boolean {
        bool value;
    };
    struct Signed {
        std::int64_t number;
    };
    struct Unsigned {
        std::uint64_t number;
    };
    explicit CJson(Boolean value);
    explicit CJson(Signed value);
    explicit CJson(Unsigned value);
    explicit CJson(nlohmann::ordered_json value);

    std::unique_ptr<nlohmann::ordered_json> m_value;
};

// The time as text, null for 0.
CJson JsonOfTime(std::uint64_t fileTime);

}  // namespace zd::host
