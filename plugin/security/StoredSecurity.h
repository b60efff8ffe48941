// The descriptor text that the storage keeps for an object, reached by path or by descriptor.
#pragma once

#include "base/SharedString.h"
#include "base/UniqueHandle.h"
#include "security/SecurityDescriptors.h"

namespace zd {

// A zeroed block that a stored text is read into. Throws std::bad_alloc.
CUniqueHeapBlock<char> NewDescriptorBuffer();

class CStoredSecurity {
public:
    explicit CStoredSecurity(CUtf8String path) : m_path(std::move(path)) {}
    explicit CStoredSecurity(int descriptor) noexcept : m_descriptor(descriptor) {}

    struct CRead {
        bool failed;
        int error;            // errno of the failure
        bool defaultApplies;  // no descriptor of its own, as far as could be told
    };

    // Reads the text into `buffer` of kDescriptorTextBytes zeroed bytes: the object's own, else what the alternate
    // query gives. By path a negative result is a failure, by descriptor any other than 0.
    CRead Read(char* buffer) const;

    // Stores the text. Throws the translated errno.
    void Store(const char* text) const;

private:
    bool IsByPath() const noexcept { return m_descriptor < 0; }
    bool Failed(int result) const noexcept { return IsByPath() ? result < 0 : result != 0; }

    CUtf8String m_path;
    int m_descriptor = -1;
};

// Throws the code of the refusal unless the caller has the access under the stored text.
void RequireStoredAccess(const char* text, DWORD desiredAccess);

}  // namespace zd
