// Security descriptors and their texts.
#include "HostileInput.h"

#include <sddl.h>

#include <algorithm>

namespace zd::test {

namespace {

// A few bytes of `text` replaced, taken out, doubled.
void Damage(CRandom& random, std::string& text, std::size_t from = 0) {
    const std::size_t changes = 1 + random.Number(4);
    for (std::size_t i = 0; i < changes && text.size() > from; ++i) {
        const std::size_t at = from + random.Number(text.size() - from);
        text[at] =
            random.OneIn(2) ? static_cast<char>(random.Next()) : static_cast<char>(text[at] ^ (1 << random.Number(8)));
    }
}

const std::vector<std::string>& ValidSddl() {
    static const std::vector<std::string> kTexts = {
        "O:BAG:BAD:(A;;FA;;;BA)(A;;FA;;;SY)",
        "O:SYG:SYD:",
        "D:(A;;FA;;;WD)",
        "O:BAD:(D;;FA;;;WD)",
        "O:BAG:BA",
        "O:S-1-5-21-1-2-3-1001G:S-1-5-21-1-2-3-513D:P(A;;0x1f01ff;;;S-1-5-21-1-2-3-1001)",
        "O:BAG:BAD:AI(A;OICIIO;GA;;;CO)(A;ID;FR;;;WD)S:(AU;SAFA;FA;;;WD)",
        "G:SY",
        "D:NO_ACCESS_CONTROL",
        "D:P",
        "S:"};
    return kTexts;
}

std::size_t Number(const std::string& bytes, std::size_t at, std::size_t width) {
    std::size_t value = 0;
    for (std::size_t i = width; i > 0; --i) value = value << 8 | static_cast<unsigned char>(bytes[at + i - 1]);
    return value;
}

bool SidFits(const std::string& bytes, std::size_t at, std::size_t end) {
    constexpr std::size_t kHead = 8;
    return at + kHead <= end && at + kHead + 4 * Number(bytes, at + 1, 1) <= end;
}

bool AclFits(const std::string& bytes, std::size_t at) {
    constexpr std::size_t kHead = 8;
    if (at + kHead > bytes.size()) return false;
    const std::size_t end = at + Number(bytes, at + 2, 2);
    if (end > bytes.size()) return false;
    std::size_t entry = at + kHead;
    for (std::size_t count = Number(bytes, at + 4, 2); count > 0; --count) {
        if (entry + kHead > end) return false;
        const std::size_t size = Number(bytes, entry + 2, 2);
        if (size < kHead || !SidFits(bytes, entry + kHead, std::min(end, entry + size))) return false;
        entry += size;
    }
    return true;
}

}  // namespace

bool LiesInItsBlock(const std::string& descriptor) {
    if ((Number(descriptor, 2, 2) & SE_SELF_RELATIVE) == 0) return false;
    for (const std::size_t part : {4U, 8U}) {
        const std::size_t offset = Number(descriptor, part, 4);
        if (offset != 0 && !SidFits(descriptor, offset, descriptor.size())) return false;
    }
    for (const std::size_t part : {12U, 16U}) {
        const std::size_t offset = Number(descriptor, part, 4);
        if (offset != 0 && !AclFits(descriptor, offset)) return false;
    }
    return true;
}

std::string ValidDescriptor(CRandom& random) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ULONG size = 0;
    const std::string& text = random.Of(ValidSddl());
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorA(text.c_str(), SDDL_REVISION_1, &descriptor, &size)) {
        // Not every system knows every form.
        return std::string("\x01\x00\x00\x80", 4) + std::string(16, '\0');
    }
    const std::string bytes(static_cast<const char*>(descriptor), size);
    ::LocalFree(descriptor);
    return bytes;
}

std::string AnyDescriptor(CRandom& random) {
    std::string bytes = ValidDescriptor(random);
    switch (random.Number(4)) {
        case 0:
            Damage(random, bytes);
            break;
        case 1:
            Damage(random, bytes, sizeof(SECURITY_DESCRIPTOR_RELATIVE));
            break;
        case 2:
            bytes.resize(random.Number(bytes.size()));
            break;
        default:
            bytes = random.Bytes(1 + random.Number(96));
            bytes[0] = 1;
            break;
    }
    bytes.resize(std::max(bytes.size(), sizeof(SECURITY_DESCRIPTOR)), '\0');
    return bytes;
}

std::string AnySddl(CRandom& random) {
    std::string text = random.Of(ValidSddl());
    switch (random.Number(6)) {
        case 0:
            break;
        case 1:
        case 2:
            Damage(random, text);
            break;
        case 3:
            text = random.Bytes(random.Number(200));
            break;
        case 4:
            text.insert(random.Number(text.size() + 1), random.Of(ValidSddl()));
            break;
        default:
            text = "D:";
            while (text.size() < 16384 - random.Number(40)) text += "(A;;FA;;;WD)";
            break;
    }
    std::erase(text, '\0');
    return text;
}

}  // namespace zd::test
