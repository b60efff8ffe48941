#include "text/Json.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "text/Text.h"
#include "text/Times.h"

namespace zd::host {

CJson::CJson(nlohmann::ordered_json value) : m_value(std::make_unique<nlohmann::ordered_json>(std::move(value))) {}

CJson::CJson() : CJson(nlohmann::ordered_json(nullptr)) {}
CJson::CJson(Boolean value) : CJson(nlohmann::ordered_json(value.value)) {}
CJson::CJson(double value) : CJson(nlohmann::ordered_json(value)) {}
CJson::CJson(const char* text)
    : CJson(text == nullptr ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text)) {}
CJson::CJson(const std::string& text) : CJson(nlohmann::ordered_json(text)) {}
CJson::CJson(const std::vector<std::string>& texts) : CJson(nlohmann::ordered_json(texts)) {}
CJson::CJson(Signed value) : CJson(nlohmann::ordered_json(value.number)) {}
CJson::CJson(Unsigned value) : CJson(nlohmann::ordered_json(value.number)) {}

CJson::~CJson() = default;
CJson::CJson(const CJson& other) : CJson(*other.m_value) {}
CJson::CJson(CJson&& other) noexcept = default;

CJson& CJson::operator=(CJson other) noexcept {
    m_value.swap(other.m_value);
    return *this;
}

CJson CJson::Array() {
    return CJson(nlohmann::ordered_json::array());
}

CJson CJson::Object() {
    return CJson(nlohmann::ordered_json::object());
}

CJson& CJson::Set(const std::string& name, CJson value) {
    (*m_value)[name] = std::move(*value.m_value);
    return *this;
}

CJson& CJson::SetAll(const CJson& object) {
    m_value->update(*object.m_value);
    return *this;
}

void CJson::Add(CJson value) {
    m_value->push_back(std::move(*value.m_value));
}

std::size_t CJson::Count() const {
    return m_value->size();
}

std::string CJson::Line() const {
    // The library leaves those beyond ASCII and DEL as they are.
    using nlohmann::ordered_json;
    const std::string text =
        m_value->dump(/*indent=*/-1, ' ', /*ensure_ascii=*/false, ordered_json::error_handler_t::replace);
    return ReplaceControls(text, "\\u", "");
}

CJson JsonOfTime(std::uint64_t fileTime) {
    return fileTime == 0 ? CJson() : CJson(FormatTime(fileTime));
}

}  // namespace zd::host
