// What the system itself makes of descriptors and texts, to compare with.
#pragma once

#include <windows.h>

// The system's header needs the one above first.
#include <sddl.h>

#include <string>

namespace zd::test {

// An owner that no test process runs as: the rights of a test descriptor are those of its entries alone.
inline constexpr char kStranger[] = "O:S-1-5-21-11-22-33-1001G:S-1-5-21-11-22-33-1001";

// A descriptor of the stranger's that gives everybody those rights (0x1, ...), or nobody any.
inline std::string Granting(const std::string& rights) {
    return std::string(kStranger) + "D:(A;;" + rights + ";;;WD)";
}
inline std::string GrantingNothing() {
    return std::string(kStranger) + "D:(A;;0x1;;;S-1-5-21-11-22-33-1002)";
}

// A text of about that many bytes, valid as a descriptor.
inline std::string LongText(std::size_t bytes) {
    std::string text = std::string(kStranger) + "D:";
    const std::string entry = "(A;;0x4;;;S-1-5-21-11-22-33-1002)";
    while (text.size() + entry.size() <= bytes) text += entry;
    return text;
}

// With owner, group, DACL and SACL.
inline std::string WholeText(PSECURITY_DESCRIPTOR descriptor) {
    constexpr SECURITY_INFORMATION kWhole =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION | SACL_SECURITY_INFORMATION;
    char* text = nullptr;
    if (::ConvertSecurityDescriptorToStringSecurityDescriptorA(descriptor, SDDL_REVISION_1, kWhole, &text, nullptr) ==
        FALSE) {
        return "no text";
    }
    std::string whole = text;
    ::LocalFree(text);
    return whole;
}

// The code with which the system refuses a text; 0 where it takes it.
inline DWORD RefusalOf(const std::string& text) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (::ConvertStringSecurityDescriptorToSecurityDescriptorA(text.c_str(), SDDL_REVISION_1, &descriptor, nullptr) ==
        FALSE) {
        return ::GetLastError();
    }
    ::LocalFree(descriptor);
    return 0;
}

}  // namespace zd::test
