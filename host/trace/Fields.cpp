#include "trace/Fields.h"

#include <cstdio>
#include <cstring>
#include <iterator>
#include <utility>

#include "text/Text.h"

namespace zd::host {

namespace {

constexpr const char* kDispositions[] = {"kZdSupersede", "kZdOpen",      "kZdCreate",
                                         "kZdOpenIf",    "kZdOverwrite", "kZdOverwriteIf"};

std::string Hexadecimal(std::uint64_t number) {
    char text[32];
    std::snprintf(text, sizeof(text), "0x%llx", number);
    return text;
}

template <std::size_t kWidth>
std::string BoundedText(const wchar_t (&field)[kWidth]) {
    return ToUtf8(std::wstring_view(field, ::wcsnlen(field, kWidth)));
}

TraceField UnsignedField(std::string name, std::uint64_t number) {
    return TraceField{std::move(name), number, std::to_string(number)};
}

TraceField HexadecimalField(std::string name, std::uint64_t number) {
    return TraceField{std::move(name), number, Hexadecimal(number)};
}

}  // namespace

TraceField TextField(std::string name, std::string text) {
    std::string shown = "\"" + Printable(text) + "\"";
    return TraceField{std::move(name), std::move(text), std::move(shown)};
}

TraceField NumberField(std::string name, std::int64_t number) {
    return TraceField{std::move(name), number, std::to_string(number)};
}

TraceField NullField(std::string name) {
    return TraceField{std::move(name), std::monostate(), "null"};
}

TraceField AddressField(std::string name, const void* address) {
    if (address == nullptr) return NullField(std::move(name));
    return HexadecimalField(std::move(name), reinterpret_cast<std::uintptr_t>(address));
}

TraceField ResultField(const std::wstring& result) {
    return TextField("result", ToUtf8(result));
}

void CFieldReader::TakeName() {
    const std::size_t end = m_names.find(',');
    std::string_view name = m_names.substr(0, end);
    m_names = end == std::string_view::npos ? std::string_view() : m_names.substr(end + 1);
    const bool both = name.substr(0, 1) == "*";
    const bool out = name.substr(0, 1) == ">";
    if (both || out) name.remove_prefix(1);
    m_style = '\0';
    if (const std::size_t colon = name.find(':'); colon != std::string_view::npos) {
        m_style = name.back();
        name = name.substr(0, colon);
    }
    m_name = name;
    m_wanted = !name.empty() && (both || out == (m_direction == EDirection::Out));
}

void CFieldReader::Show(const char* text) {
    m_fields.push_back(text == nullptr ? NullField(m_name) : TextField(m_name, text));
}

void CFieldReader::Show(const wchar_t* text) {
    m_fields.push_back(text == nullptr ? NullField(m_name) : TextField(m_name, ToUtf8(text)));
}

void CFieldReader::Show(char* buffer) {
    m_pendingText = buffer;
    m_pendingName = m_name;
}

void CFieldReader::Show(ZdvfsStatRecord* record) {
    if (record == nullptr) return;
    m_fields.push_back(NumberField("size", record->size));
    m_fields.push_back(HexadecimalField("attributes", record->attributes));
    m_fields.push_back(HexadecimalField("mode", record->mode));
}

void CFieldReader::Show(ZdvfsVolumeRecord* record) {
    if (record == nullptr) return;
    m_fields.push_back(UnsignedField("blockSize", record->blockSize));
    m_fields.push_back(UnsignedField("totalBlocks", record->totalBlocks));
    m_fields.push_back(UnsignedField("availableBlocks", record->availableBlocks));
}

void CFieldReader::Show(const ZdvfsTimes* times) {
    if (times == nullptr) return m_fields.push_back(NullField(m_name));
    m_fields.push_back(NumberField("access", times->access));
    m_fields.push_back(NumberField("modification", times->modification));
}

void CFieldReader::Show(const ConnectParameters* parameters) {
    if (parameters == nullptr) return m_fields.push_back(NullField(m_name));
    m_fields.push_back(TextField("poolName", BoundedText(parameters->poolName)));
    m_fields.push_back(TextField("secondName", BoundedText(parameters->secondName)));
    m_fields.push_back(TextField("thirdName", BoundedText(parameters->thirdName)));
}

void CFieldReader::Show(FileInformation* information) {
    if (information == nullptr) return;
    m_fields.push_back(UnsignedField("size", information->size));
    m_fields.push_back(HexadecimalField("attributes", information->attributes));
    m_fields.push_back(HexadecimalField("mode", information->mode));
}

void CFieldReader::Show(std::set<std::wstring>* names) {
    if (names != nullptr) m_fields.push_back(UnsignedField(m_name, names->size()));
}

void CFieldReader::PutSigned(std::int64_t number) {
    if (m_style == 'x') return PutUnsigned(static_cast<std::uint64_t>(number) & 0xFFFFFFFF);
    m_fields.push_back(NumberField(m_name, number));
}

void CFieldReader::PutUnsigned(std::uint64_t number) {
    TraceField field = UnsignedField(m_name, number);
    if (m_style == 'x') field.text = Hexadecimal(number);
    if (m_style == 'd' && number < std::size(kDispositions)) field.text = kDispositions[number];
    m_fields.push_back(std::move(field));
}

void CFieldReader::PutAddress(const void* address) {
    m_fields.push_back(AddressField(m_name, address));
}

void CFieldReader::AddPendingText(std::int64_t size) {
    const char* const text = std::exchange(m_pendingText, nullptr);
    if (text == nullptr || size <= 0) return;
    m_fields.push_back(TextField(m_pendingName, std::string(text, ::strnlen(text, static_cast<std::size_t>(size)))));
}

}  // namespace zd::host
