// Security descriptors and their text form, the access check, and the descriptors that the plug-in makes itself.
//
// Functions that throw, throw the system's code as a DWORD. Any thread.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

#include "base/UniqueHandle.h"

namespace zd {

// A stored text is read back into a buffer of this size, its terminator included.
constexpr int kDescriptorTextBytes = 16384;

using CUniqueDescriptorBlock = CUniqueHandle<CPointerTraits<void*, CLocalGiver>>;

// The text with owner, group, DACL and SACL together. Throws; 122 where the text could not be read back.
std::string TextOfDescriptor(PSECURITY_DESCRIPTOR descriptor);

// The descriptor of a text, self-relative.
PSECURITY_DESCRIPTOR DescriptorOfText(const char* text);

// Whether the head, the SIDs and the lists of a descriptor, and all that they claim to hold, are memory that can be
// read. The system's own check passes descriptors whose parts lie anywhere.
bool IsWholeDescriptor(PSECURITY_DESCRIPTOR descriptor);

// Whether a text can be given to the system's conversion, which on some systems runs off an empty part with a second
// colon, and never comes back from an identifier with anything but numbers in it.
bool IsConvertible(std::string_view text) noexcept;

// Throws 1338 for null and for what is no descriptor.
void CheckDescriptor(PSECURITY_DESCRIPTOR descriptor);

// Throws the code of the refusal unless the token's holder has the access under the descriptor. A process token, which
// is not an impersonation, is always allowed.
void RequireAccess(PSECURITY_DESCRIPTOR descriptor, HANDLE token, DWORD desiredAccess);

// The text given to new objects that bring no descriptor: administrators and the system own everything.
std::string DefaultDescriptorText();

// The descriptor invented for an object without one: the token's user owns it, with all specific rights and no others.
class CInventedDescriptor {
public:
    explicit CInventedDescriptor(HANDLE token);
    CInventedDescriptor(const CInventedDescriptor&) = delete;
    CInventedDescriptor& operator=(const CInventedDescriptor&) = delete;

    std::string Text();

    // A copy on the process heap. Throws std::bad_alloc too.
    CUniqueHeapBlock<void> SelfRelative();

private:
    std::vector<BYTE> m_user;
    DWORD m_aclBytes;
    std::vector<DWORD> m_acl;
    SECURITY_DESCRIPTOR m_descriptor{};
};

}  // namespace zd
