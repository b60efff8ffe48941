// The interface's slots as a host sees them in memory: a table pointer at the start of the object, 30 entries. Nothing
// here comes from IProtocolManager.h, so that a mistake in that header shows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zd::test {

enum class ESlotResult { kCode, kNothing, kText };  // a 32-bit value, none, a std::wstring

// `widths`: the bytes of each argument behind the object itself, 8 for pointers and handles.
struct SlotRow {
    int slot;
    const char* name;
    ESlotResult result;
    std::vector<int> widths;
};

inline const std::vector<SlotRow>& SlotTable() {
    static const std::vector<SlotRow> kRows = {
        {0, "ZdConnect", ESlotResult::kCode, {8}},
        {1, "ZdDisconnect", ESlotResult::kCode, {}},
        {2, "ZdCreateFile", ESlotResult::kCode, {8, 4, 4, 4, 4, 4, 4, 4, 8, 8, 8, 8}},
        {3, "ZdCloseFile", ESlotResult::kCode, {8, 4}},
        {4, "ZdReleaseFile", ESlotResult::kCode, {8}},
        {5, "ZdQueryFileInfo", ESlotResult::kCode, {8, 8}},
        {6, "ZdQueryPathInfo", ESlotResult::kCode, {8, 8}},
        {7, "ZdSetFileSize", ESlotResult::kCode, {8, 8}},
        {8, "ZdSetFileBasicInfo", ESlotResult::kCode, {8, 8, 8, 8, 8, 4}},
        {9, "ZdDeleteFile", ESlotResult::kCode, {8}},
        {10, "ZdRenameFile", ESlotResult::kCode, {8, 8, 4}},
        {11, "ZdQueryDirContents", ESlotResult::kCode, {8, 8, 8}},
        {12, "ZdReadFile", ESlotResult::kCode, {8, 8, 4, 8, 8}},
        {13, "ZdWriteFile", ESlotResult::kCode, {8, 8, 4, 8, 8}},
        {14, "ZdQueryVolumeInfo", ESlotResult::kCode, {1, 8}},
        {15, "ZdSetVolumeLabel", ESlotResult::kCode, {8}},
        {16, "ZdGetSecurity", ESlotResult::kCode, {8, 8, 8}},
        {17, "ZdSetSecurity", ESlotResult::kCode, {8, 8, 8}},
        {18, "Release", ESlotResult::kNothing, {}},
        {19, "ZdEnumerateSpaList", ESlotResult::kCode, {8}},
        {20, "ZdControlPath", ESlotResult::kCode, {8}},
        {21, "ZdHandleIoctl", ESlotResult::kCode, {8, 4, 8}},
        {22, "ZdRefreshSettings", ESlotResult::kNothing, {4, 1}},
        {23, "ZdStub1", ESlotResult::kCode, {}},
        {24, "ZdStub2", ESlotResult::kCode, {}},
        {25, "ZdStub3", ESlotResult::kCode, {}},
        {26, "ZdLogMessage", ESlotResult::kNothing, {4, 8}},
        {27, "ZdAppendFile", ESlotResult::kCode, {8, 8, 8, 8, 8}},
        {28, "ZdGetRandomTag", ESlotResult::kText, {}},
        {29, "ZdPathIoctl", ESlotResult::kCode, {4, 8}},
    };
    return kRows;
}

// Calls through an object's table, without looking at SlotTable().
class CObjectSlots {
public:
    explicit CObjectSlots(void* object) : m_object(static_cast<CObject*>(object)) {}

    // Calls a slot with arguments that are integers or pointers, of the widths given. An argument narrower than 8 bytes
    // gets rubbish in the bytes above its width, which a callee of that width does not see. Throws std::logic_error
    // where number or width do not match.
    template <class... Arguments>
    std::uint32_t Code(int slot, const std::vector<int>& widths, Arguments... arguments) const {
        if (widths.size() != sizeof...(Arguments)) throw std::logic_error("wrong number of arguments");
        [[maybe_unused]] std::size_t index = 0;
        // Braces fix the order in which the arguments are widened; one more keeps the list from being empty.
        const std::uint64_t widened[] = {Widen(arguments, widths[index++])..., 0};
        return Invoke(slot, widened, std::index_sequence_for<Arguments...>());
    }

    // Calls a slot that takes nothing and answers text.
    std::wstring Text(int slot) const { return (m_object->*Member<std::wstring()>(slot))(); }

    // What the table holds for a slot.
    void* Entry(int slot) const { return (*reinterpret_cast<void***>(m_object))[slot]; }

private:
    class CObject {};

    template <class Argument>
    static std::uint64_t Widen(Argument argument, int width) {
        std::uint64_t value = 0;
        if constexpr (std::is_null_pointer_v<Argument> || std::is_pointer_v<Argument>) {
            if (width != 8) throw std::logic_error("a pointer is 8 bytes wide");
            value = reinterpret_cast<std::uintptr_t>(argument);
        } else {
            value = std::uint64_t(argument);
        }
        if (width == 8) return value;
        const std::uint64_t mask = (std::uint64_t{1} << (8 * width)) - 1;
        return (value & mask) | (std::uint64_t{0xCDCDCDCDCDCDCDCD} & ~mask);
    }

    // The compiler's own calling convention for member functions, with a table entry as the function.
    template <class Signature>
    Signature CObject::*Member(int slot) const {
        Signature CObject::*member = nullptr;
        struct {
            void* function;
            std::ptrdiff_t adjustment;
        } const raw{Entry(slot), 0};
        static_assert(sizeof(raw) == sizeof(member));
        std::memcpy(&member, &raw, sizeof(member));
        return member;
    }

    template <std::size_t>
    using Word = std::uint64_t;

    template <std::size_t... Index>
    std::uint32_t Invoke(int slot, const std::uint64_t* words, std::index_sequence<Index...>) const {
        static_cast<void>(words);
        return static_cast<std::uint32_t>((m_object->*Member<std::uint64_t(Word<Index>...)>(slot))(words[Index]...));
    }

    CObject* m_object;
};

// Calls as the table of the interface says.
class CSlots {
public:
    explicit CSlots(void* object) : m_slots(object) {}

    // Answers the 32-bit result, anything for slots without one. Throws std::logic_error for arguments that do not
    // match the table, and for a slot that answers text.
    template <class... Arguments>
    std::uint32_t Call(int slot, Arguments... arguments) const {
        const SlotRow& row = SlotTable().at(static_cast<std::size_t>(slot));
        if (row.result == ESlotResult::kText) throw std::logic_error("this slot answers text");
        return m_slots.Code(slot, row.widths, arguments...);
    }

    std::wstring Text(int slot) const {
        const SlotRow& row = SlotTable().at(static_cast<std::size_t>(slot));
        if (row.result != ESlotResult::kText) throw std::logic_error("this slot answers no text");
        return m_slots.Text(slot);
    }

    void* Entry(int slot) const { return m_slots.Entry(slot); }

private:
    CObjectSlots m_slots;
};

}  // namespace zd::test
